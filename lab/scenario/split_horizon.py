"""Two routers, each on a port with a listener: no port hears its own membership back."""

CI = True


def run(lab):
    switch = lab.switch(ports=2)
    for port in switch.ports[:2]:
        lab.hub(switch, port)
    routers = [lab.bridge_router(f"router{port}", switch, f"swp{port}") for port in (1, 2)]
    tv = lab.listener("tv", switch, "swp1")
    desk = lab.listener("desk", switch, "swp2")
    switch.vlan(10)
    lab.begin(switch)

    tv.do("join 239.1.1.1", "join 232.1.1.1 from 192.0.2.1")
    desk.do("join 239.2.2.2")
    # A router hears the listener on its own cable as well as the switch.
    lab.until(lambda: [set(router.groups()) for router in routers],
              [{"239.1.1.1", "232.1.1.1", "239.2.2.2"}] * 2, within=1)
    for router in routers:
        router.query()
    lab.stays(lambda: _groups_told(switch), [{"239.2.2.2"}, {"239.1.1.1", "232.1.1.1"}], 3,
              why="told on swp1 and swp2")

    # A group with listeners on both ports is told on both, and on a port no longer than the
    # other port wants it.
    desk.do("join 239.1.1.1")
    lab.until(lambda: "239.1.1.1" in _groups_told(switch)[0], True, within=1)
    tv.do("leave 239.1.1.1")
    lab.until(lambda: switch.wire("swp2").sent()[-1].records[0][:2], ("to_in", "239.1.1.1"),
              within=1)
    desk.do("leave 239.1.1.1", "leave 239.2.2.2")
    tv.do("leave 232.1.1.1")
    lab.until(lambda: [router.groups() for router in routers], [{}, {}], within=3)


def _groups_told(switch):
    """What the switch sent on each port, of groups."""
    return [set().union(*(message.groups() for message in switch.wire(port).sent()))
            for port in ("swp1", "swp2")]
