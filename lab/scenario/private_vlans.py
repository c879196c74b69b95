"""A private VLAN: listeners on isolated and community ports, the router on a promiscuous one."""

from rig.routers import exclude, include

CI = True


def run(lab):
    switch = lab.switch(ports=3)
    router = lab.bridge_router("router", switch, "swp1")
    tv = lab.listener("tv", switch, "swp2")
    desk = lab.listener("desk", switch, "swp3")
    switch.vlan(10, untagged=["swp1"])
    switch.vlan(20, untagged=["swp2"], private={"type": "isolated", "primary": 10})
    switch.vlan(30, untagged=["swp3"], private={"type": "community", "primary": 10})
    lab.begin(switch)

    # The router is in the primary VLAN and hears the listeners of all three.
    tv.do("join 239.1.1.1")
    desk.do("join 239.2.2.2", "join 232.1.1.1 from 192.0.2.1")
    everything = {"239.1.1.1": exclude(), "239.2.2.2": exclude(),
                  "232.1.1.1": include("192.0.2.1")}
    lab.until(router.groups, everything, within=0.5)

    # Split horizon goes by ports, whichever of the VLANs they are in.
    of_others = [{port: set(switch.records(port, vlan))}
                 for port, vlan in (("swp2", 20), ("swp3", 30))]
    lab.check(of_others == [{"swp2": {"239.2.2.2", "232.1.1.1"}}, {"swp3": {"239.1.1.1"}}],
              f"records on secondary ports: {of_others}")
    lab.check(not switch.wire("swp2").sent() and not switch.wire("swp3").sent(),
              "a port without a router was told something")

    desk.do("leave 239.2.2.2")
    tv.do("leave 239.1.1.1")
    lab.until(router.groups, {"232.1.1.1": include("192.0.2.1")}, within=2)
    desk.do("leave 232.1.1.1")
    lab.until(router.groups, {}, within=2)
