"""igmpsnoopctl restart: the program is started anew in the same process, under traffic.

The listeners are not asked meanwhile. Clients of the control socket come all the time, and none is
refused. Who joins in the gap is heard at the first report.
"""

import threading
import time

from rig import igmp
from rig.routers import exclude, include
from scenario.killed import withdrawals

CI = True


class Clients(threading.Thread):
    """Ask the agent without a pause."""

    def __init__(self, switch):
        super().__init__(daemon=True)
        self._switch = switch
        self.failures, self.slowest = [], 0
        self.ended = False

    def run(self):
        while not self.ended:
            try:
                self.slowest = max(self.slowest, self._switch.seconds_to_answer("show vlans"))
            except Exception as error:  # whatever it is, it is a failure
                self.failures.append(str(error))


class Noise(threading.Thread):
    """A thousand reports a second, each of the same member."""

    def __init__(self, speaker):
        super().__init__(daemon=True)
        self._speaker = speaker
        self.sent = 0
        self.ended = False

    def run(self):
        report = igmp.report(("is_ex", "239.9.9.9", ()))
        start = time.monotonic()
        while not self.ended:
            due = int((time.monotonic() - start) * 1000) - self.sent
            for _ in range(due):
                self._speaker.send("10.0.9.9", igmp.ALL_IGMPV3_ROUTERS, report)
            self.sent += due
            time.sleep(0.001)


class Joins(threading.Thread):
    """Joins another group every two milliseconds, and says so once."""

    def __init__(self, speaker):
        super().__init__(daemon=True)
        self._speaker = speaker
        self.groups = []
        self.ended = False

    def run(self):
        while not self.ended and len(self.groups) < 2000:
            number = len(self.groups) + 1
            group = f"239.8.{number >> 8}.{number & 0xFF}"
            self._speaker.send(self._speaker.address, igmp.ALL_IGMPV3_ROUTERS,
                               igmp.report(("to_ex", group, ())))
            self.groups.append(group)
            time.sleep(0.002)


def join_in_the_gap(lab, switch, speaker):
    joins = Joins(speaker)
    joins.start()
    runs = switch.log().count("running:")
    switch.restart_in_place()
    lab.until(lambda: switch.log().count("running:"), runs + 1, within=3)
    joins.ended = True
    joins.join()

    def missing():
        return sorted(set(joins.groups) - set(switch.records("swp3")))

    lab.until(missing, [], within=1, why="joins in the gap are not known")
    lab.note(f"all of {len(joins.groups)} joins during a restart are known")


def made_again_in_the_gap(lab, switch):
    """A device that is another one after the restart is opened anew."""
    runs = switch.log().count("running:")
    switch.restart_in_place()
    switch.namespace.ip("link delete swp5")
    again = lab.speaker("again", switch, "swp5")
    lab.until(lambda: switch.log().count("running:"), runs + 1, within=3)

    def heard():
        again.send(again.address, igmp.ALL_IGMPV3_ROUTERS, igmp.report(("to_ex", "239.7.7.7", ())))
        return "239.7.7.7" in switch.records("swp3")

    lab.until(heard, True, within=3, why="a device that was made again is deaf")


def querier_goes_on(lab):
    """A querier asks when it would have asked."""
    switch = lab.switch(ports=1, name="querier")
    far_end = lab.speaker("edge", switch, "swp1")
    switch.vlan(10, send_query=True, querier_source="10.0.0.1", query_interval=3,
                query_max_response_time=1)
    lab.begin(switch)

    def queries():
        return [message.time for message in far_end.heard() if message.kind == igmp.QUERY]

    lab.until(lambda: len(queries()) >= 2, True, within=6)  # those of the start
    switch.restart_in_place()
    lab.until(lambda: switch.log().count("running:"), 2, within=3)
    lab.until(lambda: len(queries()) >= 3, True, within=10)
    pause = queries()[2] - queries()[1]
    lab.check(2.8 < pause < 5, f"the querier asked again after {pause:.1f} s instead of 3 s")


def run(lab):
    switch = lab.switch(ports=5)
    tv = lab.listener("tv", switch, "swp1")
    desk = lab.listener("desk", switch, "swp2")
    router = lab.bridge_router("router", switch, "swp3")
    noise = Noise(lab.speaker("noise", switch, "swp4"))
    joiner = lab.speaker("joiner", switch, "swp5")
    switch.vlan(10)
    lab.begin(switch)
    tv.do("join 239.1.1.1", "join 232.1.1.1 from 192.0.2.1 192.0.2.2")
    desk.do("join 239.2.2.2", "block 192.0.2.9 in 239.2.2.2")
    noise.start()
    known = {"239.1.1.1": exclude(), "239.2.2.2": exclude("192.0.2.9"), "239.9.9.9": exclude(),
             "232.1.1.1": include("192.0.2.1", "192.0.2.2")}
    lab.until(router.groups, known, within=5)
    time.sleep(1.5)  # until nothing of it is told again

    clients = Clients(switch)
    clients.start()
    process, began = switch.process_id(), time.time()
    for _ in range(3):
        runs = switch.log().count("running:")
        switch.restart_in_place()
        lab.until(lambda runs=runs: switch.log().count("running:"), runs + 1, within=3)
        lab.until(lambda: switch.records("swp3"), known, within=1)
    lab.check(switch.running() and switch.process_id() == process, "it is another process")
    told = [str(message) for message in switch.wire("swp3").sent(since=began)
            if any(not record.kind.startswith("is_") for record in message.records)]
    lab.check(not told, f"told unasked while restarting: {told}")
    # Who joins and leaves in the very moment is heard, if need be when the kernel says it again.
    switch.restart_in_place()
    desk.do("join 239.3.3.3", "leave 239.2.2.2")
    tv.do("leave 232.1.1.1 from 192.0.2.1")
    del known["239.2.2.2"]
    known |= {"239.3.3.3": exclude(), "232.1.1.1": include("192.0.2.2")}
    took = lab.until(router.groups, known, within=3)
    lab.note(f"joins and leaves during a restart are with the router after {took * 1000:.0f} ms")
    clients.ended = noise.ended = True
    clients.join()
    lab.check(not clients.failures, f"clients failed: {clients.failures[:3]}")
    lab.note(f"the slowest answer to a client took {clients.slowest * 1000:.0f} ms")

    false = [each for each in withdrawals(switch.wire("swp3").sent(since=began))
             if "239.2.2.2" not in each and "192.0.2.1}" not in each]
    lab.check(not false, f"told while restarting: {false}")

    for _ in range(3):
        join_in_the_gap(lab, switch, joiner)
    made_again_in_the_gap(lab, switch)
    querier_goes_on(lab)
