"""No querier anywhere: with report-on = "all" the hosts tell every port what the others want."""

from rig.routers import exclude, include

CI = True


def run(lab):
    switch = lab.switch(ports=2)
    tv = lab.listener("tv", switch, "swp1")
    router = lab.bridge_router("router", switch, "swp2")
    switch.vlan(10, report_on="all")
    switch.start()

    tv.do("join 239.1.1.1", "join 232.1.1.1 from 192.0.2.1")
    lab.until(router.groups, {"239.1.1.1": exclude(), "232.1.1.1": include("192.0.2.1")}, within=1)
    tv.do("leave 239.1.1.1")
    lab.until(router.groups, {"232.1.1.1": include("192.0.2.1")}, within=2)
    tv.do("leave 232.1.1.1")
    lab.until(router.groups, {}, within=2)
    lab.check(not switch.wire("swp1").sent(), "the listener's port heard its own membership back")
