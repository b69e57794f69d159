# How gdb shows Tessarin's values and objects. gdb loads this file by itself when it lies beside the library as
# libtessarin.so.VERSION-gdb.py, in a folder that it trusts (docs/debugging.md); `source FILE` does it by hand.
# Only memory is read, nothing is called in the program: it works in core files, and disturbs no lock and no fault.
import datetime
import decimal

import gdb
import gdb.printing

NOT_READ = "<not readable>"


def limit():
    """How many characters or entries gdb is to show; None for all."""
    return gdb.parameter("print elements")


def memory(address, count):
    return bytes(gdb.selected_inferior().read_memory(int(address), count)) if count else b""


def quoted(address, size):
    shown = size if limit() is None else min(size, limit())
    text = memory(address, shown).decode("utf-8", "backslashreplace")
    text = text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")
    return f'"{text}"' + ("" if shown == size else "...")


def standard_string(value):
    return memory(value["_M_dataplus"]["_M_p"], int(value["_M_string_length"])).decode("utf-8", "backslashreplace")


def elements(vector):
    """The elements of a std::vector."""
    at, end = vector["_M_impl"]["_M_start"], vector["_M_impl"]["_M_finish"]
    while at != end:
        yield at.dereference()
        at += 1


def owned(pointer, type_name):
    """What a std::unique_ptr, whatever its deleter without data, owns; None for nothing."""
    kept = pointer.address.cast(gdb.lookup_type("void").pointer().pointer()).dereference()
    return kept.cast(gdb.lookup_type(type_name).pointer()).dereference() if int(kept) else None


def has_base(type, name):
    """Whether the class is, or derives from, the one of that name."""
    type = type.strip_typedefs()
    if type.name == name:
        return True
    if type.code != gdb.TYPE_CODE_STRUCT:
        return False
    return any(field.is_base_class and has_base(field.type, name) for field in type.fields())


# Texts and values: sixteen bytes, of which the last is the kind.

def cell_text(address):
    count = memory(address + 14, 1)[0]
    if count <= 14:
        return quoted(address, count)
    if count != 0xFF:
        return NOT_READ
    shared = int.from_bytes(memory(address, 8), "little")
    return quoted(shared + 16, int.from_bytes(memory(shared + 8, 8), "little"))


def date_text(seconds):
    try:
        date = datetime.datetime(2001, 1, 1) + datetime.timedelta(seconds=seconds)
    except (OverflowError, ValueError):
        return f"{seconds!r} seconds since 2001-01-01"
    return date.isoformat(" ") + " +0000"


def number_text(address, type_name):
    return str(gdb.Value(memory(address, 8), gdb.lookup_type(type_name)))


def boxed(address, type_name):
    """The content of the counted cell that a value refers to: behind a count of four bytes."""
    box = int.from_bytes(memory(address, 8), "little")
    type = gdb.lookup_type(type_name)
    offset = max(4, type.alignof)
    return gdb.Value(box + offset).cast(type.pointer()).dereference()


def decimal_text(value):
    mantissa = int.from_bytes(memory(value["mantissa_"].address, 16), "little", signed=True)
    digits = tuple(int(digit) for digit in str(abs(mantissa)))
    return format(decimal.Decimal((mantissa < 0, digits, int(value["exponent_"]))), "f")


def kind_of(value):
    number = memory(int(value.address) + 15, 1)[0]
    for field in gdb.lookup_type("Tessarin::Value::Kind").fields():
        if field.enumval == number:
            return field.name.rpartition("::")[2]
    return ""


def data_text(vector):
    start, end = int(vector["_M_impl"]["_M_start"]), int(vector["_M_impl"]["_M_finish"])
    shown = end - start if limit() is None else min(end - start, limit())
    return f"{end - start} bytes <{memory(start, shown).hex()}{'' if shown == end - start else '...'}>"


SCALARS = {
    "Absent": lambda at: "absent",
    "Boolean": lambda at: "true" if memory(at, 1)[0] else "false",
    "Integer": lambda at: number_text(at, "long"),
    "Float": lambda at: number_text(at, "double"),
    "Double": lambda at: number_text(at, "double"),
    "Date": lambda at: date_text(float(gdb.Value(memory(at, 8), gdb.lookup_type("double")))),
    "Text": cell_text,
    "UUID": lambda at: uuid_text(memory(int.from_bytes(memory(at, 8), "little") + 8, 16)),
    "Data": lambda at: data_text(boxed(at, "std::vector<std::byte, std::allocator<std::byte> >")),
    "URL": lambda at: "<" + standard_string(boxed(at, "std::string")) + ">",
    "Decimal": lambda at: decimal_text(boxed(at, "Tessarin::Decimal")),
    "Object": lambda at: reference_text(boxed(at, "std::shared_ptr<Tessarin::NSObject>")),
}
# Those that hold others: the type of what they hold, and how gdb lays it out.
CONTAINERS = {
    "List": ("std::vector<Tessarin::Value, std::allocator<Tessarin::Value> >", "array"),
    "Set": ("Tessarin::ValueSet", "array"),
    "Dictionary": ("Tessarin::Dictionary", "map"),
    "ValueDictionary": ("Tessarin::ValueDictionary", "map"),
}


def uuid_text(raw):
    text = raw.hex().upper()
    return "-".join((text[:8], text[8:12], text[12:16], text[16:20], text[20:]))


# Objects.

def class_name(type):
    name = str(type.strip_typedefs().unqualified())
    prefix = "Tessarin::detail::Made<"
    if name.startswith(prefix):
        name = name[len(prefix):-1].strip()
    return name[len("Tessarin::"):] if name.startswith("Tessarin::") else name


def record_text(object):
    """A managed object: entity, key, what it is, which keys have unsaved values."""
    state = object["state_"]
    layout = state["layout"]
    if int(layout) == 0:
        return "<managed object without a context>"
    entity = layout.dereference()["entity_"].referenced_value()
    key = int(state["key"])
    flags = int(state["flags"])
    words = [field.name.rpartition("::")[2].lower() for field in gdb.lookup_type("Tessarin::ObjectState::Flag").fields()
             if flags & field.enumval and not field.name.endswith(("Changed", "Published", "Unshown"))]
    text = standard_string(entity["definition_"]["name"]) + (f" t{-key}" if key < 0 else f" p{key}")
    changed = changed_keys(state, entity)
    if words:
        text += ", " + ", ".join(words)
    if changed:
        text += "; changed: " + ", ".join(changed)
    return f"<{text}>"


def changed_keys(state, entity):
    extras = owned(state["extras"], "Tessarin::ObjectExtras")
    if extras is None:
        return []
    changed = [int(pair["first"]) for pair in elements(extras["values"])]
    for relationship in elements(extras["toMany"]):
        if relationship["isReordered"] or any(list(elements(relationship[part]["keys_"])) for part in ("added", "removed")):
            changed.append(int(relationship["property"]))
    properties = list(elements(entity["properties_"]))
    return [standard_string(properties[at]["name_"].dereference()) for at in changed]


def object_text(pointer):
    """Any object behind a pointer, by its own class as far as the debug information knows it."""
    try:
        pointer = pointer.cast(pointer.dereference().dynamic_type.pointer())
    except gdb.error:
        pass
    type = pointer.type.target().strip_typedefs()
    if has_base(type, "Tessarin::NSManagedObject"):
        try:
            return record_text(pointer.dereference())
        except gdb.error as error:  # without debug information of the library, or memory that is gone
            return f"<{class_name(type)} at {int(pointer):#x}: {error}>"
    return f"<{class_name(type)} at {int(pointer):#x}>"


def reference_text(reference):
    pointer = reference["_M_ptr"]
    return "null" if int(pointer) == 0 else object_text(pointer)


# The printers.

class Described:
    """Shown as a text that `describe` makes."""

    def __init__(self, value, describe):
        self.value, self.describe = value, describe

    def to_string(self):
        try:
            return self.describe(self.value)
        except gdb.error as error:
            return f"<not readable: {error}>"


class Entries:
    """A dictionary: its entries in their order."""

    def __init__(self, dictionary):
        self.entries = dictionary["entries_"]

    def to_string(self):
        return f"{len(list(elements(self.entries)))} entries"

    def children(self):
        for at, entry in enumerate(elements(self.entries)):
            yield f"key {at}", entry["key"]
            yield f"value {at}", entry["value"]

    def display_hint(self):
        return "map"


class Container:
    """A value that holds others: shown as what it holds."""

    def __init__(self, value, kind):
        type_name, self.hint = CONTAINERS[kind]
        self.kind = kind
        content = boxed(int(value.address), type_name)
        if has_base(content.type, "Tessarin::Dictionary"):
            self.content = Entries(content)
        elif self.kind != "List":
            base = next(field for field in content.type.strip_typedefs().fields() if field.is_base_class)
            self.content = gdb.default_visualizer(content.cast(base.type))
        else:
            self.content = content

    def to_string(self):
        return self.kind

    def children(self):
        if self.kind != "List":
            return self.content.children()
        return ((f"[{at}]", each) for at, each in enumerate(elements(self.content)))

    def display_hint(self):
        return self.hint


def value_printer(value):
    kind = kind_of(value)
    try:
        if kind in CONTAINERS:
            return Container(value, kind)
    except gdb.error:  # the program uses no such type: nothing is known of it
        return Described(value, lambda _: f"{kind} <without debug information>")
    describe = SCALARS.get(kind, lambda _: NOT_READ)
    return Described(value, lambda value: describe(int(value.address)))


DIRECT = {
    "Tessarin::Value": value_printer,
    "Tessarin::Text": lambda value: Described(value, lambda value: cell_text(int(value.address))),
    "Tessarin::Dictionary": Entries,
    "Tessarin::Decimal": lambda value: Described(value, decimal_text),
    "Tessarin::NSDate": lambda value: Described(value, lambda value: date_text(float(value["seconds_"]))),
}


class Printers(gdb.printing.PrettyPrinter):
    def __init__(self):
        super().__init__("tessarin")

    def __call__(self, value):
        type = value.type.strip_typedefs().unqualified()
        if type.code != gdb.TYPE_CODE_STRUCT or type.name is None:
            return None
        name = type.name
        if name in DIRECT:
            return DIRECT[name](value) if value.address is not None else None
        if name.startswith("std::shared_ptr<"):
            pointed = type.template_argument(0)
            if str(pointed.strip_typedefs().unqualified()).startswith("Tessarin::") or has_base(pointed, "Tessarin::NSObject"):
                return Described(value, reference_text)
        elif has_base(type, "Tessarin::NSManagedObject"):
            return Described(value, lambda value: object_text(value.address))
        return None


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers(), replace=True)
