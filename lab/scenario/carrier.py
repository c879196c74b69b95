"""Cables are pulled and put back, a listener's and the router's; then a port is made anew."""

from rig.namespace import cable
from rig.routers import exclude

CI = True


def run(lab):
    switch = lab.switch(ports=2)
    tv = lab.listener("tv", switch, "swp1")
    router = lab.bridge_router("router", switch, "swp2")
    switch.vlan(10)
    lab.begin(switch)
    group = {"239.1.1.1": exclude()}
    tv.do("join 239.1.1.1")
    lab.until(router.groups, group, within=0.5)

    tv.namespace.ip("link set eth0 down")
    lab.until(router.groups, {}, within=3)
    tv.namespace.ip("link set eth0 up")  # the kernel reports its memberships again
    lab.until(router.groups, group, within=3)

    router.namespace.ip("link set eth0 down")
    lab.until(router.groups, {}, within=3)
    router.namespace.ip("link set eth0 up")
    lab.query(switch, "swp2", router)
    lab.until(router.groups, group, within=3)

    switch.namespace.ip("link delete swp2")
    lab.until(router.groups, {}, within=3)
    cable(switch.namespace, "swp2", router.namespace, "eth0")
    router.namespace.ip("link set eth0 master br0")
    switch.port_is("swp2")
    lab.query(switch, "swp2", router)
    lab.until(router.groups, group, within=3)
    tv.do("leave 239.1.1.1")
    lab.until(router.groups, {}, within=2)
