"""The switch: igmpsnoopd on the ports of a namespace."""

import json
import os
import pathlib
import signal
import socket
import subprocess
import time

from rig.namespace import Namespace
from rig.wire import Wire


def _toml(value):
    if isinstance(value, dict):
        return "{ " + ", ".join(f"{key} = {_toml(each)}" for key, each in value.items()) + " }"
    return json.dumps(value)


def _table(header, content):
    return f"{header}\n" + "".join(f"{key.replace('_', '-')} = {_toml(value)}\n"
                                   for key, value in content.items())


class Switch:
    """Ports are named swp1, swp2, ...; each is one end of a cable."""

    def __init__(self, name, programs, log, namespace=None):
        self.namespace = namespace or Namespace(name)
        self.name = name
        self._programs = programs
        self.options = []  # of the agent, beside those that it always has
        self.prefix = []  # the command that starts it
        self.cpu = None  # or the processor that the agent has to itself
        self._home = pathlib.Path("/run") / f"igmpsnoopd-{name}"
        self._home.mkdir(exist_ok=True)
        self.control = self._home / "control"
        self._log = open(log / f"{name}.log", "w+", encoding="utf-8")
        self._process = None
        self._configuration = []
        self.port_settings = {}  # {port: {key: value}}, beside its name
        self.ports = []
        self.all_wires = []
        self.bridged = False
        self._wires = {}

    def captured_ports(self):
        return list(self._wires)

    def wire(self, port):
        return self._wires[port]

    def port_is(self, port):
        """To be called when the interface is there, also when it is there again."""
        if port not in self.ports:
            self.ports.append(port)
        self._wires[port] = Wire(self.namespace, port)
        self.all_wires.append(self._wires[port])

    # The kernel's bridge over the ports

    def bridge(self, name="br0", options="mcast_snooping 0", ports=None):
        """Makes one of the ports that there are, or of these."""
        self.namespace.ip(f"link add {name} type bridge {options}")
        for port in self.ports if ports is None else ports:
            self.namespace.ip(f"link set {port} master {name}")
        self.namespace.ip(f"link set {name} up")
        self.bridged = True

    def bridge_settings(self, name="br0"):
        """What an agent may change of it and of its ports."""
        shown = self.namespace.json(f"ip -j -d link show {name}")[0]["linkinfo"]["info_data"]
        settings = {key: value for key, value in shown.items() if key.startswith("mcast_")}
        for port in self.namespace.json("bridge -j -d link show"):
            if port.get("master") == name:
                settings[port["ifname"]] = port["mcast_router"]
        return settings

    def entries(self, name="br0"):
        """{group: ports} of the permanent entries, and what nftables has."""
        found = {}
        for entries in self.namespace.json(f"bridge -d -j mdb show dev {name}"):
            for entry in entries["mdb"]:
                if entry["state"] == "permanent" and "src" not in entry:
                    found.setdefault(entry["grp"], set()).add(entry["port"])
        return found

    def rules(self):
        return self.namespace.run("nft list ruleset")

    def fabric(self):
        """Has a bridge do what a switch's hardware does beside the agent: all that ports hear goes
        out of the others, but reports and leaves, which a snooping switch keeps."""
        self.bridge("fabric")
        for rule in ("table bridge fabric",
                     "chain bridge fabric forward { type filter hook forward priority 0 ; }",
                     "rule bridge fabric forward ip protocol igmp"
                     " @th,0,8 { 0x12, 0x16, 0x17, 0x22 } drop"):
            self.namespace.run(f"nft add {rule}")

    # Configuration

    def forwarding(self, bridge="br0", unregistered="flood"):
        self._configuration.append(_table("[forwarding]", {"bridge": bridge,
                                                           "unregistered": unregistered}))

    def vlan(self, number, untagged=None, tagged=(), querier=3, **settings):
        """Adds a VLAN of these ports (all, unless said otherwise)."""
        content = {"id": number, "interfaces": self.ports if untagged is None else untagged,
                   "querier": {"igmp-version": querier}, **settings}
        if tagged:
            content["tagged_interfaces"] = tagged
        self._configuration.append(_table("[[vlan]]", content))

    def clear_configuration(self):
        self._configuration.clear()

    def write_configuration(self, text=None):
        interfaces = [_table("[[interface]]", {"name": port, **self.port_settings.get(port, {})})
                      for port in self.ports]
        self.configuration_file().write_text(
            text or "\n".join([*interfaces, *self._configuration]), encoding="utf-8")

    def configuration_file(self):
        return self._home / "igmpsnoopd.toml"

    # The agent

    def start(self):
        """Returns when the agent says that it is ready."""
        self.write_configuration()
        notify = self._home / "notify"
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as ready:
            ready.bind(str(notify))
            ready.settimeout(10)
            pin = ([] if self.cpu is None else
                   ["taskset", "-c", str(self.cpu)])
            self._process = self.namespace.start(
                [*self.prefix, *pin, self._programs / "igmpsnoopd", "live",
                 "--config", self.configuration_file(), "--control", self.control, "--metrics", self._home / "metrics",
                 *self.options],
                stdout=self._log, stderr=self._log,
                env={**os.environ, "NOTIFY_SOCKET": str(notify)})
            try:
                while b"READY=1" not in ready.recv(4096):
                    pass
            except TimeoutError:
                raise RuntimeError(f"igmpsnoopd is not ready: {self.log()}") from None
        notify.unlink()

    def reload(self):
        self._process.send_signal(signal.SIGHUP)

    def keep_state(self):
        """From the next start on, what was learned is kept."""
        self.options += ["--state", self._home / "state"]

    def kept_state(self):
        """The bytes of the file in which it is kept."""
        return (self._home / "state").read_bytes()

    def kill(self):
        """Ends the agent as a fault would."""
        self._process.kill()
        self._process.wait(10)

    def process_id(self):
        return self._process.pid

    def restart_in_place(self):
        """Has the agent start its program anew; returns when it is about to."""
        subprocess.run([self._programs / "igmpsnoopctl", "--socket", self._home / "control",
                        "restart"], check=True, timeout=15, stdout=self._log, stderr=self._log)

    def stop(self):
        """Ends the agent as a service manager does, and wants it to end well."""
        self._process.terminate()
        status = self._process.wait(10)
        if status != 0:
            raise RuntimeError(f"igmpsnoopd ended with {status}: {self.log()}")

    def running(self):
        return self._process is not None and self._process.poll() is None

    def ask(self, command):
        """What igmpsnoopctl answers, as JSON."""
        return json.loads(subprocess.run(
            [self._programs / "igmpsnoopctl", "--socket", self.control,
             *command.split(), "-j"], check=True, text=True, timeout=10,
            stdout=subprocess.PIPE, stderr=self._log).stdout)

    def read(self, command):
        """What igmpsnoopctl answers, as an operator reads it."""
        return subprocess.run(
            [self._programs / "igmpsnoopctl", "--socket", self.control, *command.split()],
            check=True, text=True, timeout=10, stdout=subprocess.PIPE, stderr=self._log).stdout

    def metric(self, name, **labels):
        """The sum of a metric's samples that have these labels."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as asked:
            asked.settimeout(10)
            asked.connect(str(self._home / "metrics"))
            asked.shutdown(socket.SHUT_WR)
            text = b"".join(iter(lambda: asked.recv(65536), b"")).decode()
        wanted = [f'{label}="{value}"' for label, value in labels.items()]
        return sum(float(line.rsplit(" ", 1)[1]) for line in text.splitlines()
                   if line.startswith((f"igmpsnoop_{name}{{", f"igmpsnoop_{name} "))
                   and all(each in line for each in wanted))

    def resident(self):
        """The agent's memory, in KiB."""
        for line in pathlib.Path(f"/proc/{self._process.pid}/status").read_text(
                encoding="ascii").splitlines():
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
        return 0

    def processor_seconds(self):
        fields = pathlib.Path(f"/proc/{self._process.pid}/stat").read_text(encoding="ascii")
        return sum(map(int, fields.rpartition(")")[2].split()[11:13])) / os.sysconf("SC_CLK_TCK")

    def stated_bytes(self):
        """The most memory that the agent takes, as it says of its configuration."""
        said = subprocess.run([self._programs / "igmpsnoopd", "check", "--config",
                               self.configuration_file()],
                              check=True, text=True, stdout=subprocess.PIPE).stdout
        return int(said.partition(" at most ")[2].split()[0]) << 20

    def resident_bytes(self):
        status = pathlib.Path(f"/proc/{self._process.pid}/status").read_text(encoding="ascii")
        return 1024 * int(status.partition("VmRSS:")[2].split()[0])

    def seconds_to_answer(self, command):
        start = time.monotonic()
        self.ask(command)
        return time.monotonic() - start

    def records(self, port, vlan=10):
        """The records of a port's host: {group: (filter mode, sources)}."""
        for host in self.ask("show hosts")["hosts"]:
            if host["interface"] == port and host["vlan"] == vlan:
                return {group["address"]: (group["filter-mode"], frozenset(group["source"]))
                        for group in host["group"]}
        return None

    def log(self):
        self._log.flush()
        return pathlib.Path(self._log.name).read_text(encoding="utf-8").strip()
