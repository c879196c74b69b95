"""The changes of a bridge's entries, as the kernel tells them."""

import select
import socket
import struct
import time

RTNLGRP_MDB = 26
RTM_NEWMDB, RTM_DELMDB = 84, 85


class MdbEvents:
    def __init__(self, namespace):
        with namespace.entered():
            self._socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
            self._socket.bind((0, 0))
            self._socket.setsockopt(270, 1, RTNLGRP_MDB)  # SOL_NETLINK, NETLINK_ADD_MEMBERSHIP
            self._socket.setblocking(False)

    def seconds_from(self, action, group, kind=RTM_NEWMDB, within=1):
        """From an action to the first change of a group's entries; None if there is none."""
        address = socket.inet_aton(group)
        start = time.monotonic()
        action()
        while (left := start + within - time.monotonic()) > 0:
            select.select([self._socket], [], [], left)
            try:
                message = self._socket.recv(65536)
            except BlockingIOError:
                continue
            if struct.unpack_from("=H", message, 4)[0] == kind and address in message:
                return time.monotonic() - start
        return None
