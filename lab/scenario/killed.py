"""kill -9 and a new start: with its kept state the agent knows the same, and tells nothing false.

The listeners are not asked meanwhile, so that whatever is known again was kept.
"""

import socket
import time

from rig.routers import exclude, include

CELLS = "bridge", "frr"  # the router
CI = "bridge",


def withdrawals(messages):
    """What takes something back that a router knows."""
    return [str(message) for message in messages for record in message.records
            if record.kind == "block" or (record.kind == "to_in" and not record.sources)]


def run(lab, cell):
    switch, port = lab.switch(ports=3), "swp3"
    router = {"bridge": lab.bridge_router, "frr": lab.pim_router}[cell]("router", switch, port)
    switch.vlan(10, sender_source_address="10.0.200.1")  # FRR drops reports from 0.0.0.0
    tv = lab.listener("tv", switch, "swp1")
    desk = lab.listener("desk", switch, "swp2")
    switch.keep_state()
    lab.begin(switch)
    tv.do("join 239.1.1.1", "join 232.1.1.1 from 192.0.2.1 192.0.2.2")
    desk.do("join 239.2.2.2", "block 192.0.2.9 in 239.2.2.2",
            "join 232.1.1.1 from 192.0.2.3")
    known = {"239.1.1.1": exclude(), "239.2.2.2": exclude("192.0.2.9"),
             "232.1.1.1": include("192.0.2.1", "192.0.2.2", "192.0.2.3")}
    lab.until(router.groups, known, within=5)
    time.sleep(3)  # until it is kept

    desk.do("join 239.3.3.3")
    known["239.3.3.3"] = exclude()
    took = lab.until(lambda: socket.inet_aton("239.3.3.3") in switch.kept_state(), True, within=3)
    lab.note(f"a join is kept after {took * 1000:.0f} ms")
    lab.until(router.groups, known, within=1)
    killed = time.time()
    switch.kill()
    switch.start()
    took = lab.until(lambda: switch.records(port), known, within=3)
    lab.note(f"everything known {took * 1000:.0f} ms after the new start")

    # The router port is known too: who joins now does not wait for a query.
    desk.do("join 239.4.4.4")
    took = lab.until(lambda: "239.4.4.4" in router.groups(), True, within=1)
    lab.note(f"a new join is with the router after {took * 1000:.0f} ms")
    known["239.4.4.4"] = exclude()
    lab.stays(router.groups, known, seconds=5, why="the router has lost something")
    false = withdrawals(switch.wire(port).sent(since=killed))
    lab.check(not false, f"told after the new start: {false}")

    # Who was known before can leave.
    desk.do("leave 239.2.2.2", "leave 232.1.1.1", "leave 239.3.3.3", "leave 239.4.4.4")
    tv.do("leave 239.1.1.1")
    lab.until(router.groups, {"232.1.1.1": include("192.0.2.1", "192.0.2.2")}, within=5)
