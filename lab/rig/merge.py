"""What a router must see of several listeners of one group."""

from rig.routers import exclude, include


def _port(reporters):
    """The filter of a port: sources count as excluded when all its reporters exclude them."""
    if all(mode == "include" for mode, _ in reporters):
        return include(*frozenset().union(*(sources for _, sources in reporters)))
    if any(mode == "include" for mode, _ in reporters):
        return exclude()
    return exclude(*frozenset.intersection(*(sources for _, sources in reporters)))


def merge(listeners):
    """The merge of (port, filter) of all listeners of a group; None when nobody listens.

    Across ports the switch is deliberately coarse: unless all ports exclude the same source, one
    that excludes makes the merge every source.
    """
    ports = {}
    for port, its_filter in listeners:
        ports.setdefault(port, []).append(its_filter)
    filters = [_port(reporters) for reporters in ports.values()]
    filters = [each for each in filters if each != include()]
    return _port(filters) if filters else None
