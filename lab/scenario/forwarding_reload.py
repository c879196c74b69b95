"""[forwarding] comes, changes and goes by reloads; a killed agent's bridge is given back by one
that is to leave it alone."""

import time

CI = True


def run(lab):
    switch = lab.switch(ports=4)
    tv = lab.listener("tv", switch, "swp1")
    desk = lab.listener("desk", switch, "swp2")
    studio = lab.listener("studio", switch, "swp3")
    lab.speaker("idle", switch, "swp4")
    switch.bridge()
    switch.namespace.ip("link add br1 type bridge mcast_snooping 0")
    switch.namespace.ip("link set br1 up")
    before = {name: switch.bridge_settings(name) for name in ("br0", "br1")}
    source, watch = lab.streams(studio, [tv, desk])
    # As the unit with its drop-in gives it.
    given = "+net_raw,+net_admin"
    switch.prefix = ["setpriv", f"--inh-caps={given}", f"--ambient-caps={given}"]

    def configure(*forwarding):
        switch.clear_configuration()
        switch.vlan(10, send_query=True, query_max_response_time=1)
        if forwarding:
            switch.forwarding(*forwarding)
        switch.write_configuration()

    def reload_to(*forwarding):
        configure(*forwarding)
        switch.reload()

    def until_settled(times):
        lab.until(lambda: switch.log().count("go where they are wanted"), times, within=8)

    def is_given_back(bridge):
        return switch.entries(bridge) == {} and switch.bridge_settings(bridge) == before[bridge]

    configure()
    lab.begin(switch)
    source.send("239.1.1.1", "239.2.2.2")
    tv.do("join 239.1.1.1")
    lab.until(lambda: len(switch.ask("show groups")["groups"]) > 0, True, within=2)
    watch.steady("239.1.1.1", {"tv", "desk"})

    # Added: what was learned before counts.
    since = time.time()
    reload_to("br0")
    until_settled(1)
    watch.nothing_missing("239.1.1.1", since, time.time(), {"tv"})
    watch.steady("239.1.1.1", {"tv"})
    watch.steady("239.2.2.2", {"tv", "desk"})

    # Changed: of the bridge, and then the bridge itself, with the ports still in the first.
    reload_to("br0", "routers")
    until_settled(2)
    watch.steady("239.1.1.1", {"tv"})
    watch.steady("239.2.2.2", set())
    reload_to("br1")
    lab.until(lambda: "took over br1" in switch.log(), True, within=3)
    lab.until(lambda: is_given_back("br0"), True, within=3)
    watch.steady("239.2.2.2", {"tv", "desk"})

    # Removed, and at once added again.
    reload_to()
    lab.until(lambda: "forwarding removed" in switch.log(), True, within=2)
    reload_to("br0")
    lab.until(lambda: switch.entries().get("239.1.1.1"), {"swp1"}, within=5)
    lab.until(lambda: is_given_back("br1"), True, within=3)
    lab.until(lambda: switch.log().count("go where they are wanted") > 2, True, within=8)
    watch.steady("239.1.1.1", {"tv"})

    # Killed, and followed by one that is to leave the bridge alone, and may not do more.
    switch.kill()
    lab.check(switch.entries().get("239.1.1.1") == {"swp1"}, "a kill has changed the bridge")
    switch.prefix = []
    configure()
    switch.start()
    lab.check("gave the bridge that an earlier agent had left behind back" in switch.log(),
              "what was left is still there")
    lab.check(is_given_back("br0"), f"br0 has {switch.entries()}, {switch.bridge_settings()}")
    lab.check(switch.rules() == "", f"rules are left: {switch.rules()}")
    watch.steady("239.1.1.1", {"tv", "desk"})

    # One that may not set a bridge says so.
    reload_to("br0")
    lab.until(lambda: "see that the agent has CAP_NET_ADMIN" in switch.log(), True, within=3)
    watch.steady("239.1.1.1", {"tv", "desk"})
    switch.stop()
