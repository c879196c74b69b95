"""What goes wrong with a bridge: each thing ends right, or with a message that names the remedy."""

import time

CI = True


def run(lab):
    switch = lab.switch(ports=3)
    tv = lab.listener("tv", switch, "swp1")
    desk = lab.listener("desk", switch, "swp2")
    studio = lab.listener("studio", switch, "swp3")
    source, watch = lab.streams(studio, [tv, desk])
    switch.bridged = True
    switch.vlan(10, send_query=True, query_max_response_time=1)
    switch.forwarding()
    settled = "go where they are wanted"

    def says(text, within=3):
        lab.until(lambda: text in switch.log(), True, within=within, why=f"does not say: {text}")

    # Without the privilege, streams go as they would without the agent.
    switch.prefix = ["setpriv", "--bounding-set", "-net_admin"]
    switch.bridge()
    switch.start()
    says("give the agent CAP_NET_ADMIN and the kernel nf_tables")
    source.send("239.4.4.4")
    watch.steady("239.4.4.4", {"tv", "desk"})
    lab.check(switch.rules() == "", f"rules without the privilege: {switch.rules()}")
    switch.stop()
    switch.namespace.ip("link delete br0")
    switch.prefix = []

    # There is none, then one that is down, then a good one.
    lab.begin(switch)
    says("there is no interface br0; make it with: ip link add br0 type bridge")
    switch.namespace.ip("link add br0 type bridge mcast_snooping 0")
    says("br0 is down; take it up with: ip link set br0 up")
    switch.namespace.ip("link set br0 up")
    for port in switch.ports:
        switch.namespace.ip(f"link set {port} master br0")
    tv.do("join 239.1.1.1")
    lab.until(lambda: switch.entries().get("239.1.1.1"), {"swp1"}, within=5)
    says(settled, 5)
    source.send("239.1.1.1")
    watch.steady("239.1.1.1", {"tv"})

    # Somebody switches its snooping off, or its querier; deletes the rules.
    since = time.time()
    switch.namespace.ip("link set br0 type bridge mcast_snooping 0")
    says("somebody has changed mcast_snooping of br0, which is set again")
    lab.until(lambda: switch.bridge_settings()["mcast_snooping"], 1, within=1)
    watch.nothing_missing("239.1.1.1", since, time.time(), {"tv"})
    lab.until(lambda: switch.entries().get("239.1.1.1"), {"swp1"}, within=3)
    source.send("239.1.1.1", "239.4.4.4")
    since = time.time()
    switch.namespace.run("nft flush ruleset")
    says("somebody has deleted the agent's nftables rules")
    lab.until(lambda: "joined0" in switch.rules() and "239.1.1.1" in switch.rules(), True, within=3)
    watch.steady("239.1.1.1", {"tv"})
    # What goes everywhere is missed for no longer than it takes to be told.
    watch.nothing_missing("239.1.1.1", since, time.time(), {"tv"})
    watch.steady("239.4.4.4", {"tv", "desk"})

    # Somebody deletes a rule, an entry, all entries, and has a port lead to a router.
    times = switch.log().count("nftables rules")
    switch.namespace.run("nft flush chain bridge igmpsnoopd prerouting")
    lab.until(lambda: switch.log().count("nftables rules"), times + 1, within=3)
    lab.until(lambda: "drop" in switch.rules() and "239.1.1.1" in switch.rules(), True, within=3)
    disturbances = switch.metric("forwarding_disturbances_total")
    switch.namespace.run("bridge mdb del dev br0 port swp1 grp 239.1.1.1 permanent")
    says("somebody has deleted entries of 239.1.1.1")
    lab.until(lambda: switch.entries().get("239.1.1.1"), {"swp1"}, within=1)
    watch.steady("239.1.1.1", {"tv"})
    lab.check(switch.metric("forwarding_disturbances_total") == disturbances + 1,
              "one deletion was not one disturbance")
    since = time.time()
    switch.namespace.ip("link set swp2 type bridge_slave mcast_router 2")
    lab.until(lambda: switch.bridge_settings()["swp2"], 0, within=3)
    watch.nothing_missing("239.1.1.1", since, time.time(), {"tv"})

    # A port goes out and comes back before anybody has looked.
    since = time.time()
    switch.namespace.run(["sh", "-c", "ip link set swp1 nomaster; ip link set swp1 master br0"])
    lab.until(lambda: switch.entries().get("239.1.1.1"), {"swp1"}, within=3)
    source.send("239.1.1.1")
    watch.steady("239.1.1.1", {"tv"})

    # A port is taken out of the bridge, and put back.
    switch.namespace.ip("link set swp1 nomaster")
    says("swp1 is no port of br0 any more")
    switch.namespace.ip("link set swp1 master br0")
    lab.until(lambda: switch.entries().get("239.1.1.1"), {"swp1"}, within=5)
    watch.steady("239.1.1.1", {"tv"})

    # The bridge is deleted and made again.
    times = switch.log().count(settled)
    switch.namespace.ip("link delete br0")
    time.sleep(0.3)
    switch.bridge()
    lab.until(lambda: switch.log().count("took over br0"), 2, within=5)
    lab.until(lambda: switch.entries().get("239.1.1.1"), {"swp1"}, within=5)
    lab.until(lambda: switch.log().count(settled) > times, True, within=5)
    watch.steady("239.1.1.1", {"tv"})

    # The kernel keeps so few entries for a port that one is refused: its group is flooded.
    if switch.namespace.try_ip("link set swp1 type bridge_slave mcast_max_groups 1"):
        source.send("239.2.2.2")
        tv.do("join 239.2.2.2")
        says("the kernel refuses the entry of 239.2.2.2 for swp1")
        watch.nothing_missing("239.2.2.2", time.time() - 0.2, time.time(), {"tv"})
        switch.namespace.ip("link set swp1 type bridge_slave mcast_max_groups 0")
        lab.until(lambda: switch.entries().get("239.2.2.2"), {"swp1"}, within=8)
    switch.stop()
    lab.check(switch.rules() == "", f"rules are left: {switch.rules()}")
