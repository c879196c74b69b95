"""With kept state, a restart cuts nothing: entries are whole before anything is taken away."""

import time

CI = True


def run(lab):
    switch = lab.switch(ports=4)
    tv = lab.listener("tv", switch, "swp1")
    desk = lab.listener("desk", switch, "swp2")
    studio = lab.listener("studio", switch, "swp3")
    lab.speaker("idle", switch, "swp4")
    switch.bridge()
    source, watch = lab.streams(studio, [tv, desk])
    switch.vlan(10, send_query=True, query_max_response_time=1)
    switch.forwarding()
    switch.keep_state()
    lab.begin(switch)

    def until_settled(times):
        lab.until(lambda: switch.log().count("go where they are wanted"), times, within=8)

    def goes_on(since):
        watch.nothing_missing("239.1.1.1", since, time.time(), {"tv"})
        watch.nothing_missing("239.1.1.2", since, time.time(), {"desk"})
        watch.steady("239.1.1.1", {"tv"})
        watch.steady("239.1.1.2", {"desk"})

    until_settled(1)
    source.send("239.1.1.1", "239.1.1.2")
    tv.do("join 239.1.1.1")
    desk.do("join 239.1.1.2")
    lab.until(lambda: switch.entries(), {"239.1.1.1": {"swp1"}, "239.1.1.2": {"swp2"}}, within=2)
    time.sleep(0.1)

    # Listeners that nobody hears any more are those of the kept state alone.
    for listener in (tv, desk):
        listener.namespace.run("nft add table netdev mute")
        listener.namespace.run("nft add chain netdev mute out"
                               " { type filter hook egress device eth0 priority 0 ; policy drop ; }")
    since = time.time()
    switch.restart_in_place()
    until_settled(2)
    goes_on(since)
    since = time.time()
    switch.stop()
    switch.start()
    lab.until(lambda: switch.entries(), {"239.1.1.1": {"swp1"}, "239.1.1.2": {"swp2"}}, within=2)
    until_settled(3)
    goes_on(since)
    since = time.time()
    switch.kill()
    switch.start()
    until_settled(4)
    goes_on(since)
    switch.stop()
    lab.check(switch.entries() == {}, f"entries are left: {switch.entries()}")
    lab.check(switch.rules() == "", f"rules are left: {switch.rules()}")
