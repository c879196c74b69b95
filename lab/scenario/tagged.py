"""Two VLANs over tagged ports: each router sees its own VLAN's listeners, with the right tags."""

import time

from rig.routers import exclude

CI = True


def run(lab):
    switch = lab.switch(ports=2)
    lab.hub(switch, "swp1")
    desk = lab.tagged_listener("desk", switch, "swp1", vlan=20)
    tv = lab.listener("tv", switch, "swp1")
    router = lab.tagged_bridge_router("router", switch, "swp2", vlan=20)
    switch.vlan(10)
    switch.vlan(20, untagged=[], tagged=switch.ports)
    lab.begin(switch)

    desk.do("join 239.20.1.1")
    tv.do("join 239.10.1.1")
    lab.until(router.groups, {"239.20.1.1": exclude()}, within=1)
    time.sleep(1.5)  # for repeated reports
    sent = switch.wire("swp2").sent()
    lab.check(sent and all(message.vlan == 20 for message in sent), "sent in another VLAN than 20")
    desk.do("leave 239.20.1.1")
    lab.until(router.groups, {}, within=2)
    lab.check(not switch.wire("swp1").sent(), "a port without a router was told something")
