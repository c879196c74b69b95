"""Queriers of version 1, 2 and 3, changing while the switch runs: it speaks as they do."""

import time

from rig import igmp
from rig.routers import exclude

CI = True


def run(lab):
    switch = lab.switch(ports=3)
    tv = lab.listener("tv", switch, "swp1")
    router = lab.bridge_router("router", switch, "swp2", version=2)
    speaker = lab.speaker("speaker", switch, "swp3")
    switch.vlan(10, report_on="all")
    lab.begin(switch)

    # A kernel bridge that queries as version 2, with leaves that it asks about.
    tv.do("join 239.1.1.1")
    lab.until(router.groups, {"239.1.1.1": exclude()}, within=0.5)
    tv.do("leave 239.1.1.1")
    lab.until(router.groups, {}, within=3)
    told = {message.kind for message in switch.wire("swp2").sent()}
    lab.check(told == {igmp.REPORT_V2, igmp.LEAVE}, f"a version 2 querier was told {told}")
    router.set("mcast_igmp_version 3")
    lab.query(switch, "swp2", router)
    tv.do("join 239.1.1.1")
    lab.until(lambda: set(router.groups()), {"239.1.1.1"}, within=0.5)

    # An older querier counts as present for minutes after its last query, and on the ports of all
    # routers of the VLAN. Downwards the version changes at once.
    wire = switch.wire("swp3")

    def ask(version):
        asked = time.time()
        speaker.send(speaker.address, igmp.ALL_SYSTEMS, igmp.query(version, response=0.5))
        time.sleep(0.7)
        return {message.kind for message in wire.sent(since=asked)}

    kinds = ask(3)
    lab.check(kinds == {igmp.REPORT_V2}, f"the older querier on another port does not count: {kinds}")
    lab.check(ask(2) == {igmp.REPORT_V2}, "a version 2 query is not answered by version 2")
    lab.check(ask(3) == {igmp.REPORT_V2}, "version 2 is forgotten while its querier may be there")

    ask(1)  # which may be answered within ten seconds
    changed = time.time()
    tv.do("join 239.2.2.2", "leave 239.1.1.1")
    lab.until(lambda: bool(wire.sent(since=changed)), True, within=0.5)
    ask(2)
    kinds = {message.kind for message in wire.sent(since=changed)}
    lab.check(kinds == {igmp.REPORT_V1}, f"a version 1 querier heard {kinds}")
