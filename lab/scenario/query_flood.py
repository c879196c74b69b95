"""Thousands of queries of every kind: few answers, and the switch is as quick as ever."""

import random
import time

from rig import igmp
from rig.routers import exclude

CI = False
SEED = 21
QUERIES = 30_000


def run(lab):
    switch = lab.switch(ports=3)
    tv = lab.listener("tv", switch, "swp1")
    router = lab.bridge_router("router", switch, "swp2")
    flood = lab.speaker("flood", switch, "swp3")
    switch.vlan(10)
    lab.begin(switch)
    tv.do(*(f"join 239.1.1.{number}" for number in range(1, 19)))
    lab.until(lambda: len(router.groups()), 18, within=1)

    chance = random.Random(SEED)
    queries = []
    for _ in range(500):
        version = chance.choice([1, 2, 3, 3])
        group = chance.choice(["0.0.0.0", f"239.1.1.{chance.randint(1, 40)}"])
        sources = [f"192.0.2.{number}" for number in range(chance.randint(0, 4))]
        if version != 3 or group == "0.0.0.0":
            sources = ()
        queries.append((igmp.ALL_SYSTEMS if group == "0.0.0.0" else group,
                        igmp.query(version, group if version > 1 else "0.0.0.0",
                                   chance.choice([0.1, 0.5, 1]), sources=sources)))
    start = time.time()
    for number in range(QUERIES):
        destination, query = queries[number % len(queries)]
        flood.send(flood.address, igmp.ALL_SYSTEMS if query[1] == 0 else destination, query)
    took = time.time() - start
    lab.check(router.seconds_from(lambda: tv.do("join 239.9.9.9"),
                                  {**router.groups(), "239.9.9.9": exclude()}, within=0.05)
              is not None, "a join during the flood took more than 50 ms")
    answers = switch.wire("swp3").sent(since=start)
    lab.check(answers, "no answer at all")
    # An answer per group and tenth of a second would be the most that the shortest times allow.
    most = 18 * 10 * (took + 1)
    lab.check(len(answers) < most, f"{len(answers)} answers in {took:.1f} s")
    lab.note(f"{QUERIES} queries in {took:.1f} s: {len(answers)} answers")
    tv.do(*(f"leave 239.1.1.{number}" for number in range(1, 19)), "leave 239.9.9.9")
    lab.until(router.groups, {}, within=3)
