"""Two of our switches, connected, listeners on both, one of them the querier: they settle."""

import time

from rig.routers import exclude

CI = False


def run(lab):
    one, two = lab.switch(ports=2, name="one"), lab.switch(ports=2, name="two")
    tv = lab.listener("tv", one, "swp1")
    desk = lab.listener("desk", two, "swp1")
    lab.between(one, "swp2", two, "swp2")
    # Nothing here forwards the queries to the listeners, whose memberships so live for 62 seconds.
    timing = {"query_interval": 30, "query_max_response_time": 1}
    one.vlan(10, send_query=True, querier_source="10.0.9.1", **timing)
    two.vlan(10, **timing)
    one.start()
    two.start()
    lab.until(lambda: len(two.wire("swp2").heard()) > 0, True, within=5, why="no query")

    # The querier learns of everybody. The other switch needs to know its own listeners only.
    tv.do("join 239.1.1.1", "join 239.2.2.2")
    desk.do("join 239.1.1.1", "join 239.3.3.3")
    settled = [{"239.1.1.1": exclude(), "239.3.3.3": exclude()},
               {"239.1.1.1": exclude(), "239.2.2.2": exclude()},
               {}, {"239.1.1.1": exclude(), "239.3.3.3": exclude()}]

    def records():
        return [switch.records(port) for switch in (one, two) for port in switch.ports]

    lab.until(records, settled, within=1)
    time.sleep(3)  # the repeats of the joins
    start = time.time()
    seconds = 30
    lab.stays(records, settled, seconds, why="at rest")
    frames = len(one.wire("swp2").sent(since=start)) + len(two.wire("swp2").sent(since=start))
    # One or two queries, each answered by the other switch's host in one report.
    lab.check(frames <= 4, f"{frames} frames between the switches in {seconds} s")
    lab.note(f"{frames} frames between the switches in {seconds} s")

    tv.do("leave 239.1.1.1", "leave 239.2.2.2")
    desk.do("leave 239.1.1.1", "leave 239.3.3.3")
    lab.until(records, [{}] * 4, within=4)
    lab.stays(records, [{}] * 4, 12, why="after the last leave")
