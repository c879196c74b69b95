"""New configurations while the switch runs: what was learned stays; a mistake changes nothing."""

import time

from rig.routers import exclude

CI = True


def run(lab):
    switch = lab.switch(ports=3)
    tv = lab.listener("tv", switch, "swp1")
    desk = lab.listener("desk", switch, "swp2")
    router = lab.bridge_router("router", switch, "swp3")
    switch.vlan(10, ["swp1", "swp3"])
    lab.begin(switch)
    tv.do("join 239.1.1.1")
    desk.do("join 239.2.2.2")
    lab.until(router.groups, {"239.1.1.1": exclude()}, within=0.5)

    # One port more. Its listener is heard from with its next report, not with a repeated one.
    time.sleep(1.2)
    before = time.time()
    switch.clear_configuration()
    switch.vlan(10)
    switch.write_configuration()
    switch.reload()
    lab.until(lambda: switch.records("swp2"), {"239.1.1.1": exclude()}, within=2)
    desk.do("join 239.3.3.3")
    lab.until(router.groups, {"239.1.1.1": exclude(), "239.3.3.3": exclude()}, within=0.5)
    told = set().union(*(message.groups() for message in switch.wire("swp3").sent(since=before)))
    lab.check("239.1.1.1" not in told, "what had not changed was told again")

    # A mistake: the agent says where, and goes on as before.
    switch.write_configuration("[[vlan]]\nid = 10\ninterface = ['swp1']\n")
    switch.reload()
    lab.until(lambda: "igmpsnoopd.toml:3" in switch.log(), True, within=2)
    tv.do("join 239.4.4.4")
    lab.until(lambda: "239.4.4.4" in router.groups(), True, within=0.5)

    # A port less: its listeners count no more.
    switch.clear_configuration()
    switch.vlan(10, ["swp1", "swp3"])
    switch.write_configuration()
    switch.reload()
    lab.until(lambda: set(router.groups()), {"239.1.1.1", "239.4.4.4"}, within=2)
    tv.do("leave 239.1.1.1", "leave 239.4.4.4")
    lab.until(router.groups, {}, within=2)
