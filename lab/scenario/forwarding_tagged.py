"""Streams, reports and queries with an 802.1Q tag through a bridge that passes tags on."""

import time

from rig import igmp, wire

CI = True


def run(lab):
    switch = lab.switch(ports=4)
    tv = lab.tagged_listener("tv", switch, "swp1", 10)
    desk = lab.tagged_listener("desk", switch, "swp2", 10)
    studio = lab.tagged_listener("studio", switch, "swp3", 10)
    router = lab.speaker("router", switch, "swp4")
    passed_on = wire.Wire(tv.namespace, "eth0")
    switch.bridge()
    source, watch = lab.streams(studio, [tv, desk], {"router": router})
    switch.vlan(10, [], switch.ports, query_max_response_time=1)
    switch.forwarding()
    lab.begin(switch)
    source.send("239.1.1.1", "239.2.2.2")
    asked = time.time()
    router.send("10.0.255.254", "224.0.0.1", igmp.query(3), vlan=10)
    lab.until(lambda: any(message.kind == igmp.QUERY and message.vlan == 10
                          for message in passed_on.heard(since=asked)), True, within=1)
    lab.until(lambda: "go where they are wanted" in switch.log(), True, within=5)
    watch.steady("239.2.2.2", {"tv", "desk", "router"})
    tv.do("join 239.1.1.1")
    lab.until(lambda: switch.entries().get("239.1.1.1"), {"swp1"}, within=1)
    time.sleep(0.2)
    watch.steady("239.1.1.1", {"tv", "router"})
    tv.do("leave 239.1.1.1")
    desk.do(f"join 232.1.1.1 from {source.address}")
    source.send("232.1.1.1")
    lab.until(lambda: "232.1.1.1" in switch.entries(), True, within=1)
    time.sleep(0.2)
    watch.steady("232.1.1.1", {"desk", "router"})
    switch.stop()
