"""GDB shows a message as its present fields:

    (gdb) source DIR/share/vesk/gdb/vesk_gdb.py
    (gdb) print answer
    $1 = {pem_list = 2 elements = {{entity_common = {f2 = "PSU 1"}, f3 = 4800}, {f3 = 4801}}}

A field is present if its presence bit is set; a nested message also if it has content, since it is encoded then. What is
present and null, or cannot be read, is shown as that.

No type is known here by its name. The form of a structure says it all: a member for each field in the order of the presence
bits, after the pointer of a bytes field its length, after that of a list its count, and the presence bits at the end. So this
serves every type of the library, and the entity identifier of any other library."""

import gdb
import gdb.printing
import gdb.types

SCALAR, STRING, BYTES, MESSAGE, LIST = range(5)
MOST_BYTES = 65536  # of a bytes field, even if GDB may print any number of elements


def is_message(kind):
    """Whether a structure is a message, by its name and last member."""
    if kind.code != gdb.TYPE_CODE_STRUCT or not (kind.tag or "").startswith("vesk_"):
        return False
    members = kind.fields()
    return bool(members) and members[-1].name == "present"


def kind_of(member):
    member = gdb.types.get_basic_type(member)
    if member.code == gdb.TYPE_CODE_STRUCT:
        return MESSAGE
    if member.code != gdb.TYPE_CODE_PTR:
        return SCALAR
    target = gdb.types.get_basic_type(member.target())
    if target.code == gdb.TYPE_CODE_STRUCT:
        return LIST
    return STRING if target.name == "char" else BYTES


def fields_of(message):
    """The fields of a message: (bit, name, kind, name of the length or count, or None)."""
    members = iter(gdb.types.get_basic_type(message.type).fields()[:-1])
    for bit, member in enumerate(members):
        kind = kind_of(member.type)
        yield bit, member.name, kind, next(members).name if kind in (BYTES, LIST) else None


def is_marked(message, bit):
    return int(message["present"][bit // 8]) >> bit % 8 & 1


def has_content(message):
    """Whether a message encodes to at least one byte."""
    for bit, name, kind, size in fields_of(message):
        if kind == MESSAGE:
            if is_marked(message, bit) or has_content(message[name]):
                return True
        elif is_marked(message, bit):
            is_left_out = kind == STRING and int(message[name]) == 0 or kind == LIST and int(message[size]) == 0
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


def shown(message, name, kind, size):
    """What GDB is to show as a field: a value, or text as it is."""
    value = message[name]
    if kind == STRING:
        return shown_string(value)
    if kind == BYTES:
        return shown_bytes(value, int(message[size]))
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
        if kind.code == gdb.TYPE_CODE_PTR:
            target = kind.target().strip_typedefs()
            if target.code == gdb.TYPE_CODE_ARRAY and is_message(gdb.types.get_basic_type(target.target())):
                return ListPrinter(value)
        return None


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers("vesk"), replace=True)
