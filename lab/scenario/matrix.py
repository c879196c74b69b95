"""Every kind of listener before every router in every place: what each router believes is what the
listeners want, after joins, source changes and leaves, and over three rounds of queries each."""

import shutil
import time

from rig.lab import Skip
from rig.routers import exclude, include

CELLS = [
    "bridge3-elected", "bridge3-yields", "bridge3-two", "bridge3-row", "bridge3-pair",
    "bridge2-elected", "bridge2-yields", "bridge2-two", "bridge2-row", "bridge2-pair",
    "frr-elected", "frr-yields", "frr-two", "frr-row", "frr-pair",
    "pimd-elected", "pimd-yields", "pimd-two", "pimd-row", "pimd-pair",
]
CI = ["bridge3-two", "bridge3-yields"]

# Of everybody's queries the interval and the time for answers, in seconds, and the robustness
# variable. A host of version 1 takes up to ten seconds to answer, whatever is asked, and is to be
# remembered meanwhile; only where the switch asks may the variable be other than 2. pimd always
# gives ten seconds.
TIMING = {"pimd": (12, 10, 2), "bridge3-yields": (2, 1, 7)}
USUAL_TIMING = 5, 3, 2

FIRST = {"239.0.1.1": exclude(), "239.0.2.1": exclude(),
         "239.0.3.1": include("192.0.2.1", "192.0.2.2"), "239.0.4.1": exclude("192.0.2.9"),
         "232.1.1.1": include("192.0.2.1", "192.0.2.2", "192.0.2.3")}
CHANGED = FIRST | {"239.0.3.1": include("192.0.2.2", "192.0.2.3"),
                   "239.0.4.1": exclude("192.0.2.8", "192.0.2.9"),
                   "232.1.1.1": include("192.0.2.2", "192.0.2.3")}
LEFT = {"239.0.4.1": exclude("192.0.2.8", "192.0.2.9"), "232.1.1.1": include("192.0.2.2")}


class Matrix:
    def __init__(self, lab, router, place):
        self.lab, self.kind, self.place = lab, router, place
        self.knows_groups_only = router in ("bridge2", "pimd")
        self.routers = []
        self.listeners = {}
        self.interval, self.response, self.robustness = (
            TIMING.get(f"{router}-{place}") or TIMING.get(router, USUAL_TIMING))
        self.rounds = 3 * self.interval + self.response
        # What is left in silence lives for so long; routers add their own.
        self.life = self.robustness * self.interval + 2 * self.response
        self.forgotten = 2 * self.life + 2

    # Making

    def plug_listeners(self, switch):
        """Those of versions 1 and 2 share a port, whose others they answer for by keeping silent."""
        self.lab.hub(switch, "swp1")
        for name, version in ("relic", 1), ("radio", 2):
            self.listeners[name] = self.lab.listener(name, switch, "swp1", version=version)
        for name, port in (("tv", "swp2"), ("desk", "swp3")):
            self.listeners[name] = self.lab.listener(name, switch, port)

    def plug_router(self, name, switch, port):
        if self.kind == "frr":
            router = self.lab.pim_router(name, switch, port, interval=self.interval,
                                         response=self.response)
        elif self.kind == "pimd":
            router = self.lab.pimd_router(name, switch, port, interval=self.interval)
        else:
            router = self.lab.bridge_router(name, switch, port, version=int(self.kind[-1]))
            # In hundredths of a second.
            router.set(f"mcast_query_interval {self.interval}00"
                       f" mcast_query_response_interval {self.response}00"
                       f" mcast_membership_interval {self.life}00"
                       f" mcast_querier_interval {self.life - self.response}00")
        self.routers.append(router)

    def start(self, switch, **settings):
        switch.fabric()
        if self.kind.startswith("bridge") and self.place in ("yields", "two"):
            # A bridge that does not query does nothing else either by which it could be heard.
            settings["static_bridge_mrouter_interface"] = switch.ports[3:]
        if self.knows_groups_only:
            # Who asks for version 2 has source-specific listeners report without sources, too.
            settings["ssm_range"] = "none"
        switch.vlan(10, querier=2 if self.kind == "bridge2" else 3,
                    sender_source_address=f"10.0.200.{len(self.lab.switches)}",
                    query_interval=self.interval, query_max_response_time=self.response,
                    robustness_variable=self.robustness, **settings)
        # The bridge does not take the place of a querier that was there first.
        if self.place != "yields":
            self.query()
        switch.start()
        if self.place == "yields":
            self.query()

    def query(self):
        for router in self.routers:
            router.query()

    def build(self):
        """Where the router is: elected or not beside a switch that queries, two on two ports, or
        behind two of our switches in a row or two that share a port of a third."""
        querying = {"send_query": True, "querier_source": "10.0.250.1"}
        preceding = {"send_query": True, "querier_source": "9.0.0.1"}
        if self.place in ("row", "pair"):
            far = self.lab.switch(ports=3, name="far")
            near = self.lab.switch(ports=3, name="near")
            self.plug_listeners(far)
            if self.place == "row":
                self.lab.between(far, "swp4", near, "swp1")
            else:
                self.lab.hub(near, "swp1")
                self.lab.behind(near, "swp1", far, "swp4")
                other = self.lab.switch(ports=1, name="other")
                self.listeners["guest"] = self.lab.listener("guest", other, "swp1")
                self.lab.behind(near, "swp1", other, "swp2")
                self.start(other)
            self.plug_router("router", near, "swp2")
            self.lab.listener("bystander", near, "swp3")
            self.start(far)
            self.start(near)
            return
        switch = self.lab.switch(ports=5 if self.place == "two" else 4)
        self.plug_listeners(switch)
        self.plug_router("router", switch, "swp4")
        if self.place == "two":
            self.plug_router("backup", switch, "swp5")
        self.start(switch, **{"elected": querying, "yields": preceding, "two": {}}[self.place])

    # Playing

    def expected(self, wanted):
        return {group: exclude() for group in wanted} if self.knows_groups_only else wanted

    def believes(self, wanted, within, why):
        expected = self.expected(wanted)
        for router in self.routers:
            self.lab.until(router.groups, expected, within, why=f"{why}, {router.namespace.name}")
        self.lab.stays(lambda: [router.groups() for router in self.routers],
                       [expected] * len(self.routers), self.rounds, why=f"{why}, over three rounds")

    def blocks(self, source):
        """pimd ignores who excludes sources."""
        return [] if self.kind == "pimd" else [f"block {source} in 239.0.4.1"]

    def play(self):
        who = self.listeners
        time.sleep(self.interval + self.response)  # for the election, and for router ports to be known
        who["relic"].do("join 239.0.1.1")
        who["radio"].do("join 239.0.2.1")
        who["tv"].do("join 239.0.3.1 from 192.0.2.1 192.0.2.2",
                     "join 232.1.1.1 from 192.0.2.1 192.0.2.2",
                     "join 239.0.4.1", *self.blocks("192.0.2.9"))
        who["desk"].do("join 232.1.1.1 from 192.0.2.2 192.0.2.3")
        if "guest" in who:  # wants less than the others do
            who["guest"].do("join 239.0.3.1 from 192.0.2.2", "join 232.1.1.1 from 192.0.2.2")
        self.believes(FIRST, self.life, "after the joins")
        who["tv"].do("join 239.0.3.1 from 192.0.2.3", "leave 239.0.3.1 from 192.0.2.1",
                     "leave 232.1.1.1 from 192.0.2.1", *self.blocks("192.0.2.8"))
        self.believes(CHANGED, self.forgotten, "after the changes")
        who["relic"].do("leave 239.0.1.1")
        who["radio"].do("leave 239.0.2.1")
        who["tv"].do("leave 239.0.3.1")
        who["desk"].do("leave 232.1.1.1 from 192.0.2.3")
        if "guest" in who:
            who["guest"].do("leave 239.0.3.1")
        self.believes(LEFT, self.forgotten, "after the leaves")


def run(lab, cell):
    if not shutil.which("nft"):
        raise Skip("no nft: apt-get install nftables")
    router, place = cell.split("-")
    matrix = Matrix(lab, router, place)
    matrix.build()
    matrix.play()
