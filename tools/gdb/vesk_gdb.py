"""GDB shows a message as its present fields:

    (gdb) source DIR/share/vesk/gdb/vesk_gdb.py
    (gdb) print answer
    $1 = {pem_list = 2 elements = {{entity_common = {f2 = "PSU 1"}, f3 = 4800}, {f3 = 4801}}}

A field is present if its presence bit is set; a nested message also if it has content, since it is encoded then. What is
present and null, or cannot be read, is shown as that.

No type is known here by its name. The form of a structure says it all: a member for each field in the order of the presence
bits, after the pointer of a bytes field its length, after that of a list or repeated field its count, and the presence bits at
the end, as many as there are fields. So this serves every type of the library, those that the generator makes of other schemas,
and the entity identifier of any other library."""

import gdb
import gdb.printing
import gdb.types

SCALAR, STRING, BYTES, MESSAGE, LIST, REPEATED = range(6)
MOST_BYTES = 65536  # of a bytes field, even if GDB may print any number of elements
MOST_ELEMENTS = 65536  # of a repeated field, the same


def is_message(kind):
    """Whether a structure is a message, by its last member, the presence bits."""
    if kind.code != gdb.TYPE_CODE_STRUCT:
        return False
    members = kind.fields()
    if not members or members[-1].name != "present":
        return False
    bits = gdb.types.get_basic_type(members[-1].type)
    if bits.code != gdb.TYPE_CODE_ARRAY or bits.target().sizeof != 1:
        return False
    if (kind.tag or "").startswith("vesk_"):
        return True
    fields = sum(1 for _ in fields_of_type(kind))
    return fields != 0 and bits.sizeof == (fields + 7) // 8


def is_bytes_element(kind):
    return kind.code == gdb.TYPE_CODE_STRUCT and kind.tag == "vesk_bytes"


def kind_of(member, following):
    """What a member is; the one that follows it tells bytes with their length from flags with their count."""
    member = gdb.types.get_basic_type(member)
    if member.code == gdb.TYPE_CODE_STRUCT:
        return MESSAGE
    if member.code != gdb.TYPE_CODE_PTR:
        return SCALAR
    target = gdb.types.get_basic_type(member.target())
    if target.code == gdb.TYPE_CODE_STRUCT:
        return REPEATED if is_bytes_element(target) else LIST
    if target.name == "char":
        return STRING
    return BYTES if target.sizeof == 1 and following.sizeof == 8 else REPEATED


def fields_of_type(structure):
    """The fields of a message's structure: (bit, name, kind, name of the length or count, or None)."""
    members = structure.fields()
    place = bit = 0
    while place + 1 < len(members):  # the last are the presence bits
        kind = kind_of(members[place].type, members[place + 1].type)
        has_size = kind in (BYTES, LIST, REPEATED)
        yield bit, members[place].name, kind, members[place + 1].name if has_size else None
        place += 2 if has_size else 1
        bit += 1


def fields_of(message):
    return fields_of_type(gdb.types.get_basic_type(message.type))


def is_marked(message, bit):
    return int(message["present"][bit // 8]) >> bit % 8 & 1


def has_content(message):
    """Whether a message encodes to at least one byte."""
    for bit, name, kind, size in fields_of(message):
        if kind == MESSAGE:
            if is_marked(message, bit) or has_content(message[name]):
                return True
        elif is_marked(message, bit):
            is_left_out = kind == STRING and int(message[name]) == 0 or kind in (LIST, REPEATED) and int(message[size]) == 0
            if not is_left_out:
                return True
    return False


def most_elements():
    """How many elements GDB prints; 0 for any number."""
    if hasattr(gdb, "print_options"):  # from GDB 13 on; knows the options of the command as well
        return gdb.print_options()["max_elements"]
    return gdb.parameter("print elements") or 0


def shown_string(pointer):
    return pointer.lazy_string() if int(pointer) != 0 else pointer


def shown_bytes(pointer, length):
    wanted = min(length, most_elements() or MOST_BYTES, MOST_BYTES)
    words = "1 byte" if length == 1 else f"{length} bytes"
    if wanted == 0:
        return words
    try:
        data = bytes(gdb.selected_inferior().read_memory(int(pointer), wanted)).hex()
    except gdb.MemoryError as error:
        return f"{words} <{error}>"
    return f"{words} {data}{'...' if wanted < length else ''}"


def shown_elements(pointer, count):
    """The array of a repeated field as GDB shows one."""
    if count == 0:
        return "0 elements"
    wanted = min(count, (most_elements() or MOST_ELEMENTS) + 1, MOST_ELEMENTS)
    target = gdb.types.get_basic_type(pointer.type.target())
    if target.code != gdb.TYPE_CODE_PTR and target.sizeof == 1:  # flags, not characters
        try:
            flags = bytes(gdb.selected_inferior().read_memory(int(pointer), wanted))
        except gdb.MemoryError as error:
            return f"<{error}>"
        return "{" + ", ".join(str(flag) for flag in flags) + ("..." if wanted < count else "") + "}"
    array = pointer.cast(pointer.type.target().array(wanted - 1).pointer()).dereference()
    try:
        array.fetch_lazy()
    except gdb.MemoryError as error:
        return f"<{error}>"
    return array


def shown(message, name, kind, size):
    """What GDB is to show as a field: a value, or text as it is."""
    value = message[name]
    if kind == STRING:
        return shown_string(value)
    if kind == BYTES:
        return shown_bytes(value, int(message[size]))
    if kind == REPEATED:
        return shown_elements(value, int(message[size]))
    if kind == LIST:  # as a pointer to an array, whose type carries the count
        return value.cast(value.type.target().array(int(message[size]) - 1).pointer())
    if kind == SCALAR and value.type.sizeof == 1:
        return int(value)  # a flag, not a character
    return value


class MessagePrinter:
    def __init__(self, message):
        self.message = message

    def to_string(self):
        return "{}" if next(self.children(), None) is None else None

    def children(self):
        for bit, name, kind, size in fields_of(self.message):
            if is_marked(self.message, bit) or kind == MESSAGE and has_content(self.message[name]):
                yield name, shown(self.message, name, kind, size)


class BytesPrinter:
    """Prints an element of a repeated bytes field."""

    def __init__(self, element):
        self.element = element

    def to_string(self):
        return shown_bytes(self.element["data"], int(self.element["length"]))


class ListPrinter:
    """Prints a pointer to an array of messages, which is what a list is shown as."""

    def __init__(self, pointer):
        array = gdb.types.get_basic_type(pointer.type).target()
        self.count = array.range()[1] + 1
        self.first = pointer.cast(array.target().pointer())

    def to_string(self):
        return "1 element" if self.count == 1 else f"{self.count} elements"

    def children(self):
        for index in range(self.count):
            element = (self.first + index).dereference()
            try:
                element.fetch_lazy()
            except gdb.MemoryError as error:  # so will be what follows
                yield str(index), f"<{error}>"
                return
            yield str(index), element

    def display_hint(self):
        return "array"


class Printers(gdb.printing.PrettyPrinter):
    def __call__(self, value):
        kind = gdb.types.get_basic_type(value.type)
        if is_message(kind):
            return MessagePrinter(value)
        if is_bytes_element(kind):
            return BytesPrinter(value)
        if kind.code == gdb.TYPE_CODE_PTR:
            target = kind.target().strip_typedefs()
            if target.code == gdb.TYPE_CODE_ARRAY and is_message(gdb.types.get_basic_type(target.target())):
                return ListPrinter(value)
        return None


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers("vesk"), replace=True)
