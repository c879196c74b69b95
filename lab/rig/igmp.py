"""IGMP on the wire: what the scenarios send themselves, and what they read in captured frames."""

import socket
import struct
from typing import NamedTuple

RECORD_TYPES = {1: "is_in", 2: "is_ex", 3: "to_in", 4: "to_ex", 5: "allow", 6: "block"}
QUERY, REPORT_V1, REPORT_V2, LEAVE, REPORT_V3 = 0x11, 0x12, 0x16, 0x17, 0x22
KINDS = {QUERY: "query", REPORT_V1: "v1 report", REPORT_V2: "v2 report", LEAVE: "leave",
         REPORT_V3: "v3 report"}
ALL_SYSTEMS, ALL_ROUTERS, ALL_IGMPV3_ROUTERS = "224.0.0.1", "224.0.0.2", "224.0.0.22"


class Record(NamedTuple):
    kind: str
    group: str
    sources: tuple


class Message(NamedTuple):
    time: float  # seconds, of the kernel's clock
    source: str
    destination: str
    vlan: int  # 0: untagged
    kind: int
    group: str
    records: tuple  # of a version 3 report; a report or leave of the others has one too
    ttl: int
    tos: int

    def __str__(self):
        kind = KINDS.get(self.kind, hex(self.kind))
        vlan = f" vlan {self.vlan}" if self.vlan else ""
        records = " ".join(f"{kind}({group}, {{{', '.join(sources)}}})"
                           for kind, group, sources in self.records)
        return f"{self.time % 1000:.6f} {self.source}{vlan} {kind} {records or self.group}"

    def groups(self):
        return {record.group for record in self.records}


def checksum(data):
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def frame(mac, source, destination, igmp, vlan=0):
    """An Ethernet frame round an IGMP message, whose checksum is computed here."""
    igmp = igmp[:2] + b"\0\0" + igmp[4:]
    igmp = igmp[:2] + struct.pack("!H", checksum(igmp)) + igmp[4:]
    to = socket.inet_aton(destination)
    header = struct.pack("!BBHHHBBH4s4s4s", 0x46, 0xC0, 24 + len(igmp), 0, 0, 1, 2, 0,
                         socket.inet_aton(source), to, b"\x94\x04\0\0")
    header = header[:10] + struct.pack("!H", checksum(header)) + header[12:]
    ethernet = bytes((1, 0, 0x5E, to[1] & 0x7F, to[2], to[3])) + bytes.fromhex(mac.replace(":", ""))
    tag = struct.pack("!HH", 0x8100, vlan) if vlan else b""
    return ethernet + tag + b"\x08\0" + header + igmp


def query(version, group="0.0.0.0", response=1.0, interval=10, sources=()):
    """A query; response and interval in seconds, below the values that need an exponent."""
    code = 0 if version == 1 else int(response * 10)
    message = struct.pack("!BBH4s", QUERY, code, 0, socket.inet_aton(group))
    if version == 3:
        message += struct.pack("!BBH", 2, interval, len(sources))
        message += b"".join(map(socket.inet_aton, sources))
    return message


def report(*records):
    """A version 3 report of (kind, group, sources) records."""
    numbers = {name: number for number, name in RECORD_TYPES.items()}
    message = struct.pack("!BBHHH", REPORT_V3, 0, 0, 0, len(records))
    for kind, group, sources in records:
        message += struct.pack("!BBH4s", numbers[kind], 0, len(sources), socket.inet_aton(group))
        message += b"".join(map(socket.inet_aton, sources))
    return message


def _records(igmp):
    count = struct.unpack("!H", igmp[6:8])[0]
    at = 8
    for _ in range(count):
        kind, auxiliary, number = struct.unpack("!BBH", igmp[at:at + 4])
        group = socket.inet_ntoa(igmp[at + 4:at + 8])
        at += 8
        sources = tuple(socket.inet_ntoa(igmp[at + 4 * i:at + 4 * i + 4]) for i in range(number))
        at += 4 * (number + auxiliary)
        yield Record(RECORD_TYPES.get(kind, f"type {kind}"), group, sources)


def parse(time, data):
    """The IGMP message in a frame, or None."""
    vlan, at = 0, 12
    if data[12:14] == b"\x81\0":
        vlan, at = struct.unpack("!H", data[14:16])[0] & 0xFFF, 16
    if data[at:at + 2] != b"\x08\0" or data[at + 11] != socket.IPPROTO_IGMP:
        return None
    ip = data[at + 2:]
    length = struct.unpack("!H", ip[2:4])[0]
    igmp = ip[4 * (ip[0] & 15):length]
    group = socket.inet_ntoa(igmp[4:8])
    records = ()
    if igmp[0] == REPORT_V3:
        group, records = "", tuple(_records(igmp))
    elif igmp[0] in (REPORT_V1, REPORT_V2):
        records = (Record("is_ex", group, ()),)
    elif igmp[0] == LEAVE:
        records = (Record("to_in", group, ()),)
    return Message(time, socket.inet_ntoa(ip[12:16]), socket.inet_ntoa(ip[16:20]), vlan, igmp[0],
                   group, records, ip[8], ip[1])
