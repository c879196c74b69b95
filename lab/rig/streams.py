"""Streams through a switch: who sends them, and which of their frames come out at each port."""

import socket
import struct
import threading
import time

PORT = 5004
PAYLOAD = struct.Struct("!II")  # stream, number


class Sender:
    """Sends a frame to each of its groups after each pause, and knows when it did."""

    def __init__(self, namespace, address, pause):
        self.address = address
        self._pause = pause
        self._groups = {}
        self._sent = {}  # group: times, by number
        with namespace.entered():
            self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 4)
        self._socket.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_LOOP, 0)
        self._socket.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF,
                                socket.inet_aton(address))
        threading.Thread(target=self._run, daemon=True).start()

    def send(self, *groups):
        """From now on to these groups, and no others. Returns when it has begun."""
        for group in groups:
            self._sent.setdefault(group, [])
        before = {group: len(self._sent[group]) for group in groups}
        self._groups = dict.fromkeys(groups)
        while any(len(self._sent[group]) == before[group] for group in groups):
            time.sleep(self._pause)

    def sent(self, group, since, until):
        """The numbers of the frames that left meanwhile."""
        return {number for number, at in enumerate(list(self._sent[group])) if since <= at < until}

    def _run(self):
        while True:
            for group in list(self._groups):
                times = self._sent[group]
                before = time.time()  # after the call, it may long have arrived
                self._socket.sendto(PAYLOAD.pack(0, len(times)), (group, PORT))
                times.append(before)
            time.sleep(self._pause)


class Tap:
    """The frames of streams that arrive at an interface."""

    def __init__(self, wire):
        self._wire = wire

    def numbers(self, sender, group):
        """Those of one sender's frames to a group that have arrived so far; with what came twice."""
        source, to = socket.inet_aton(sender.address), socket.inet_aton(group)
        found = []
        for _, data in self._wire.frames_heard():
            at = 18 if data[12:14] == b"\x81\x00" else 14
            if (data[at - 2:at] == b"\x08\x00" and data[at + 9] == socket.IPPROTO_UDP
                    and data[at + 12:at + 20] == source + to):
                found.append(PAYLOAD.unpack_from(data, at + 28)[1])
        return found


class Watch:
    """What comes out where, for one sender."""

    def __init__(self, lab, sender, taps):
        self._lab, self._sender, self._taps = lab, sender, taps

    def check(self, group, since, until, wanting):
        """Every frame that left meanwhile came out once at the hosts that want it, and at no other."""
        sent = self.nothing_missing(group, since, until, wanting)
        for name, tap in self._taps.items():
            heard = [number for number in tap.numbers(self._sender, group) if number in sent]
            self._lab.check(len(heard) == len(set(heard)), f"{name} hears {group} twice")
            self._lab.check(name in wanting or not heard,
                            f"{name} hears {len(heard)} of {len(sent)} frames of {group}, which it "
                            f"does not want")

    def nothing_missing(self, group, since, until, wanting):
        """Every frame that left meanwhile came out at the hosts that want it, wherever else.
        Returns the numbers of these frames."""
        time.sleep(max(0, until + 0.02 - time.time()))  # what is under way arrives
        sent = self._sender.sent(group, since, until)
        self._lab.check(sent, f"nothing was sent to {group}")
        for name in wanting:
            self._lab.until(lambda tap=self._taps[name]:
                            len(sent.difference(tap.numbers(self._sender, group))), 0, within=0.2,
                            why=f"of {len(sent)} frames of {group} {name} misses some after")
        return sent

    def steady(self, group, wanting, seconds=0.1):
        """The same for a while from now on."""
        now = time.time()
        time.sleep(seconds)
        self.check(group, now, now + seconds, wanting)
