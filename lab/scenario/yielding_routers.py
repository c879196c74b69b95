"""The switch queries, and two FRR on two ports yield to it: all the same they keep knowing."""

from rig.routers import exclude, include

CI = False


def run(lab):
    switch = lab.switch(ports=4)
    lab.listener("idle", switch, "swp4")  # has the lowest address, which the switch borrows
    tv = lab.listener("tv", switch, "swp1")
    routers = [lab.pim_router(name, switch, port)
               for name, port in (("one", "swp2"), ("two", "swp3"))]
    switch.vlan(10, send_query=True, querier_source="10.0.0.1", query_interval=5,
                query_max_response_time=1, sender_source_address="10.0.0.1")
    switch.start()  # of which no router is to be awaited as a querier
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
