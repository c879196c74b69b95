"""Two FRR on two ports, of which one is elected: the other one keeps knowing."""

from rig.routers import exclude, include

CI = False


def run(lab):
    switch = lab.switch(ports=3)
    tv = lab.listener("tv", switch, "swp1")
    routers = [lab.pim_router(name, switch, port)
               for name, port in (("one", "swp2"), ("two", "swp3"))]
    switch.vlan(10, sender_source_address="10.0.200.1")
    switch.bridge()  # which floods the queries of the one that is elected
    switch.start()
    lab.until(lambda: [router.ready() for router in routers], [True, True], within=8)

    tv.do("join 239.1.1.1", "join 232.1.1.1 from 192.0.2.1")
    wanted = {"239.1.1.1": exclude(), "232.1.1.1": include("192.0.2.1")}
    for router in routers:
        lab.until(router.groups, wanted, within=5)
    lab.stays(lambda: [router.groups() for router in routers], [wanted, wanted], 35,
              why="over three membership intervals")
    tv.do("leave 239.1.1.1", "leave 232.1.1.1")
    for router in routers:
        lab.until(router.groups, {}, within=15)
