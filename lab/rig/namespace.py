"""Network namespaces and the cables between them."""

import contextlib
import ctypes
import json
import os
import subprocess

CLONE_NEWNET = 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)


def _setns(descriptor):
    if _libc.setns(descriptor, CLONE_NEWNET) != 0:
        error = ctypes.get_errno()
        raise OSError(error, f"setns: {os.strerror(error)}")


class Namespace:
    def __init__(self, name):
        self.name = name
        subprocess.run(["ip", "netns", "add", name], check=True)
        self._descriptor = os.open(f"/run/netns/{name}", os.O_RDONLY)
        self.setting("ipv6/conf/all/disable_ipv6", 1)
        self.setting("ipv6/conf/default/disable_ipv6", 1)
        self.ip("link set lo up")

    @contextlib.contextmanager
    def entered(self):
        """Sockets that are made meanwhile belong to the namespace for good."""
        home = os.open("/proc/self/ns/net", os.O_RDONLY)
        _setns(self._descriptor)
        try:
            yield
        finally:
            _setns(home)
            os.close(home)

    def run(self, command, check=True):
        """Runs a command line inside, and returns what it printed."""
        words = command.split() if isinstance(command, str) else command
        done = subprocess.run(["ip", "netns", "exec", self.name, *words], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        if check and done.returncode != 0:
            raise RuntimeError(f"{self.name}: {' '.join(words)}: {done.stderr.strip()}")
        return done.stdout

    def start(self, words, **options):
        """A command that goes on running inside."""
        return subprocess.Popen(["ip", "netns", "exec", self.name, *words], **options)

    def json(self, command):
        return json.loads(self.run(command) or "[]")

    def ip(self, command):
        subprocess.run(["ip", "-n", self.name, *command.split()], check=True)

    def try_ip(self, command):
        return subprocess.run(["ip", "-n", self.name, *command.split()], check=False,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def setting(self, name, value):
        with self.entered(), contextlib.suppress(FileNotFoundError):
            with open(f"/proc/sys/net/{name}", "w", encoding="ascii") as file:
                file.write(f"{value}\n")

    def address(self, interface, address):
        self.ip(f"address add {address}/16 dev {interface}")


def cable(one, one_end, other, other_end, mac=None):
    """Connects two namespaces, both ends up."""
    address = f"address {mac}" if mac else ""
    one.ip(f"link add {one_end} type veth peer name {other_end} {address} netns {other.name}")
    one.ip(f"link set {one_end} up")
    other.ip(f"link set {other_end} up")
