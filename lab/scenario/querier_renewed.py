"""A querier of version 2 becomes one of version 3: the switch speaks version 2 for as long as the
old one may be there, and version 3 again afterwards. Takes more than four minutes."""

import time

from rig import igmp
from rig.routers import exclude

OLD_QUERIER_PRESENT = 2 * 125 + 10 * 1  # seconds: RFC 9776 section 8.12


def run(lab):
    switch = lab.switch(ports=2)
    tv = lab.listener("tv", switch, "swp1")
    router = lab.bridge_router("router", switch, "swp2", version=2)
    switch.vlan(10)
    lab.begin(switch)
    tv.do("join 239.1.1.1")
    lab.until(router.groups, {"239.1.1.1": exclude()}, within=0.5)

    wire = switch.wire("swp2")
    lab.query(switch, "swp2", router)
    router.set("mcast_igmp_version 3")
    last = max(message.time for message in wire.heard() if message.kind == igmp.QUERY)
    lab.until(lambda: any(message.kind == igmp.REPORT_V3 for message in wire.sent(since=last)),
              True, within=OLD_QUERIER_PRESENT + 15)
    later = wire.sent(since=last)
    renewed = min(message.time for message in later if message.kind == igmp.REPORT_V3) - last
    lab.note(f"version 3 again {renewed:.0f} s after the last query of version 2")
    lab.check(renewed >= OLD_QUERIER_PRESENT, "version 2 was given up while its querier might live")
    older = [message for message in later if message.kind == igmp.REPORT_V2]
    lab.check(len(older) > 10, "queries of version 3 were not answered in version 2 meanwhile")
    lab.until(router.groups, {"239.1.1.1": exclude()}, within=1)
