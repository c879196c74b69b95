"""The bridge forwards what was learned: joins, leaves, sources, excluded ones, a router, an end."""

import time

CI = True


def run(lab):
    switch = lab.switch(ports=4)
    tv = lab.listener("tv", switch, "swp1")
    desk = lab.listener("desk", switch, "swp2")
    studio = lab.listener("studio", switch, "swp3")
    lab.speaker("idle", switch, "swp4")
    switch.bridge()
    before = switch.bridge_settings()
    source, watch = lab.streams(studio, [tv, desk, studio])
    switch.vlan(10, send_query=True, query_max_response_time=1)
    switch.forwarding()
    lab.begin(switch)
    lab.until(lambda: "go where they are wanted" in switch.log(), True, within=5)

    # A group that nobody has joined goes to everybody; one that somebody has, to that one.
    source.send("239.1.1.1", "239.2.2.2")
    watch.steady("239.1.1.1", {"tv", "desk"})
    tv.do("join 239.1.1.1")
    joined = time.time()
    time.sleep(0.3)
    watch.nothing_missing("239.1.1.1", joined + 0.2, joined + 0.3, {"tv"})
    watch.steady("239.1.1.1", {"tv"})
    watch.steady("239.2.2.2", {"tv", "desk"})
    desk.do("join 239.1.1.1")
    time.sleep(0.2)
    watch.steady("239.1.1.1", {"tv", "desk"})
    tv.do("leave 239.1.1.1")
    lab.until(lambda: switch.entries().get("239.1.1.1"), {"swp2"}, within=3)
    watch.steady("239.1.1.1", {"desk"})

    # Sources.
    source.send("232.1.1.1")
    desk.do("join 232.1.1.1 from 192.0.2.1")
    tv.do(f"join 232.1.1.1 from {source.address}")
    time.sleep(0.2)
    watch.steady("232.1.1.1", {"tv"})
    source.send("239.3.3.3")
    tv.do("join 239.3.3.3")
    desk.do("join 239.3.3.3", f"block {source.address} in 239.3.3.3")
    time.sleep(0.1)
    watch.steady("239.3.3.3", {"tv"})
    desk.do(f"unblock {source.address} in 239.3.3.3")
    time.sleep(0.2)
    watch.steady("239.3.3.3", {"tv", "desk"})

    # What comes from the segment itself goes to all, whoever listens.
    source.send("224.0.0.200")
    watch.steady("224.0.0.200", {"tv", "desk"})

    # The end.
    source.send("239.3.3.3")
    end = time.time()
    switch.stop()
    watch.check("239.3.3.3", end, time.time(), {"tv", "desk"})
    lab.check(switch.entries() == {}, f"entries are left: {switch.entries()}")
    lab.check(switch.rules() == "", f"rules are left: {switch.rules()}")
    after = switch.bridge_settings()
    lab.check(after == before, f"settings were {before} and are {after}")
