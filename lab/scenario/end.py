"""The agent is told to end: its hosts leave first, so the router forwards nothing in vain."""

from rig.routers import exclude, include

CI = True


def run(lab):
    switch = lab.switch(ports=2)
    tv = lab.listener("tv", switch, "swp1")
    router = lab.bridge_router("router", switch, "swp2")
    switch.vlan(10)
    lab.begin(switch)
    tv.do("join 239.1.1.1", "join 232.1.1.1 from 192.0.2.1 192.0.2.2")
    lab.until(router.groups, {"239.1.1.1": exclude(),
                              "232.1.1.1": include("192.0.2.1", "192.0.2.2")}, within=0.5)
    switch.stop()
    lab.until(router.groups, {}, within=1)
