"""Two of our switches, connected, without a querier: both tell the other everything, and settle."""

import time

from rig.routers import exclude, include

CI = False


def run(lab):
    one, two = lab.switch(ports=2, name="one"), lab.switch(ports=2, name="two")
    tv = lab.listener("tv", one, "swp1")
    desk = lab.listener("desk", two, "swp1")
    lab.between(one, "swp2", two, "swp2")
    for switch in (one, two):
        switch.vlan(10, report_on="all")
        switch.start()

    def records():
        return [switch.records(port) for switch in (one, two) for port in switch.ports]

    tv.do("join 239.1.1.1", "join 239.2.2.2", "join 232.1.1.1 from 192.0.2.1")
    desk.do("join 239.1.1.1", "join 239.3.3.3", "join 232.1.1.1 from 192.0.2.2")
    of_tv = {"239.1.1.1": exclude(), "239.2.2.2": exclude(), "232.1.1.1": include("192.0.2.1")}
    of_desk = {"239.1.1.1": exclude(), "239.3.3.3": exclude(), "232.1.1.1": include("192.0.2.2")}
    settled = [of_desk, of_tv, of_tv, of_desk]
    lab.until(records, settled, within=1)
    time.sleep(3)  # the repeats of the joins
    start = time.time()
    lab.stays(records, settled, 30, why="at rest")
    frames = len(one.wire("swp2").sent(since=start)) + len(two.wire("swp2").sent(since=start))
    lab.check(frames == 0, f"{frames} frames between the switches at rest")

    # Listeners that come and go by turns: every change crosses the cable as often as robustness
    # asks, and no more.
    start = time.time()
    changes = 20
    for number in range(changes // 2):
        tv.do(f"join 239.9.9.{number}")
        desk.do(f"join 239.9.9.{number}")
    lab.until(lambda: len(records()[1]), 3 + changes // 2, within=1)
    for number in range(changes // 2):
        tv.do(f"leave 239.9.9.{number}")
        desk.do(f"leave 239.9.9.{number}")
    lab.until(records, settled, within=1)
    time.sleep(3)
    told = sum(len(message.records) for switch in (one, two)
               for message in switch.wire("swp2").sent(since=start))
    lab.check(told <= 2 * 2 * changes,
              f"{told} records between the switches for {2 * changes} changes")
    lab.note(f"{2 * changes} changes, {told} records between the switches")

    tv.do("leave 239.1.1.1", "leave 239.2.2.2", "leave 232.1.1.1")
    desk.do("leave 239.1.1.1", "leave 239.3.3.3", "leave 232.1.1.1")
    lab.until(records, [{}] * 4, within=1)
    lab.stays(records, [{}] * 4, 5, why="after the last leave")
