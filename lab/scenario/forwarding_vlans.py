"""A bridge that tells VLANs apart: streams stay in theirs, a reload takes one away; and private
VLANs, whose listeners get what comes in where they may hear it."""

import subprocess
import time

from rig.lab import Skip

CI = True


def in_bridge(switch, port, own, others=()):
    """Untagged frames of a port are of its own VLAN; those of others leave there untagged too."""
    switch.namespace.run(f"bridge vlan add dev {port} vid {own} pvid untagged")
    for vlan in others:
        switch.namespace.run(f"bridge vlan add dev {port} vid {vlan} untagged")


def entries(switch):
    """{(VLAN, group): ports} of the permanent entries."""
    found = {}
    for listed in switch.namespace.json("bridge -d -j mdb show dev br0"):
        for entry in listed["mdb"]:
            if entry["state"] == "permanent":
                found.setdefault((entry["vid"], entry["grp"]), set()).add(entry["port"])
    return found


def run(lab):
    switch = lab.switch(ports=7)
    tv = lab.listener("tv", switch, "swp1")
    studio = lab.listener("studio", switch, "swp2")
    desk = lab.listener("desk", switch, "swp3")
    camera = lab.listener("camera", switch, "swp4")
    cell = lab.listener("cell", switch, "swp5")
    club = lab.listener("club", switch, "swp6")
    peer = lab.listener("peer", switch, "swp7")
    everybody = [tv, studio, desk, camera, cell, club, peer]
    try:
        switch.bridge(options="mcast_snooping 0 vlan_filtering 1 vlan_default_pvid 0")
    except subprocess.CalledProcessError as error:
        raise Skip("the kernel lacks CONFIG_BRIDGE_VLAN_FILTERING") from error
    for port in ("swp1", "swp2"):
        in_bridge(switch, port, 10, [30, 40])
    for port in ("swp3", "swp4"):
        in_bridge(switch, port, 20)
    in_bridge(switch, "swp5", 30, [10])
    for port in ("swp6", "swp7"):
        in_bridge(switch, port, 40, [10])
    def streams(sender):
        # Slowly: the machine that tells VLANs apart may be one inside another.
        return lab.streams(sender, [each for each in everybody if each != sender], pause=0.02)

    of_studio, watch_studio = streams(studio)
    of_camera, watch_camera = streams(camera)
    of_peer, watch_peer = streams(peer)
    settings = {"send_query": True, "query_max_response_time": 1}

    def configure(*numbers):
        members = {10: ["swp1", "swp2"], 20: ["swp3", "swp4"], 30: ["swp5"], 40: ["swp6", "swp7"]}
        private = {30: {"private": {"type": "isolated", "primary": 10}},
                   40: {"private": {"type": "community", "primary": 10}}}
        switch.clear_configuration()
        for number in numbers:
            switch.vlan(number, members[number], **settings, **private.get(number, {}))
        switch.forwarding()

    configure(10, 20, 30, 40)
    lab.begin(switch)
    for sender in (of_studio, of_camera, of_peer):
        sender.send("239.1.1.1", "239.2.2.2")
    lab.until(lambda: switch.log().count("go where they are wanted"), 4, within=15)

    # Nobody has joined the second: it goes to all of its VLAN, a secondary one's to where it may.
    watch_studio.steady("239.2.2.2", {"tv", "cell", "club", "peer"})
    watch_camera.steady("239.2.2.2", {"desk"})
    watch_peer.steady("239.2.2.2", {"tv", "studio", "club"})

    tv.do("join 239.1.1.1")
    desk.do("join 239.1.1.1")
    lab.until(lambda: entries(switch).get((20, "239.1.1.1")), {"swp3"}, within=2)
    lab.until(lambda: entries(switch).get((10, "239.1.1.1")), {"swp1"}, within=2)
    time.sleep(0.1)
    watch_studio.steady("239.1.1.1", {"tv"})
    watch_camera.steady("239.1.1.1", {"desk"})
    watch_peer.steady("239.1.1.1", {"tv"})

    # Isolated and community ports hear the primary VLAN; an isolated one hears no other secondary.
    cell.do("join 239.1.1.1")
    club.do("join 239.1.1.1")
    lab.until(lambda: entries(switch).get((10, "239.1.1.1")), {"swp1", "swp5", "swp6"}, within=2)
    time.sleep(0.1)
    watch_studio.steady("239.1.1.1", {"tv", "cell", "club"})
    watch_peer.steady("239.1.1.1", {"tv", "club"})

    shown = switch.read("show forwarding")
    rows = {tuple(line.split()[:4]) for line in shown.splitlines() if "239.1.1.1" in line}
    written = [("10", "swp1"), ("10", "swp5"), ("10", "swp6"), ("20", "swp3"), ("30", "swp1"),
               ("40", "swp1"), ("40", "swp6")]
    lab.check(rows == {(vlan, "239.1.1.1", port, "written") for vlan, port in written}, shown)

    # A VLAN that is not served any more leaves no entries, and its streams go to all of it.
    configure(10, 30, 40)
    switch.write_configuration()
    switch.reload()
    lab.until(lambda: [key for key in entries(switch) if key[0] == 20], [], within=2)
    watch_camera.steady("239.1.1.1", {"desk"})
    watch_studio.steady("239.1.1.1", {"tv", "cell", "club"})
    switch.stop()
    lab.check(entries(switch) == {}, f"entries are left: {entries(switch)}")
