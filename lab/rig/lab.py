"""A scenario's laboratory: makes what it asks for, and compares what it expects."""

import contextlib
import itertools
import pathlib
import subprocess
import tempfile
import time

from rig import igmp, wire
from rig.hosts import Host
from rig.load import Load
from rig.namespace import Namespace, cable
from rig.patience import seconds_in_line
from rig.routers import BridgeRouter, PimdRouter, PimRouter
from rig.streams import Sender, Tap, Watch
from rig.switch import Switch

VLAN_INTERFACE = pathlib.Path(__file__).resolve().parents[1] / "vlan-interface"

# Of a machine that is busy: how many seconds longer is waited at most, and how many for each second
# that the scenario itself has stood in line for a processor, which others have done meanwhile too.
PATIENCE, SLOWNESS = 10, 10


class Failure(Exception):
    pass


class Skip(Exception):
    pass


class Lab:
    def __init__(self, programs, load_generator, pimd):
        self.programs, self._load_generator, self._pimd = programs, load_generator, pimd
        self._numbers = itertools.count(1)
        self._directory = pathlib.Path(tempfile.mkdtemp(prefix="lab-"))
        self._hubs = {}
        self._routers = []  # (switch, port, router)
        self.switches = []
        self.measured = []  # lines for the summary

    # Making

    def switch(self, ports, name="switch"):
        """Without cables: connect every port before the agent starts."""
        made = Switch(name, self.programs, self._directory)
        made.ports = [f"swp{number}" for number in range(1, ports + 1)]
        self.switches.append(made)
        return made

    def hub(self, switch, port):
        """Lets several be plugged into a port; all hear each other."""
        hub = self._hubs[switch.name, port] = Namespace(f"hub-{switch.name}-{port}")
        hub.ip("link add hub type bridge mcast_snooping 0")
        hub.ip("link set hub up")
        cable(switch.namespace, port, hub, "uplink")
        hub.ip("link set uplink master hub")
        switch.port_is(port)

    def _plug(self, name, switch, port):
        """A new namespace at the other end of a port's cable, or of its hub's."""
        namespace = Namespace(name)
        number = next(self._numbers)
        mac = f"02:00:00:00:{number >> 8:02x}:{number & 0xFF:02x}"
        hub = self._hubs.get((switch.name, port))
        if hub:
            cable(hub, name, namespace, "eth0", mac)
            hub.ip(f"link set {name} master hub")
        else:
            cable(switch.namespace, port, namespace, "eth0", mac)
            switch.port_is(port)
        return namespace, f"10.0.{number >> 8}.{number & 0xFF}"

    def listener(self, name, switch, port, version=None):
        namespace, address = self._plug(name, switch, port)
        namespace.address("eth0", address)
        host = Host(namespace, version=version)
        host.address = address
        return host

    def bridge_router(self, name, switch, port, **options):
        namespace, address = self._plug(name, switch, port)
        router = BridgeRouter(namespace, address, **options)
        self._routers.append((switch, port, router))
        return router

    def pim_router(self, name, switch, port, **options):
        if PimRouter.missing:
            raise Skip(PimRouter.missing)
        namespace, address = self._plug(name, switch, port)
        router = PimRouter(namespace, address, **options)
        self._routers.append((switch, port, router))
        self.until(router.ready, True, within=15)
        return router

    def pimd_router(self, name, switch, port, **options):
        if not self._pimd.exists():
            raise Skip(f"no {self._pimd}: name one with --pimd")
        namespace, address = self._plug(name, switch, port)
        router = PimdRouter(self._pimd, namespace, address, **options)
        self._routers.append((switch, port, router))
        self.until(router.ready, True, within=15)
        return router

    def tagged_listener(self, name, switch, port, vlan):
        namespace, address = self._plug(name, switch, port)
        interface = self._vlan_interface(namespace, vlan)
        namespace.address(interface, address)
        host = Host(namespace, interface)
        host.address = address
        return host

    def tagged_bridge_router(self, name, switch, port, vlan, **options):
        namespace, address = self._plug(name, switch, port)
        router = BridgeRouter(namespace, address, outside=self._vlan_interface(namespace, vlan),
                              **options)
        self._routers.append((switch, port, router))
        return router

    def _vlan_interface(self, namespace, vlan):
        name = f"eth0.{vlan}"
        if not namespace.try_ip(f"link add link eth0 name {name} type vlan id {vlan}"):
            namespace.start([VLAN_INTERFACE, "eth0", str(vlan)])
            self.until(lambda: namespace.try_ip(f"link show {name}"), True, within=5)
        namespace.ip(f"link set {name} up")
        return name

    def speaker(self, name, switch, port):
        """The far end of a cable, for frames of a scenario's own."""
        namespace, address = self._plug(name, switch, port)
        far_end = wire.Wire(namespace, "eth0")
        far_end.address = address
        return far_end

    def behind(self, switch, port, other, other_port):
        """Plugs a port of another switch into a port's hub."""
        hub = self._hubs[switch.name, port]
        cable(hub, other.name, other.namespace, other_port)
        hub.ip(f"link set {other.name} master hub")
        other.port_is(other_port)

    def between(self, one, one_port, other, other_port):
        cable(one.namespace, one_port, other.namespace, other_port)
        one.port_is(one_port)
        other.port_is(other_port)
        for switch, port in ((one, one_port), (other, other_port)):
            self.until(lambda switch=switch, port=port:
                       switch.namespace.json(f"ip -j link show {port}")[0]["operstate"], "UP",
                       within=5)

    def streams(self, sender, hosts, far_ends=None, pause=0.002):
        """Sends from a listener's host, and watches what comes out at these and at the far ends
        of cables that have a name here."""
        source = Sender(sender.namespace, sender.address, pause)
        taps = {host.name: Tap(wire.Wire(host.namespace, "eth0")) for host in hosts}
        taps.update({name: Tap(far_end) for name, far_end in (far_ends or {}).items()})
        return source, Watch(self, source, taps)

    def load(self, switch, ports):
        """A source of load at the far ends of these ports, of which no frame is kept."""
        if not self._load_generator.exists():
            raise Skip(f"no {self._load_generator}: scripts/build bench")
        namespace = Namespace("load")
        for port in ports:
            cable(switch.namespace, port, namespace, port)
        return Load(namespace, self._load_generator, ports)

    def begin(self, switch):
        """Starts the agent, and returns when it has heard a query of each of its routers."""
        switch.start()
        for its_switch, port, router in self._routers:
            if its_switch is switch:
                self.query(switch, port, router)

    def query(self, switch, port, router):
        """Returns when the agent has taken note of the query."""
        def heard():
            return switch.metric("messages_received_total", interface=port, type="query")

        before = heard()
        router.query()
        self.until(lambda: heard() > before, True, within=8, why="no query")

    # Comparing

    def until(self, what, expected, within, why=""):
        """Asks until the answer is the expected one; returns the seconds that took. Where the
        machine is busy, that may be more than asked for."""
        start, in_line = time.monotonic(), seconds_in_line()
        while True:
            found = what()
            now = time.monotonic()
            if found == expected:
                return now - start
            late = now - start - within
            if late > min(PATIENCE, SLOWNESS * (seconds_in_line() - in_line)):
                raise Failure(f"{why or 'after'} {within} s: expected {expected}, found {found}")
            time.sleep(0.01)

    def stays(self, what, expected, seconds, why=""):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            found = what()
            if found != expected:
                raise Failure(f"{why}: expected {expected}, found {found}")
            time.sleep(0.05)

    def seconds_until_said(self, wire, since, kind, group, within=2):
        """From a point in time to the first record of a group that leaves the switch."""
        def times():
            return [message.time for message in wire.sent(since=since)
                    for record in message.records
                    if record.kind == kind and record.group == group]

        self.until(lambda: bool(times()), True, within, why=f"{kind} {group}")
        return min(times()) - since

    def check(self, holds, why):
        if not holds:
            raise Failure(why)

    def note(self, line):
        self.measured.append(line)

    # After

    def dissect_all(self):
        """Has a dissector look at every frame that the switches sent; of those of a bridge, which passes
        on streams, at IGMP alone."""
        frames = []
        for switch in self.switches:
            for port in switch.all_wires:
                frames += [(time, data) for time, data in port.frames_sent()
                           if not switch.bridged or igmp.parse(time, data)]
        complaints = wire.dissect(frames, self._directory / "sent.pcap")
        if complaints is None:
            return f"{len(frames)} frames sent, not dissected: tshark is missing"
        if complaints:
            raise Failure("tshark: " + "; ".join(complaints[:5]))
        return f"{len(frames)} frames sent, dissected"

    def logs(self):
        """What may explain a failure: the agents' own words, what they know, and what they last sent
        and heard."""
        lines = []
        for switch in self.switches:
            lines += [f"--- {switch.name}", switch.log()]
            if switch.running():
                with contextlib.suppress(subprocess.SubprocessError):  # it may be what has failed
                    lines.append(switch.read("show groups"))
            for port in switch.captured_ports():
                told = [(message.time, "sent", message) for message in switch.wire(port).sent()]
                told += [(message.time, "heard", message) for message in switch.wire(port).heard()]
                lines += [f"{port} {direction} {message}" for _, direction, message
                          in sorted(told)[-8:]]
        return "\n".join(lines)
