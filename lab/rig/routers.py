"""Multicast routers of other makers, and their own view of who listens."""

import json
import os
import pathlib
import select
import shutil
import signal
import socket
import subprocess
import time

RTNLGRP_MDB = 26
PIMD, ZEBRA = "/usr/lib/frr/pimd", "/usr/lib/frr/zebra"


def exclude(*sources):
    return "exclude", frozenset(sources)


def include(*sources):
    return "include", frozenset(sources)


class BridgeRouter:
    """The kernel's bridge with multicast snooping and a querier, on the interface `outside`."""

    def __init__(self, namespace, address, version=3, outside="eth0", bridge="br0"):
        self.namespace, self._bridge = namespace, bridge
        namespace.ip(f"link add name {bridge} type bridge mcast_igmp_version {version}"
                     " mcast_query_use_ifaddr 1 mcast_query_interval 1000"
                     " mcast_startup_query_interval 200 mcast_query_response_interval 100"
                     " mcast_last_member_interval 10")
        namespace.ip(f"link set {outside} master {bridge}")
        namespace.ip(f"link set {bridge} up")
        namespace.address(bridge, address)
        with namespace.entered():
            self._events = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
            self._events.bind((0, 0))
            self._events.setsockopt(270, 1, RTNLGRP_MDB)  # SOL_NETLINK, NETLINK_ADD_MEMBERSHIP
            self._events.setblocking(False)

    def query(self):
        """Sends a general query at once, and from now on by its timers."""
        self.set("mcast_querier 0")
        self.set("mcast_querier 1")

    def set(self, options):
        self.namespace.ip(f"link set {self._bridge} type bridge {options}")

    def groups(self):
        """{group: (filter mode, sources)} as the bridge holds them."""
        found = {}
        for entries in self.namespace.json(f"bridge -d -s -j mdb show dev {self._bridge}"):
            for entry in entries["mdb"]:
                if "src" in entry or entry["port"] == self._bridge:
                    continue
                mode = entry.get("filter_mode", "exclude")
                wanted = [source["address"] for source in entry.get("source_list", [])
                          if (float(source["timer"]) > 0) == (mode == "include")]
                found[entry["grp"]] = mode, frozenset(wanted)
        return found

    def seconds_from(self, action, expected, within):
        """From an action to the change that made the groups the expected ones; None if late."""
        while self._pending():
            pass
        start = last = time.monotonic()
        action()
        while time.monotonic() - start < within + 1:
            readable, _, _ = select.select([self._events], [], [], 0.005)
            if readable:
                last = time.monotonic()
                while self._pending():
                    pass
            if self.groups() == expected:
                if self._pending():  # it may be what made the difference
                    last = time.monotonic()
                return last - start if start < last <= start + within else None
        return None

    def _pending(self):
        try:
            return self._events.recv(65536)
        except BlockingIOError:
            return b""


class PimRouter:
    """FRR's zebra and pimd."""

    missing = None if pathlib.Path(PIMD).exists() else "no FRR: apt-get install frr"

    def __init__(self, namespace, address, version=3, interface="eth0", igmp=True,
                 interval=5, response=1):
        self.namespace, self._interface = namespace, interface
        namespace.address(interface, address)
        self._home = pathlib.Path("/run/frr") / namespace.name
        self._home.mkdir(parents=True)
        configuration = self._home / "frr.conf"
        configuration.write_text(
            f"interface {interface}\n ip pim\n ip pim hello 3\n" + (
                f" ip igmp\n ip igmp version {version}\n ip igmp query-max-response-time {response}0\n"
                f" ip igmp query-interval {interval}\n ip igmp last-member-query-interval 1\n"
                if igmp else "") + "exit\n", encoding="ascii")
        (self._home / "vtysh.conf").touch()
        for path in (pathlib.Path("/run/frr"), self._home, *self._home.iterdir()):
            shutil.chown(path, "frr", "frr")
        for daemon in (ZEBRA, PIMD):
            namespace.start([daemon, "--vty_socket", self._home, "-z", self._home / "zserv.api",
                             "-i", self._home / f"{pathlib.Path(daemon).name}.pid",
                             "-f", configuration, "-A", "127.0.0.1"],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def _show(self, what):
        shown = self.namespace.run(["vtysh", "--vty_socket", self._home, "-d", "pimd", "-c",
                                    f"show ip {what} json"], check=False)
        return json.loads(shown or "{}").get(self._interface, {})

    def query(self):
        """Its timers are its own."""

    def ready(self):
        return self._show("igmp interface").get("state") == "up"

    def neighbours(self):
        return set(self._show("pim neighbor"))

    def groups(self):
        sources = self._show("igmp sources")
        found = {}
        for entry in self._show("igmp groups").get("groups", []):
            if entry["group"].startswith("224.0.0."):
                continue
            mode = entry["mode"].lower()
            listed = sources.get(entry["group"], {}).get("sources", [])
            wanted = [source["source"] for source in listed if source["source"] != "*"
                      and (source["timer"] != "--:--") == (mode == "include")]
            if wanted or mode == "exclude":  # pimd keeps a group without sources for a while
                found[entry["group"]] = mode, frozenset(wanted)
        return found


class PimdRouter:
    """Debian's pimd. It ignores records that exclude sources, and of included sources it keeps some
    that nobody wants any more, so that its view is of groups. Its queries give ten seconds."""

    # Its timers, which are of five seconds, stand still while it is asked more often.
    _PAUSE = 7

    def __init__(self, program, namespace, address, version=3, interface="eth0", interval=12):
        self.namespace = namespace
        self._seen, self._asked = {}, 0
        namespace.address(interface, address)
        self._home = pathlib.Path("/run/pimd") / namespace.name
        self._home.mkdir(parents=True)
        (self._home / "pimd.conf").write_text(
            f"igmp-query-interval {interval}\nphyint {interface} enable igmpv{version}\n"
            f"rp-address {address} 224.0.0.0/4\n", encoding="ascii")  # else electing one takes minutes
        # What it writes goes to fixed places under /run.
        namespace.start(["unshare", "--mount", "sh", "-c",
                         f"mount --bind {self._home} /run && exec {program} -f -N -c /run/pimd.conf"],
                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def ready(self):
        return (self._home / "pimd.pid").exists()

    def query(self):
        """Its timers are its own."""

    def _dump(self):
        """The tables that it writes when it is asked to."""
        file = self._home / "pimd" / "pimd.dump"
        file.unlink(missing_ok=True)
        os.kill(int((self._home / "pimd.pid").read_text(encoding="ascii")), signal.SIGUSR1)
        end = time.monotonic() + 10
        while time.monotonic() < end:
            text = file.read_text(encoding="ascii") if file.exists() else ""
            if "Number of Cache MIRRORs" in text:
                return text
            time.sleep(0.01)
        raise RuntimeError(f"{self.namespace.name}: pimd does not write {file}")

    def groups(self):
        """As it was some seconds ago."""
        if time.monotonic() - self._asked > self._PAUSE:
            self._seen = self._groups()
            self._asked = time.monotonic()
        return self._seen

    def _groups(self):
        """The groups that have members on its first interface, which is the only one."""
        found = set()
        lines = iter(self._dump().splitlines())
        for line in lines:
            words = line.split()
            if line.strip().startswith("Vif  SSM Group"):
                while len(words := next(lines).split()) > 2:
                    found.add(words[1])
            elif words[:1] == ["INADDR_ANY"]:
                group = words[1]
            elif words[:2] == ["Leaves", "oifs:"] and words[2].startswith("l"):
                found.add(group)
        return {group: exclude() for group in found}
