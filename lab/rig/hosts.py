"""Kernel hosts that listen: all their IGMP is the kernel's."""

import importlib.machinery
import importlib.util
import pathlib

LISTENER = pathlib.Path(__file__).resolve().parents[1] / "listener"


def _listener_class():
    loader = importlib.machinery.SourceFileLoader("listener", str(LISTENER))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("listener", loader))
    loader.exec_module(module)
    return module.Listener


class Host:
    """Obeys the commands of lab/listener, on sockets in its own namespace."""

    def __init__(self, namespace, interface="eth0", version=None):
        self.namespace = namespace
        self.name = namespace.name
        if version:
            namespace.setting("ipv4/conf/all/force_igmp_version", version)
        namespace.setting("ipv4/igmp_max_msf", 64)
        self._interface = interface
        self._listener = None

    def do(self, *commands):
        with self.namespace.entered():
            if self._listener is None:
                self._listener = _listener_class()(self._interface)
            for command in commands:
                self._listener.obey(command)
