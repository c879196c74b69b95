"""Ten listeners on four ports come and go at random; two routers always see the merge of them, and
each port with listeners is told the merge of the others."""

import random
import time

from rig.merge import merge
from rig.routers import exclude, include

CI = True
SEED = 20
STEPS = 150
# Of one group only some listeners exclude sources, and none includes any: an inclusion takes the
# source out of what its port excludes, also when that port never did (docs/architecture.md).
GROUPS = ["239.1.1.1", "239.2.2.2", "232.1.1.1"]
# A port that alone excludes sources is told to exclude them, so that split horizon is looked for in
# the other groups.
WITH_EXCLUSIONS = GROUPS[1]
HORIZON_OF = [GROUPS[0], GROUPS[2]]
SOURCES = ["192.0.2.1", "192.0.2.2", "192.0.2.3"]


def next_filter(chance, group):
    some = chance.sample(SOURCES, chance.randint(1, 2))
    listed = exclude(*some) if group == WITH_EXCLUSIONS else include(*some)
    return chance.choice([exclude(), listed, listed, None])


def commands(group, was, now):
    """What the listener's socket is told."""
    if now is None:
        return [f"leave {group}"]
    mode, sources = now[0], " ".join(sorted(now[1]))
    if was is None and mode == "include":
        return [f"join {group} from {sources}"]
    return [f"join {group}"] * (was is None) + [f"filter {group} {mode} {sources}"]


def say(lab, switch, port, host, group, told_to_socket):
    """Waits until the listener has said so. Of changes that follow at once its kernel says the last
    one alone: after joining, choosing sources and leaving a BLOCK, which takes no join back."""
    since = time.time()
    host.do(*told_to_socket)
    lab.until(lambda: any(message.source == host.address and record.group == group
                          for message in switch.wire(port).heard(since=since)
                          for record in message.records),
              True, within=3, why=f"{host.name} says what it wants of {group}")


def told(messages):
    """What these reports tell of the groups that are merged exactly."""
    filters = {}
    for message in messages:
        for kind, group, sources in message.records:
            mode, listed = filters.get(group, include())
            if kind in ("to_ex", "is_ex"):
                filters[group] = exclude(*sources)
            elif kind in ("to_in", "is_in"):
                filters[group] = include(*sources)
            elif (kind == "allow") == (mode == "include"):
                filters[group] = mode, listed | set(sources)
            else:
                filters[group] = mode, listed - set(sources)
    return {group: its_filter for group, its_filter in filters.items()
            if group in HORIZON_OF and its_filter != include()}


def merges(groups, listeners, state, without=None):
    """What listeners on all ports, or on all but one, want of groups."""
    merged = {wanted: merge((listeners[who], its_filter)
                            for (who, what), its_filter in state.items()
                            if what == wanted and listeners[who] != without) for wanted in groups}
    return {wanted: its_filter for wanted, its_filter in merged.items() if its_filter}


def run(lab):
    switch = lab.switch(ports=6)
    for port in switch.ports[:4]:
        lab.hub(switch, port)
    listeners = {}
    for number in range(10):
        port = f"swp{number % 4 + 1}"
        listeners[lab.listener(f"host{number}", switch, port)] = port
    routers = [lab.bridge_router(f"router{port}", switch, f"swp{port}") for port in (5, 6)]
    for router in routers:
        # Its queries reach no listener here: what these said must live for longer than all steps.
        router.set("mcast_query_interval 12500")
    switch.vlan(10, report_on="all", ssm_range="none")  # the groups are joined in all modes
    lab.begin(switch)

    chance = random.Random(SEED)
    state = {}
    slowest = 0.0
    for step in range(STEPS + len(listeners) * len(GROUPS)):
        host = chance.choice(list(listeners))
        group = chance.choice(GROUPS)
        if step < STEPS:
            now = next_filter(chance, group)
        elif state:  # everybody leaves
            (host, group), now = chance.choice(list(state)), None
        else:
            break
        was = state.get((host, group))
        if was == now:
            continue
        say(lab, switch, listeners[host], host, group, commands(group, was, now))
        if now is None:
            del state[host, group]
        else:
            state[host, group] = now
        why = f"step {step}, {host.name}: {group} {was} -> {now}:"
        for router in routers:
            took = lab.until(router.groups, merges(GROUPS, listeners, state), within=3, why=why)
            slowest = max(slowest, took)
        lab.until(lambda: [told(switch.wire(port).sent()) for port in switch.ports[:4]],
                  [merges(HORIZON_OF, listeners, state, without=port)
                   for port in switch.ports[:4]],
                  within=3, why=f"told on the listeners' ports, {why}")
    lab.check(not any(router.groups() for router in routers), "the last leave left something")
    lab.note(f"seed {SEED}; slowest change, the router's own wait included: {slowest:.2f} s")
