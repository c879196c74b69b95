"""FRR's pimd that says hello but does not query: the port is a router port all the same."""

from rig import igmp

CI = False


def run(lab):
    switch = lab.switch(ports=2)
    tv = lab.listener("tv", switch, "swp1")
    lab.pim_router("router", switch, "swp2", igmp=False)
    switch.vlan(10)
    switch.start()
    tv.do("join 239.1.1.1")
    # pimd says hello every three seconds here.
    lab.until(lambda: [record.group for message in switch.wire("swp2").sent()
                       for record in message.records][:1], ["239.1.1.1"], within=10)
    heard = [message for message in switch.wire("swp2").heard() if message.kind == igmp.QUERY]
    lab.check(not heard, "there was a query as well")
