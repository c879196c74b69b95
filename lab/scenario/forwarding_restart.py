"""500 groups at once; kill -9 and a new start; another bridge: nothing is missed, nothing is left."""

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
    before = switch.bridge_settings()
    # Somebody else's entry and rules.
    switch.namespace.ip("link set br0 type bridge mcast_snooping 1")
    switch.namespace.run("bridge mdb add dev br0 port swp4 grp 239.9.9.9 permanent")
    switch.namespace.ip("link set br0 type bridge mcast_snooping 0")
    switch.namespace.run(["nft", "add table bridge others"])
    source, watch = lab.streams(studio, [tv, desk])
    switch.vlan(10, send_query=True, query_max_response_time=1)
    switch.forwarding()
    lab.begin(switch)
    settled = "go where they are wanted"
    lab.until(lambda: settled in switch.log(), True, within=5)
    lab.until(lambda: switch.entries(), {"239.9.9.9": {"swp4"}}, within=1)

    groups = [f"239.1.{number // 250}.{number % 250 + 1}" for number in range(500)]
    source.send(groups[0], groups[-1])
    joined = time.time()
    tv.do(*(f"join {group}" for group in groups))
    told = time.time()
    lab.until(lambda: sum("swp1" in ports for ports in switch.entries().values()), 500, within=3)
    lab.note(f"500 joins in {told - joined:.2f} s, entries {time.time() - told:.2f} s later")
    watch.nothing_missing(groups[0], joined, time.time(), {"tv"})
    watch.nothing_missing(groups[-1], joined, time.time(), {"tv"})
    time.sleep(0.2)
    watch.steady(groups[0], {"tv"})
    watch.steady(groups[-1], {"tv"})

    # Killed: what flows goes on; a new agent finds what was left, and nothing is missed.
    killed = time.time()
    switch.kill()
    time.sleep(0.2)
    watch.steady(groups[0], {"tv"})
    switch.start()
    lab.until(lambda: switch.log().count(settled), 2, within=8)
    lab.until(lambda: sum("swp1" in ports for ports in switch.entries().values()), 500, within=3)
    watch.nothing_missing(groups[0], killed, time.time(), {"tv"})
    watch.steady(groups[-1], {"tv"})

    # Another bridge: the first is given back.
    for port in switch.ports:
        switch.namespace.ip(f"link set {port} master br1")
    switch.clear_configuration()
    switch.vlan(10, send_query=True, query_max_response_time=1)
    switch.forwarding("br1")
    switch.write_configuration()
    switch.reload()
    lab.until(lambda: "took over br1" in switch.log(), True, within=3)
    lab.until(lambda: sum("swp1" in ports for ports in switch.entries("br1").values()), 500,
              within=3)
    found = {key: value for key, value in switch.bridge_settings("br0").items()}
    wanted = {key: value for key, value in before.items() if key.startswith("mcast_")}
    lab.check(found == wanted, f"settings were {wanted} and are {found}")
    switch.stop()
    lab.check(switch.entries("br1") == {}, "entries are left")
    lab.check(switch.rules().split() == ["table", "bridge", "others", "{", "}"],
              f"rules are {switch.rules()}")
