"""An interface's frames: seen in both directions with the kernel's times, sent, and dissected."""

import shutil
import socket
import struct
import subprocess

from rig import igmp

ETH_P_ALL = 3
SOL_PACKET = 263
PACKET_AUXDATA = 8
PACKET_OUTGOING = 4
TP_STATUS_VLAN_VALID = 1 << 4
AUXDATA = struct.Struct("=IIIHHHH")
SO_TIMESTAMPNS = 35
SO_RCVBUFFORCE = 33
TIMESPEC = struct.Struct("=qq")


class Wire:
    """Holds every frame that entered the interface, or was sent by it, since it was made."""

    def __init__(self, namespace, interface):
        with namespace.entered():
            self._socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
            self._socket.setsockopt(SOL_PACKET, PACKET_AUXDATA, 1)
            self._socket.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
            self._socket.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 64 << 20)
            self._socket.setblocking(False)
            self._socket.bind((interface, ETH_P_ALL))
        self.mac = self._socket.getsockname()[4].hex(":")
        self._sent, self._heard = [], []

    def _read(self):
        room = socket.CMSG_SPACE(AUXDATA.size) + socket.CMSG_SPACE(TIMESPEC.size)
        while True:
            try:
                data, ancillary, _, address = self._socket.recvmsg(65536, room)
            except BlockingIOError:
                return
            except OSError:  # the interface is down, or gone
                continue
            time = 0.0
            for level, kind, content in ancillary:
                if level == SOL_PACKET and kind == PACKET_AUXDATA:
                    status, _, _, _, _, tci, _ = AUXDATA.unpack(content[:AUXDATA.size])
                    if status & TP_STATUS_VLAN_VALID:  # the kernel took the tag out
                        data = data[:12] + struct.pack("!HH", 0x8100, tci) + data[12:]
                elif level == socket.SOL_SOCKET and kind == SO_TIMESTAMPNS:
                    seconds, nanoseconds = TIMESPEC.unpack(content)
                    time = seconds + nanoseconds / 1e9
            if address[2] != PACKET_OUTGOING:
                self._heard.append((time, data))
            elif data[6:12].hex(":") == self.mac:  # and not what a bridge passes on
                self._sent.append((time, data))

    def frames_sent(self):
        self._read()
        return list(self._sent)

    def frames_heard(self):
        self._read()
        return list(self._heard)

    def sent(self, since=0.0):
        """The IGMP messages that left."""
        self._read()
        return _messages(self._sent, since)

    def heard(self, since=0.0):
        self._read()
        return _messages(self._heard, since)

    def send(self, source, destination, message, vlan=0):
        self._socket.send(igmp.frame(self.mac, source, destination, message, vlan))


def _messages(frames, since):
    parsed = (igmp.parse(time, data) for time, data in frames if time >= since)
    return [message for message in parsed if message]


def dissect(frames, file):
    """What a packet dissector holds against these frames; None when tshark is missing."""
    if not shutil.which("tshark"):
        return None
    # One frame more, whose checksum is wrong, shows that the dissector complains at all.
    wrong = bytearray(igmp.frame("02:00:00:00:00:01", "192.0.2.1", "239.1.1.1",
                                 igmp.report(("is_ex", "239.1.1.1", ()))))
    wrong[-1] ^= 1
    with open(file, "wb") as capture:
        capture.write(struct.pack("=IHHiIII", 0xA1B23C4D, 2, 4, 0, 0, 65536, 1))
        for time, data in [*frames, (0.0, bytes(wrong))]:
            seconds = int(time)
            capture.write(struct.pack("=IIII", seconds, int((time - seconds) * 1e9), len(data),
                                      len(data)) + data)
    complaints = subprocess.run(
        ["tshark", "-r", file, "-o", "ip.check_checksum:TRUE", "-n", "-Y",
         "_ws.expert or _ws.malformed or not igmp or igmp.checksum.status != 1", "-T", "fields",
         "-e", "frame.number", "-e", "_ws.expert.message", "-e", "_ws.col.Info"],
        check=True, text=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
        env={"HOME": "/tmp", "PATH": "/usr/sbin:/usr/bin:/sbin:/bin"}).stdout.splitlines()
    if not complaints or not complaints[-1].startswith(f"{len(frames) + 1}\t"):
        raise RuntimeError("tshark does not tell a wrong checksum")
    return complaints[:-1]
