"""Listeners of version 1 and 2 beside one of version 3: joins, a leave, and a silent leave."""

from rig.routers import exclude

CI = True


def run(lab):
    switch = lab.switch(ports=3)
    lab.hub(switch, "swp1")
    radio = lab.listener("radio", switch, "swp1", version=2)
    relic = lab.listener("relic", switch, "swp1", version=1)
    tv = lab.listener("tv", switch, "swp2")
    router = lab.bridge_router("router", switch, "swp3")
    # An IGMPv1 host leaves in silence: its membership lives for 2 * 10 + 2 * 1 seconds, by the
    # robustness and interval that the elected querier tells.
    switch.vlan(10, query_interval=2, query_max_response_time=1)
    lab.begin(switch)

    radio.do("join 239.1.1.1")
    relic.do("join 239.2.2.2")
    lab.until(router.groups, {"239.1.1.1": exclude(), "239.2.2.2": exclude()}, within=0.5)
    kinds = {message.kind for message in switch.wire("swp1").heard()}
    lab.check({0x12, 0x16} <= kinds, f"the listeners did not speak IGMPv1 and v2, but {kinds}")

    tv.do("join 232.1.1.1 from 192.0.2.1")
    radio.do("leave 239.1.1.1")
    # Its timer is shortened to 2 * 1 seconds.
    lab.until(lambda: set(router.groups()), {"239.2.2.2", "232.1.1.1"}, within=3)
    relic.do("leave 239.2.2.2")
    lab.until(lambda: "239.2.2.2" in router.groups(), False, within=26)
