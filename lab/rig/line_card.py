"""Many ports of a switch that come and go together, while another one carries traffic."""

import json
import socket
import subprocess
import threading
import time

from rig import igmp
from rig.namespace import Namespace, cable
from rig.patience import seconds_in_line

RATE = 1000  # frames a second on the port that stays


class Traffic:
    """Reports from a namespace of its own, so many a second, until told to end."""

    def __init__(self, switch, port):
        self.sent = 0
        self._ended = threading.Event()
        namespace = Namespace("traffic")
        cable(switch.namespace, port, namespace, "eth0", "02:00:00:00:ff:01")
        with namespace.entered():
            self._socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
            self._socket.bind(("eth0", 0))
        self._frame = igmp.frame("02:00:00:00:ff:01", "10.0.255.1", igmp.ALL_IGMPV3_ROUTERS,
                                 igmp.report(("is_ex", "239.255.0.1", ())))
        self._thread = threading.Thread(target=self._send)

    def start(self):
        self._thread.start()

    def end(self):
        self._ended.set()
        self._thread.join()

    def _send(self):
        begin = time.monotonic()
        while not self._ended.wait(0.002):
            while self.sent < (time.monotonic() - begin) * RATE:
                self._socket.send(self._frame)
                self.sent += 1


class Questions:
    """How long the agent takes to answer, asked all the time on its control socket. What it or who
    asks has stood in line for a processor does not count."""

    def __init__(self, switch):
        self.seconds = []
        self._path = str(switch.control)
        self._agent = switch.process_id()
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._ask)

    def start(self):
        self._thread.start()

    def end(self):
        self._ended.set()
        self._thread.join()

    def _ask(self):
        while not self._ended.wait(0.01):
            start, waited = time.monotonic(), self._in_line()
            with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as asked:
                asked.settimeout(20)
                asked.connect(self._path)
                asked.sendall(b'{"command":"show","what":"vlans"}\n')
                while asked.recv(65536):
                    pass
            took = time.monotonic() - start
            self.seconds.append(max(0.0, took - (self._in_line() - waited)))

    def _in_line(self):
        return seconds_in_line() + seconds_in_line(self._agent)


class LineCard:
    """Ports whose far ends are in one namespace, and which are made again in one go."""

    def __init__(self, switch, ports):
        self._switch = switch
        self._ports = ports
        self._peers = Namespace("peers")

    def make(self, ports=None, pause=0.02):
        """Deletes what there is of the ports and makes them again, then takes their far ends up."""
        ports = self._ports if ports is None else ports
        lines = [f"link delete {port}" for port in ports if self._has(port)]
        for port in ports:
            lines.append(f"link add {port} type veth peer name {port} netns peers")
        lines += [f"link set {port} up" for port in ports]
        self._batch(self._switch.namespace, lines)
        for port in ports:
            self._peers.ip(f"link set {port} up")
            time.sleep(pause)

    def _has(self, port):
        return self._switch.namespace.try_ip(f"link show {port}")

    @staticmethod
    def _batch(namespace, lines):
        subprocess.run(["ip", "-n", namespace.name, "-batch", "-"], check=True, text=True,
                       input="\n".join(lines) + "\n")


def play(lab, ports, rounds, remakes):
    """A line card of so many ports is reset so many times, then one port made again very often."""
    switch = lab.switch(ports=ports)
    *changing, steady = switch.ports
    traffic = Traffic(switch, steady)
    card = LineCard(switch, changing)
    card.make(pause=0)
    switch.vlan(10)
    switch.start()
    questions = Questions(switch)
    lab.until(lambda: _deaf(switch), {}, within=20, why="at the start")

    traffic.start()
    questions.start()
    settled = []
    try:
        for _ in range(rounds):
            card.make()
            settled.append(lab.until(lambda: _deaf(switch), {}, within=10, why="made again"))
        for _ in range(remakes):
            start = time.monotonic()
            card.make(changing[:1], pause=0)
            time.sleep(max(0.0, 1 / 17 - (time.monotonic() - start)))
        settled.append(lab.until(lambda: _deaf(switch), {}, within=10, why="one made again"))
    finally:
        questions.end()
        traffic.end()
    time.sleep(0.2)
    heard = switch.metric("frames_received_total", interface=steady)
    lab.note(f"{traffic.sent - heard:.0f} of {traffic.sent} frames lost on the port that stays; "
             f"{len(questions.seconds)} answers, median "
             f"{sorted(questions.seconds)[len(questions.seconds) // 2] * 1000:.0f} ms, most "
             f"{max(questions.seconds) * 1000:.0f} ms; settled at most "
             f"{max(settled):.1f} s after the last port was up")
    lab.check(heard >= traffic.sent, "the port that stays loses frames")
    lab.check(max(questions.seconds) < 0.1, "the control socket waits")


def _deaf(switch):
    """The ports on which nothing can be heard, and why."""
    return {each["name"]: each.get("deaf", "blocked")
            for each in switch.ask("show interfaces")["interfaces"]
            if each["blocked"] or "deaf" in each}
