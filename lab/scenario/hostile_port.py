"""A port that attacks with all it has, while a listener on another port joins and leaves: what it
wants reaches the router, the control socket answers, memory stays bounded, and all is right after."""

import statistics
import threading
import time

from rig import igmp
from rig.routers import exclude

CI = False
SECONDS = 20
RATE = 3000  # frames a second, far beyond what a port of honest listeners sends
WITHIN = 0.25


def run(lab):
    switch = lab.switch(ports=3)
    tv = lab.listener("tv", switch, "swp1")
    router = lab.bridge_router("router", switch, "swp2")
    attacker = lab.speaker("attacker", switch, "swp3")
    # As docs/security.md advises for ports of hosts: queries there would set everybody's version.
    switch.port_settings["swp3"] = {"querier_allowed": False, "router_allowed": False}
    switch.vlan(10, send_query=True, querier_source="10.0.250.1",
                static_bridge_mrouter_interface=["swp2"])
    switch.start()
    tv.do("join 239.200.1.1")
    lab.until(lambda: "239.200.1.1" in router.groups(), True, within=1)
    before, stated = switch.resident_bytes(), switch.stated_bytes()

    flood = Flood(attacker)
    wire = switch.wire("swp2")
    joins, answers = [], []
    with flood:
        while time.monotonic() < flood.end:
            group = f"239.200.2.{len(joins) % 250 + 1}"
            joined = time.time()
            tv.do(f"join {group}")
            joins.append(lab.seconds_until_said(wire, joined, "to_ex", group, within=5))
            left = time.time()
            tv.do(f"leave {group}")
            lab.seconds_until_said(wire, left, "to_in", group, within=5)
            answers.append(switch.seconds_to_answer("show vlans"))
    resident = switch.resident_bytes()
    longest_turn = switch.ask("show statistics")["agent"][0]["longest-turn"]
    lab.note(f"{flood.sent:,} frames in {SECONDS} s; memory grew by"
             f" {(resident - before) / (1 << 20):.1f} MB to {resident / (1 << 20):.1f} MB, of"
             f" {stated >> 20} MB that are stated; longest turn {longest_turn * 1000:.1f} ms")
    for what, times in ("a join is told the router", joins), ("show vlans answers", answers):
        lab.note(f"{what} after {statistics.median(times) * 1000:.0f} ms in the median of"
                 f" {len(times)}, {max(times) * 1000:.0f} ms at most")
    lab.check(resident < stated, f"{resident} bytes of memory")
    lab.check(sorted(joins)[int(len(joins) * 0.99)] <= WITHIN, f"joins took up to {max(joins):.3f} s")
    lab.check(max(answers) <= WITHIN, f"an answer took {max(answers):.3f} s")

    # What the attacker said goes by the usual timers; the listener never notices.
    lab.until(lambda: router.groups().get("239.200.1.1"), exclude(), within=5)
    switch.read("clear groups")
    lab.until(lambda: {group for group in router.groups() if group.startswith("239.200.")},
              {"239.200.1.1"}, within=15, why="the listener's group after the attack")


class Flood:
    """Everything at once, from one port: what fills tables, what costs time, what misleads."""

    def __init__(self, speaker):
        self._speaker = speaker
        self._thread = threading.Thread(target=self._send)
        self._stop = threading.Event()
        self.sent = 0

    def __enter__(self):
        self.end = time.monotonic() + SECONDS
        self._thread.start()

    def __exit__(self, *_):
        self._stop.set()
        self._thread.join()

    def _send(self):
        attacks = [attack() for attack in (_many_sources, _many_reporters, _many_groups,
                                           _one_source_records, _queries, _old_queries)]
        start = time.monotonic()
        while not self._stop.is_set():
            for attack in attacks:
                source, destination, message = next(attack)
                try:
                    self._speaker.send(source, destination, message)
                    self.sent += 1
                except OSError:  # the cable is full
                    pass
            time.sleep(max(0, start + self.sent / RATE - time.monotonic()))


def _address(number):
    return f"10.{100 + (number >> 16) % 100}.{number >> 8 & 0xFF}.{number & 0xFF or 1}"


def _sources(number, count):
    return tuple(f"198.{51 + number % 50}.{each >> 8 & 0xFF}.{each & 0xFF or 1}"
                 for each in range(count))


def _many_sources():
    number = 0
    while True:
        number += 1
        yield "10.0.99.1", igmp.ALL_IGMPV3_ROUTERS, igmp.report(
            ("allow", f"239.1.1.{number % 4}", _sources(number, 360)))


def _many_reporters():
    number = 0
    while True:
        number += 1
        yield _address(number), igmp.ALL_IGMPV3_ROUTERS, igmp.report(
            ("is_in", "239.2.2.2", _sources(number % 3, 360)))


def _many_groups():
    number = 0
    while True:
        number += 100
        yield "10.0.99.2", igmp.ALL_IGMPV3_ROUTERS, igmp.report(
            *(("to_ex", f"238.{each >> 16 & 0xFF}.{each >> 8 & 0xFF}.{each & 0xFF}", ())
              for each in range(number, number + 100)))


def _one_source_records():
    number = 0
    while True:
        number += 1
        yield "10.0.99.1", igmp.ALL_IGMPV3_ROUTERS, igmp.report(
            *(("block" if number % 2 else "allow", "239.1.1.1", (source,))
              for source in _sources(number, 100)))


def _queries():
    while True:
        for source in "0.0.0.1", "127.0.0.1", "0.0.0.0":
            message = bytearray(igmp.query(3, interval=127))
            message[8], message[9] = 7, 255  # robustness 7, more than eight hours
            yield source, igmp.ALL_SYSTEMS, bytes(message)


def _old_queries():
    while True:
        yield "10.0.99.9", igmp.ALL_SYSTEMS, igmp.query(2, response=0.1)
        yield "10.0.99.9", igmp.ALL_SYSTEMS, igmp.query(1)
