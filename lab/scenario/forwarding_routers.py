"""unregistered = "routers"; a router that appears; a listener that moves; a port that goes down."""

import time

from rig import igmp

CI = True


def run(lab):
    switch = lab.switch(ports=4)
    tv = lab.listener("tv", switch, "swp1")
    desk = lab.listener("desk", switch, "swp2")
    studio = lab.listener("studio", switch, "swp3")
    router = lab.speaker("router", switch, "swp4")
    switch.bridge()
    source, watch = lab.streams(studio, [tv, desk], {"router": router})
    switch.vlan(10, send_query=True, query_max_response_time=1, querier_source="10.0.255.1",
                last_member_query_interval=1)
    switch.forwarding(unregistered="routers")
    lab.begin(switch)
    lab.until(lambda: "go where they are wanted" in switch.log(), True, within=5)

    # Nobody wants it, and there is no router.
    source.send("239.1.1.1", "239.2.2.2")
    tv.do("join 239.1.1.1")
    time.sleep(0.1)
    watch.steady("239.1.1.1", {"tv"})
    watch.steady("239.2.2.2", set())

    # A router appears: it gets every group, joined or not.
    router.send("10.0.0.254", "224.0.0.1", igmp.query(3))
    appeared = time.time()
    time.sleep(0.3)
    watch.nothing_missing("239.1.1.1", appeared + 0.2, appeared + 0.3, {"tv", "router"})
    watch.nothing_missing("239.2.2.2", appeared + 0.2, appeared + 0.3, {"router"})
    watch.steady("239.1.1.1", {"tv", "router"})
    watch.steady("239.2.2.2", {"router"})

    # A listener moves to another port, and says so there.
    tv.do("leave 239.1.1.1")
    desk.do("join 239.1.1.1")
    moved = time.time()
    time.sleep(0.3)
    watch.nothing_missing("239.1.1.1", moved + 0.2, moved + 0.3, {"desk", "router"})
    lab.until(lambda: switch.entries().get("239.1.1.1"), {"swp2"}, within=4)
    watch.steady("239.1.1.1", {"desk", "router"})

    # Its port goes down, and comes back with a listener that says so again.
    desk.namespace.ip("link set eth0 down")
    lab.until(lambda: switch.entries(), {}, within=2)
    desk.namespace.ip("link set eth0 up")
    lab.until(lambda: switch.entries().get("239.1.1.1"), {"swp2"}, within=3)
    watch.steady("239.1.1.1", {"desk", "router"})
    switch.stop()
    lab.check(switch.entries() == {}, f"entries are left: {switch.entries()}")
    lab.check(switch.rules() == "", f"rules are left: {switch.rules()}")
