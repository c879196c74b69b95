"""A kernel without nftables: the bridge is left alone, and the log says what the kernel lacks."""

import contextlib

from rig.lab import Skip

CI = False


def run(lab):
    switch = lab.switch(ports=3)
    with contextlib.suppress(RuntimeError):
        switch.namespace.run("nft list tables")
        raise Skip("the kernel has nftables; lab/other-kernel --without nf_tables has not")
    tv = lab.listener("tv", switch, "swp1")
    desk = lab.listener("desk", switch, "swp2")
    studio = lab.listener("studio", switch, "swp3")
    source, watch = lab.streams(studio, [tv, desk], pause=0.02)
    switch.bridge(options="mcast_snooping 0")
    switch.vlan(10, send_query=True, query_max_response_time=1)
    switch.forwarding()
    lab.begin(switch)
    lab.until(lambda: "forwarding leaves br0 alone" in switch.log(), True, within=5)
    lab.check("and the kernel CONFIG_NF_TABLES_BRIDGE" in switch.log(), "does not say what the kernel lacks")
    tv.do("join 239.1.1.1")
    source.send("239.1.1.1", "239.4.4.4")
    watch.steady("239.1.1.1", {"tv", "desk"})
    watch.steady("239.4.4.4", {"tv", "desk"})
    lab.check(switch.entries() == {}, f"entries all the same: {switch.entries()}")
    lab.check(switch.bridge_settings()["mcast_snooping"] == 0, "the bridge was touched")
    switch.stop()
