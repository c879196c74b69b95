"""The router moves from one port to another, and hears everything there after its first query."""

import time

from rig.namespace import cable
from rig.routers import exclude, include

CI = True


def last_told(switch):
    """Where the log says last that a router is heard or is not."""
    told = [line for line in switch.log().splitlines() if "router is heard" in line]
    return told[-1].split(": ")[2] if told else None


def run(lab):
    switch = lab.switch(ports=3)
    tv = lab.listener("tv", switch, "swp1")
    router = lab.bridge_router("router", switch, "swp2")
    cable(switch.namespace, "swp3", router.namespace, "eth1")
    router.namespace.ip("link set eth1 down")
    router.namespace.ip("link set eth1 master br0")
    switch.port_is("swp3")
    switch.vlan(10)
    lab.begin(switch)

    everything = {"239.1.1.1": exclude(), "232.1.1.1": include("192.0.2.1")}
    tv.do("join 239.1.1.1", "join 232.1.1.1 from 192.0.2.1")
    lab.until(router.groups, everything, within=0.5)
    for gone, there, port in (("eth0", "eth1", "swp3"), ("eth1", "eth0", "swp2")):
        router.namespace.ip(f"link set {gone} down")
        lab.until(router.groups, {}, within=1)
        moved = time.time()
        router.namespace.ip(f"link set {there} up")
        lab.query(switch, port, router)
        took = lab.until(router.groups, everything, within=2)
        lab.until(lambda: last_told(switch), f"a router is heard on interface {port}", within=2)
        lab.note(f"{gone} to {there}: everything there {took * 1000:.0f} ms after the query, and "
                 f"{(time.time() - moved) * 1000:.0f} ms after the cable")
    tv.do("leave 239.1.1.1", "leave 232.1.1.1")
    lab.until(router.groups, {}, within=2)
