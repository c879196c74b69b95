"""igmpsnoopctl restart: the program is started anew in the same process, under traffic.

The listeners are not asked meanwhile. Clients of the control socket come all the time, and none is
refused.
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


def run(lab):
    switch = lab.switch(ports=4)
    tv = lab.listener("tv", switch, "swp1")
    desk = lab.listener("desk", switch, "swp2")
    router = lab.bridge_router("router", switch, "swp3")
    noise = Noise(lab.speaker("noise", switch, "swp4"))
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
