"""A capture of all that passes a port also holds what the switch sent there, from an automatic
address. A replay of it ends as one of what was heard alone does, and tells what it has left out."""

import json
import struct
import subprocess

CI = True
GROUPS = [f"239.1.1.{number}" for number in range(1, 13)]


def write(file, frames):
    """A capture that says of no frame who sent it."""
    with open(file, "wb") as capture:
        capture.write(struct.pack("=IHHiIII", 0xA1B23C4D, 2, 4, 0, 0, 65536, 1))
        for time, data in sorted(frames):
            seconds = int(time)
            capture.write(struct.pack("=IIII", seconds, round((time - seconds) * 1e9), len(data),
                                      len(data)) + data)


def replayed(lab, switch, folder, frames_of):
    """What a replay prints of these frames of each port: its hosts, and its remarks."""
    captures = []
    for port in switch.ports:
        file = f"{folder}/{port}.pcap"
        write(file, frames_of(switch.wire(port)))
        captures.append(f"{port}={file}")
    done = subprocess.run([lab.programs / "igmpsnoopd", "replay", "--config",
                           switch.configuration_file(), "-j", *captures],
                          check=True, text=True, capture_output=True)
    return json.loads(done.stdout)["hosts"], done.stderr


def run(lab):
    switch = lab.switch(ports=2)
    tv = lab.listener("tv", switch, "swp1")
    router = lab.bridge_router("router", switch, "swp2")
    switch.namespace.address("swp2", "10.0.0.1")
    switch.vlan(10)
    lab.begin(switch)
    known = set()
    for group in GROUPS:
        tv.do(f"join {group}")
        known.add(group)
        lab.until(lambda: set(router.groups()), known, within=3)
    tv.do(*(f"leave {group}" for group in GROUPS[:-1]))
    lab.until(lambda: set(router.groups()), {GROUPS[-1]}, within=3)

    heard, remarks = replayed(lab, switch, "/run", lambda wire: wire.frames_heard())
    lab.check(not remarks, f"something was left out of what was heard: {remarks}")
    both, remarks = replayed(lab, switch, "/run",
                             lambda wire: wire.frames_heard() + wire.frames_sent())
    lab.check("who says what the port's own host says" in remarks, f"nothing was said: {remarks}")
    lab.check(both == heard, f"with what was sent: {both}; without: {heard}")
