"""Twice the load that the agent can carry: it answers, keeps its timers, counts what the kernel
dropped, and is right in the end."""

import os
import statistics
import time

from rig import igmp
from rig.routers import exclude, include

CI = False
PORTS, GROUPS, RECORDS, SOURCES = 16, 240, 60, 4  # with load; of each port, report and record
SECONDS = 10


def run(lab):
    os.nice(-20)  # with all it starts: whatever else runs here is not to be waited for
    switch = lab.switch(ports=PORTS + 2)
    *loaded, tv_port, router_port = switch.ports
    load = lab.load(switch, loaded)
    tv = lab.listener("tv", switch, tv_port)
    router = lab.speaker("router", switch, router_port)
    switch.vlan(10, static_bridge_mrouter_interface=[router_port])
    switch.cpu = 1
    switch.start()
    wire = switch.wire(router_port)
    options = ["--groups", GROUPS, "--records", RECORDS, "--sources", SOURCES]

    # What it can carry, by the processor time of a report: about half of that in a flood, which it
    # reads in batches.
    load.run(*options, "--rate", 1000, "--seconds", 0.2)
    before = switch.processor_seconds()
    sent = load.run(*options, "--rate", 5000, "--seconds", 2)["sent"]
    time.sleep(0.5)
    rate = int(4 * sent / (switch.processor_seconds() - before))
    switch.stop()
    switch.start()  # which knows nothing

    tv.do("join 239.200.1.1")
    received, dropped = _counted(switch)
    flood = load.start(*options, "--rate", rate, "--seconds", SECONDS)
    answers, responses, joins = [], [], []
    end = time.monotonic() + SECONDS - 2
    number = 0
    while time.monotonic() < end:
        answers.append(switch.seconds_to_answer("show vlans"))
        number += 1
        joined = time.time()
        tv.do(f"join 239.200.2.{number}")
        joins.append(lab.seconds_until_said(wire, joined, "to_ex", f"239.200.2.{number}"))
        asked = time.time()
        router.send(router.address, igmp.ALL_SYSTEMS, igmp.query(3, response=0.5))
        responses.append(lab.seconds_until_said(wire, asked, "is_ex", "239.200.1.1"))
    done = load.result(flood)
    time.sleep(1)
    received, dropped = (after - before for after, before
                         in zip(_counted(switch), (received, dropped)))
    lab.note(f"{done['sent'] / done['seconds']:,.0f} reports/s of {RECORDS} records sent; "
             f"{received:,.0f} received, {dropped:,.0f} dropped")
    for what, times in (("show vlans", answers), ("a join is reported", joins),
                        ("a query for answers within 0.5 s is answered", responses)):
        lab.note(f"{what}: median {statistics.median(times) * 1000:.0f} ms, "
                 f"most {max(times) * 1000:.0f} ms of {len(times)}")
    lab.check(dropped > done["sent"] / 4, "this was no overload")
    lab.check(dropped + received >= done["sent"], "frames are neither received nor dropped")
    lab.check(max(answers) < 1, "the control socket waits")
    lab.check(max(joins) < 0.5, "a quiet port waits for the loud ones")
    lab.check(max(responses) < 1, "queries are answered late")

    sources = [f"198.18.0.{each + 1}" for each in range(SOURCES)]
    expected = {f"239.{port + 1}.0.{group}": include(*sources)
                for port in range(PORTS) for group in range(GROUPS)}
    expected |= {group: exclude() for group in
                 ["239.200.1.1", *(f"239.200.2.{each + 1}" for each in range(number))]}
    lab.check(switch.records(router_port) == expected, "the records are wrong after the load")


def _counted(switch):
    return switch.metric("frames_received_total"), switch.metric("frames_dropped_total")
