"""From a report to the entry, and joins and leaves a second, beside the kernel's own snooping; then
10,000 groups on 32 ports."""

import statistics
import time

from rig import igmp
from rig.mdb import MdbEvents

PORTS, GROUPS, AT_ONCE = 32, 10_000, 180
RATE_GROUPS = 500
UNLIMITED = {"max_groups": 0, "max_interface_groups": 0, "max_interface_memberships": 0,
             "max_interface_sources": 0, "fast_leave": True}


def groups(number):
    return [f"239.{1 + each // 62500}.{each // 250 % 250}.{each % 250 + 1}"
            for each in range(number)]


def latency(lab, switch, far_end, kernel, kernels_end):
    """Medians of joins one by one, in turns."""
    ours, theirs = MdbEvents(switch.namespace), MdbEvents(kernel.namespace)
    times = {"agent": [], "kernel": []}
    for number in range(300):
        group = f"239.200.{number // 250}.{number % 250 + 1}"
        for who, events, end in (("agent", ours, far_end), ("kernel", theirs, kernels_end)):
            message = igmp.report(("to_ex", group, ()))
            taken = events.seconds_from(
                lambda end=end, message=message: end.send(end.address, igmp.ALL_IGMPV3_ROUTERS,
                                                          message), group)
            lab.check(taken is not None, f"{who}: no entry of {group}")
            times[who].append(taken)
            time.sleep(0.002)
    for who, taken in times.items():
        taken.sort()
        lab.check(taken[-1] < 0.05, f"{who}: one took {taken[-1] * 1000:.0f} ms")
        lab.note(f"from a report to the entry, {who}: median {statistics.median(taken) * 1e6:.0f} "
                 f"us, 99 % {taken[int(len(taken) * 0.99)] * 1e6:.0f} us")


def fill(ends):
    """Reports of all groups on all ports."""
    start = time.monotonic()
    wanted = groups(GROUPS)
    for at in range(0, GROUPS, AT_ONCE):
        message = igmp.report(*(("to_ex", group, ()) for group in wanted[at:at + AT_ONCE]))
        for end in ends:
            end.send(end.address, igmp.ALL_IGMPV3_ROUTERS, message)
    return time.monotonic() - start


def rates(lab, switch, ends, others):
    """Joins of four sources each, and leaves, one in each report: until the last entry is there,
    or gone. The kernel's own snooping has done its work when a report is sent."""
    sources = [f"192.0.2.{number}" for number in range(1, 5)]
    wanted = groups(RATE_GROUPS)
    changes = RATE_GROUPS * PORTS
    before = switch.metric("forwarding_entries")
    for what, left, record in (
            ("joins", changes, lambda group: ("allow", group, sources)),
            ("leaves", 0, lambda group: ("block", group, sources))):
        start = time.monotonic()
        send_all(ends, wanted, record)
        lab.until(lambda left=left: switch.metric("forwarding_entries"), before + left, within=60)
        agent = changes / (time.monotonic() - start)
        start = time.monotonic()
        send_all(others, wanted, record)
        kernel = changes / (time.monotonic() - start)
        lab.note(f"{what} of four sources on {PORTS} ports: agent {agent:.0f} a second, kernel "
                 f"{kernel:.0f}")


def send_all(ends, wanted, record):
    for group in wanted:
        message = igmp.report(record(group))
        for end in ends:
            end.send(end.address, igmp.ALL_IGMPV3_ROUTERS, message)


def note_turns(lab, switch, when):
    """The longest so far."""
    lab.note(f"no turn of the loop took longer than "
             f"{switch.metric('longest_turn_seconds') * 1000:.1f} ms {when}")


def run(lab):
    switch = lab.switch(ports=0)
    kernel = lab.switch(ports=0, name="kernel")
    ends = [lab.speaker(f"h{number}", switch, f"swp{number}") for number in range(1, PORTS + 1)]
    others = [lab.speaker(f"k{number}", kernel, f"swp{number}") for number in range(1, PORTS + 1)]
    switch.bridge()
    kernel.bridge(options="mcast_snooping 1 mcast_querier 1 mcast_igmp_version 3 "
                          "mcast_hash_max 65536")
    switch.vlan(10, send_query=True, query_max_response_time=1, **UNLIMITED)
    switch.forwarding()
    lab.begin(switch)
    lab.until(lambda: "go where they are wanted" in switch.log(), True, within=10)
    latency(lab, switch, ends[0], kernel, others[0])
    rates(lab, switch, ends, others)
    known = switch.metric("forwarding_entries")
    note_turns(lab, switch, "before")
    before = switch.resident()
    sending = fill(ends)
    filled = sending + lab.until(lambda: switch.metric("forwarding_entries") >= PORTS * GROUPS + known,
                                 True, within=120)
    lab.note(f"{GROUPS} groups on {PORTS} ports: sent in {sending:.2f} s, all entries after "
             f"{filled:.2f} s, {(switch.resident() - before) / 1024:.0f} MiB more")
    note_turns(lab, switch, "until then")
    lab.note(f"the kernel's own snooping takes the same in {fill(others):.2f} s of the sender")

    # Given back and taken over again, with all of them known.
    switch.clear_configuration()
    switch.vlan(10, send_query=True, query_max_response_time=1, **UNLIMITED)
    switch.write_configuration()
    start = time.monotonic()
    switch.reload()
    lab.until(lambda: "gave br0 back" in switch.log(), True, within=60)
    lab.note(f"given back in {time.monotonic() - start:.2f} s")
    note_turns(lab, switch, "until then")
    switch.forwarding()
    switch.write_configuration()
    start = time.monotonic()
    switch.reload()
    slowest = 0
    while switch.metric("forwarding_entries") < PORTS * GROUPS:
        slowest = max(slowest, switch.seconds_to_answer("show vlans"))
        lab.check(time.monotonic() - start < 120, "not all entries after two minutes")
    lab.note(f"all entries of what was known after {time.monotonic() - start:.2f} s; "
             f"an answer took {slowest * 1000:.0f} ms at most meanwhile")
    note_turns(lab, switch, "until then")
    switch.stop()
