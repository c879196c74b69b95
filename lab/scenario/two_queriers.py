"""Two queriers of different versions on one cable, and a third on another port."""

from rig import igmp
from rig.routers import exclude

CI = False


def run(lab):
    switch = lab.switch(ports=3)
    lab.hub(switch, "swp2")
    tv = lab.listener("tv", switch, "swp1")
    new = lab.bridge_router("new", switch, "swp2", version=3)
    old = lab.speaker("old", switch, "swp2")
    other = lab.bridge_router("other", switch, "swp3", version=3)
    switch.vlan(10)
    lab.begin(switch)

    tv.do("join 239.1.1.1")
    for router in (new, other):
        lab.until(router.groups, {"239.1.1.1": exclude()}, within=0.5)
    # The older one decides what is spoken on its cable, and to the VLAN's other routers.
    old.send(old.address, igmp.ALL_SYSTEMS, igmp.query(2, response=0.5))
    lab.until(lambda: switch.wire("swp2").sent()[-1].kind, igmp.REPORT_V2, within=1)
    tv.do("join 239.2.2.2")
    for router in (new, other):
        lab.until(router.groups, {"239.1.1.1": exclude(), "239.2.2.2": exclude()}, within=0.5)
    lab.check(switch.wire("swp2").sent()[-1].kind == igmp.REPORT_V2, "swp2 speaks a newer version")
    lab.check(switch.wire("swp3").sent()[-1].kind == igmp.REPORT_V2, "swp3 speaks a newer version")
    tv.do("leave 239.1.1.1", "leave 239.2.2.2")
    for router in (new, other):
        lab.until(router.groups, {}, within=3)
