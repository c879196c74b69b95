"""FRR's pimd as the router: its group and source tables, over its own queries."""

from rig.routers import exclude, include

CI = False


def run(lab):
    switch = lab.switch(ports=3)
    tv = lab.listener("tv", switch, "swp1")
    desk = lab.listener("desk", switch, "swp2")
    router = lab.pim_router("router", switch, "swp3")
    switch.vlan(10, sender_source_address="10.0.200.1")
    lab.begin(switch)

    tv.do("join 239.1.1.1", "join 232.1.1.1 from 192.0.2.1 192.0.2.2")
    desk.do("join 232.1.1.1 from 192.0.2.2 192.0.2.3")
    both = include("192.0.2.1", "192.0.2.2", "192.0.2.3")
    lab.until(router.groups, {"239.1.1.1": exclude(), "232.1.1.1": both}, within=1)
    tv.do("join 239.2.2.2", "block 192.0.2.9 in 239.2.2.2")
    lab.until(lambda: router.groups().get("239.2.2.2"), exclude("192.0.2.9"), within=3)
    desk.do("join 239.2.2.2")
    lab.until(lambda: router.groups().get("239.2.2.2"), exclude(), within=3)
    # What stays must survive the router's own queries.
    tv.do("leave 239.1.1.1", "leave 239.2.2.2", "leave 232.1.1.1")
    left = {"239.2.2.2": exclude(), "232.1.1.1": include("192.0.2.2", "192.0.2.3")}
    lab.until(router.groups, left, within=5)
    lab.stays(router.groups, left, 12, why="over two queries")
    desk.do("leave 239.2.2.2", "leave 232.1.1.1")
    lab.until(router.groups, {}, within=5)
