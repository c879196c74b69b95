"""Ports that let nothing in or out, or are blocked; and what an operator reads of where streams go."""

import time

CI = True


def run(lab):
    switch = lab.switch(ports=5)
    tv = lab.listener("tv", switch, "swp1")
    sink = lab.listener("sink", switch, "swp2")
    studio = lab.listener("studio", switch, "swp3")
    shut = lab.listener("shut", switch, "swp4")
    desk = lab.listener("desk", switch, "swp5")
    switch.bridge()
    switch.port_settings = {"swp2": {"direction": "egress"}, "swp4": {"blocked": True},
                            "swp3": {"direction": "ingress"}}
    source, watch = lab.streams(studio, [tv, sink, shut, desk])
    mute, heard = lab.streams(sink, [tv, studio, desk])
    inner, back = lab.streams(tv, [sink, studio, shut, desk])
    switch.vlan(10, send_query=True, query_max_response_time=1)
    switch.forwarding()
    lab.begin(switch)
    lab.until(lambda: "go where they are wanted" in switch.log(), True, within=5)
    for listener in (tv, sink, studio, shut):
        listener.do("join 239.1.1.1")
    lab.until(lambda: "swp1" in switch.entries().get("239.1.1.1", ()), True, within=2)
    time.sleep(0.1)

    # Nobody has joined the second.
    source.send("239.1.1.1", "239.2.2.2")
    mute.send("239.1.1.1", "239.2.2.2")
    inner.send("239.1.1.1", "239.2.2.2")
    time.sleep(0.2)
    watch.steady("239.1.1.1", {"tv"})
    watch.steady("239.2.2.2", {"tv", "sink", "desk"})
    heard.steady("239.1.1.1", set())
    heard.steady("239.2.2.2", set())
    back.steady("239.2.2.2", {"sink", "desk"})

    forwarding = switch.read("show forwarding")
    lab.check("groups that nobody has joined go to all ports" in forwarding, forwarding)
    lab.check("  10  239.1.1.1  swp1       written  exclude  -" in forwarding, forwarding)
    lab.check("swp3" not in forwarding and "swp4" not in forwarding, forwarding)
    groups = switch.read("show groups")
    lab.check("Streams go to" in groups, groups)
    lab.check(groups.splitlines()[-1].split() == ["10", "239.1.1.1", "swp1"], groups)
    for port, group, why in (
            ("swp1", "239.1.1.1",
             "swp1 gets the streams of 239.1.1.1 from every source, because listeners there ask for "
             "them."),
            ("swp5", "239.1.1.1", "swp5 gets no stream of 239.1.1.1, because nobody there has joined "
                                  "it and it leads to no router."),
            ("swp3", "239.1.1.1", "swp3 gets no streams of VLAN 10, because it is not a member, is "
                                  "blocked, or its direction lets nothing out."),
            ("swp5", "239.2.2.2", "swp5 gets the streams of 239.2.2.2, because nobody has joined it "
                                  "and unregistered = \"flood\".")):
        told = switch.read(f"explain --vlan 10 --interface {port} --group {group}")
        lab.check(why in told, told)

    # Somebody else's entry is left alone.
    switch.namespace.run("bridge mdb add dev br0 port swp5 grp 239.7.7.7 permanent")
    lab.check("239.7.7.7  swp5       not ours" in switch.read("show forwarding"),
              switch.read("show forwarding"))
    switch.stop()
