"""Pretty-printers for gdb: handles, texts, value types, attributes and collections of entities.

    (gdb) source scripts/gdb/igmpsnoop.py
    (gdb) print *proxy
"""

import re

import gdb
import gdb.printing


def aligned(offset, alignment):
    return (offset + alignment - 1) // alignment * alignment


def text(string8):
    body = string8["body_"]
    if not body:
        return ""
    bytes_ = (body + 1).reinterpret_cast(gdb.lookup_type("char").pointer())
    return bytes_.string(length=int(body["size"]))


class Ptr:
    """What a handle holds, with its place and its number of references; or null."""

    def __init__(self, value):
        self.object = value["object_"]

    def to_string(self):
        if not self.object:
            return "null"
        references = self.object.dereference()["references_"]["count_"]["_M_i"]
        return f"{self.object.dynamic_type} {int(self.object):#x}, {int(references)} references"

    def children(self):
        if self.object:
            yield "object", self.object.cast(self.object.dynamic_type).dereference()


class Text:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        value = self.value
        while "body_" not in [field.name for field in value.type.strip_typedefs().fields()]:
            value = value[value.type.strip_typedefs().fields()[0]]
        return text(value)


class VlanId:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return str(int(self.value["value_"]))


class IpAddr:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        number = int(self.value[self.value.type.strip_typedefs().fields()[-1]])
        return ".".join(str(number >> shift & 255) for shift in (24, 16, 8, 0))


class PortKey:
    def __init__(self, value):
        self.identity = value["identity_"]["object_"]

    def to_string(self):
        return Text(self.identity["hostName"]).to_string() if self.identity else "moved from"


class Attribute:
    """An attribute is what it stores."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        fields = self.value.type.strip_typedefs().fields()
        return self.value[fields[0].name].format_string()


class Table:
    """The entries of a table, or of a collection, in their order."""

    def __init__(self, value):
        self.table = value
        kind = value.type.strip_typedefs()
        self.key, self.mapped = kind.template_argument(0), kind.template_argument(1)
        self.is_set = self.mapped.strip_typedefs().name == "Kel::Nothing"

        self.head = value["head_"]
        self.block, self.holds_entry = self.content()

    def content(self):
        """The block, and whether the head holds an entry instead."""
        if "block_" in [field.name for field in self.head.type.strip_typedefs().fields()]:
            return self.head["block_"], False
        word = int(self.word(gdb.lookup_type("unsigned long")))
        kind = self.head.type.strip_typedefs().template_argument(0).pointer()
        return gdb.Value(word - 1 if word & 1 else 0).cast(kind), word & 1 == 0

    def word(self, kind):
        """The word of a head that may hold an entry, as what it is."""
        return self.head["content_"].address.cast(kind.pointer()).dereference()

    def size(self):
        return 1 if self.holds_entry else int(self.block["size"]) if self.block else 0

    def to_string(self):
        return f"{self.size()} entries"

    def display_hint(self):
        return "array" if self.is_set else "map"

    def children(self):
        if self.holds_entry:
            yield "key 0", self.head["key_"]
            yield "mapped 0", self.word(self.mapped)
        block = self.block
        if not block:
            return
        begin, capacity = int(block), int(block["capacity"])
        keys = begin + aligned(block.dereference().type.sizeof, self.key.alignof)
        mapped = begin + aligned(keys - begin + capacity * self.key.sizeof, self.mapped.alignof)

        def at(kind, first, i):
            address = gdb.Value(first + i * kind.sizeof)
            return address.cast(kind.pointer()).dereference()

        for i in range(self.size()):
            yield f"key {i}", at(self.key, keys, i)
            if not self.is_set:
                yield f"mapped {i}", at(self.mapped, mapped, i)


def collection(value):
    """The table of a collection is in one of its base classes."""
    kind = value.type.strip_typedefs()
    while not any(field.name == "table_" for field in kind.fields()):
        base = next(field for field in kind.fields() if field.is_base_class)
        kind = base.type.strip_typedefs()
        value = value.cast(kind)
    return Table(value["table_"])


printers = {
    r"Kel::Ptr<.*>": Ptr,
    r"Kel::(String8|Name)|Wirex::IntfId": Text,
    r"Bridging::VlanId": VlanId,
    r"Wirex::IpAddr": IpAddr,
    r"Bridging::IgmpSnooping::Proxy::PortKey": PortKey,
    r"Kel::(Value|Pointer)<.*>": Attribute,
    r"Kel::(Collection|OwnedMembers|Members|Values|Set|Reactors)<.*>": collection,
    r"Kel::Table<.*>": Table,
}


def lookup(value):
    name = value.type.strip_typedefs().unqualified().name
    for pattern, printer in printers.items():
        if name and re.fullmatch(pattern, name):
            return printer(value)
    return None


lookup.name = "igmpsnoop"
lookup.enabled = True
gdb.printing.register_pretty_printer(None, lookup, replace=True)
