#!/usr/bin/env python3
"""Makes the golden vectors: make_vectors.py [FOLDER] writes FOLDER/*.jsonl and FOLDER/SHA256SUMS, by default beside itself.

What a vector expects comes from the rules as they are written here, applied to the table of fields that was typed in by hand
(tests/fields.txt). Nothing of the library has a part in it: tests/vectors holds the library, the second implementation and
a general protobuf to what comes out. docs/vectors.md says what a line means.
"""

import base64
import collections
import hashlib
import json
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent

Field = collections.namedtuple("Field", "number name kind nested")

VARINT, FIXED64, LENGTH, START_GROUP, END_GROUP, FIXED32 = range(6)
SCALARS = ("uint32", "uint64", "bool")
MALFORMED, UNKNOWN_WIRE_TYPE, WRONG_WIRE_TYPE = -1, -2, -3

UNKNOWN = 1000  # a field number that no type has


def read_table():
    """The fields of every type, in the order of their declaration."""
    types = {}
    for line in (HERE.parent / "tests/fields.txt").read_text(encoding="ascii").splitlines():
        words = line.split()
        if not words or words[0] == "#" or line.startswith("#"):
            continue
        if words[0] == "type":
            types[words[1]] = fields = []
        else:
            fields.append(Field(int(words[0]), words[1], words[2], words[4] if len(words) > 4 else None))
    return types


TYPES = read_table()
# The entity identifier as the stand-in's library writes it, which is no part of the table.
IDENTIFIER = {
    "drin_eid_st": [Field(i, f"f{i}", "uint32", None) for i in range(1, 6)]
    + [Field(6, "element_list", "list", "drin_eid_element")],
    "drin_eid_element": [Field(i, f"f{i}", "uint32", None) for i in (1, 2)],
}
ALL = {**TYPES, **IDENTIFIER}


# ---- Bytes -----------------------------------------------------------------------------------------------------------


def varint(value, size=1):
    """`value`, in `size` bytes or more: continuation bytes without content make it longer than it need be."""
    out = bytearray()
    while value >= 128 or len(out) + 1 < size:
        out.append(value % 128 | 128)
        value >>= 7
    return bytes([*out, value])


def tag(number, wire_type, size=1):
    return varint(number * 8 + wire_type, size)


def sized(content):
    return varint(len(content)) + content


def one(field, value):
    """A whole field: a number, content, or a list of contents."""
    if field.kind in SCALARS:
        return tag(field.number, VARINT) + varint(value)
    contents = value if field.kind == "list" else [value]
    return b"".join(tag(field.number, LENGTH) + sized(content) for content in contents)


# ---- The rules of reading ----------------------------------------------------------------------------------------------


class Refused(Exception):
    def __init__(self, code):
        super().__init__(code)
        self.code = code


class Reader:
    """Reads one message of data[at:end]. `differs` takes the names of the rows of docs/differences.md that apply."""

    def __init__(self, type_name, data, at, end, differs):
        self.fields = {field.number: field for field in ALL[type_name]}
        self.data, self.at, self.end, self.differs = data, at, end, differs
        self.values = {}

    def read(self):
        """The values of the fields that occur, by name; bytes for strings, too."""
        while self.at < self.end:
            number, wire_type = self.tag()
            field = self.fields.get(number)
            if field is None:
                self.skip(number, wire_type)
            else:
                self.known(field, wire_type)
        return self.values

    def varint(self, bits):
        """The low bits of a varint, all that it says, and its bytes."""
        value, at = 0, self.at
        while True:
            if at >= self.end:
                raise Refused(MALFORMED)
            value |= (self.data[at] & 127) << 7 * (at - self.at)
            at += 1
            if self.data[at - 1] < 128:
                break
        taken, self.at = at - self.at, at
        return value % 2**bits, value, taken

    def tag(self):
        value, _, taken = self.varint(32)
        if taken > 5:
            self.differs.add("tag_of_more_than_5_bytes_is_read")
        return value >> 3, value & 7

    def length(self):
        value, all_bits, taken = self.varint(32)
        if taken > 5:
            self.differs.add("length_of_more_than_5_bytes_is_read")
        elif all_bits >= 2**31:
            self.differs.add("length_above_2_gib_keeps_its_low_32_bits")
        return value

    def length_within(self):
        length = self.length()
        if self.at + length > self.end:
            raise Refused(MALFORMED)
        return length

    def number(self, bits):
        value, all_bits, taken = self.varint(bits)
        if taken > 10:
            self.differs.add("number_of_more_than_10_bytes_is_read")
        return value, all_bits

    def skip(self, number, wire_type):
        if number == 0:
            self.differs.add("field_number_0_is_unknown_field")
        if wire_type == VARINT:
            self.number(64)
        elif wire_type == LENGTH:
            length = self.length()
            self.at += length
        elif wire_type in (FIXED32, FIXED64):
            self.at += 4 if wire_type == FIXED32 else 8
        else:
            if wire_type == START_GROUP:
                self.differs.add("group_is_refused")
            raise Refused(UNKNOWN_WIRE_TYPE)
        if self.at > self.end:  # and the message ends there
            self.differs.add("unknown_field_cut_short_is_accepted")
        elif number != 0:
            self.differs.add("unknown_field_is_dropped")

    def known(self, field, wire_type):
        if wire_type != (VARINT if field.kind in SCALARS else LENGTH):
            if wire_type == START_GROUP:
                self.differs.add("group_is_refused")
            elif wire_type in (VARINT, FIXED64, LENGTH, FIXED32):
                self.differs.add("known_field_of_other_wire_type_is_refused")
            raise Refused(WRONG_WIRE_TYPE)
        again = field.name in self.values
        if again and field.kind in ("string", "bytes", "list"):
            self.differs.add("list_in_two_runs_is_refused" if field.kind == "list" else f"{field.kind}_twice_is_refused")
            raise Refused(MALFORMED)
        if field.kind == "uint64":
            value, _ = self.number(64)
        elif field.kind == "uint32":
            value, _ = self.number(32)
        elif field.kind == "bool":
            low_bits, all_bits = self.number(32)
            value = low_bits != 0
            if value != (all_bits % 2**64 != 0):
                self.differs.add("flag_is_read_from_32_bits")
        elif field.kind == "list":
            value = self.list(field)
        elif field.kind == "message":
            if again:
                self.differs.add("nested_message_twice_is_replaced")
            value = self.nested(field)
        else:
            length = self.length_within()
            value = self.data[self.at:self.at + length]
            self.at += length
            if field.kind == "string" and b"\0" in value:
                self.differs.add("string_ends_at_embedded_nul")
        self.values[field.name] = value

    def nested(self, field):
        length = self.length_within()
        value = Reader(field.nested, self.data, self.at, self.at + length, self.differs).read()
        self.at += length
        return value

    def list(self, field):
        # The elements are counted before the first is read: a damaged length or tag further on decides the code.
        start, count, number = self.at, 0, field.number
        while number == field.number:
            length = self.length_within()
            self.at += length
            count += 1
            if self.at == self.end:
                break
            number, wire_type = self.tag()
            if number == field.number and wire_type != LENGTH:
                self.differs.add("list_element_of_other_wire_type_is_read_as_element")
        self.at = start
        elements = [self.nested(field)]
        for _ in range(count - 1):
            self.tag()
            elements.append(self.nested(field))
        return elements


# ---- What was read, as JSON and as bytes -------------------------------------------------------------------------------


def present_fields(type_name, values):
    return [(field, values[field.name]) for field in ALL[type_name] if field.name in values]


def as_json(type_name, values):
    def of(field, value):
        if field.kind == "message":
            return as_json(field.nested, value)
        if field.kind == "list":
            return [as_json(field.nested, element) for element in value]
        if field.kind == "uint64":
            return str(value)
        if field.kind == "string":
            return value.decode("utf-8")
        return base64.b64encode(value).decode("ascii") if field.kind == "bytes" else value

    return {field.name: of(field, value) for field, value in present_fields(type_name, values)}


def as_bytes(type_name, values):
    def of(field, value):
        if field.kind == "message":
            return as_bytes(field.nested, value)
        if field.kind == "list":
            return [as_bytes(field.nested, element) for element in value]
        return value.split(b"\0")[0] if field.kind == "string" else value

    return b"".join(one(field, of(field, value)) for field, value in present_fields(type_name, values))


def has_identifier(type_name, values):
    """Whether bytes of the identifier's own stand in a message."""
    for field, value in present_fields(type_name, values):
        if field.nested is not None:
            for element in value if field.kind == "list" else [value]:
                if field.nested in IDENTIFIER or has_identifier(field.nested, element):
                    return True
    return False


def is_declared_out_of_order(type_name, values):
    numbers = [field.number for field, _ in present_fields(type_name, values)]
    return numbers != sorted(numbers) or any(
        is_declared_out_of_order(field.nested, element)
        for field, value in present_fields(type_name, values) if field.nested is not None
        for element in (value if field.kind == "list" else [value]))


def expectation(type_name, data):
    """What must come of reading `data`: the line's keys after its bytes, and whether identifiers are in it."""
    differs = set()
    line = {}
    identifier = False
    try:
        values = Reader(type_name, data, 0, len(data), differs).read()
        line["json"] = as_json(type_name, values)
        canonical = as_bytes(type_name, values)
        if canonical != data:
            line["canonical"] = canonical.hex()
        if is_declared_out_of_order(type_name, values):
            differs.add("fields_are_written_in_declared_order")
        identifier = has_identifier(type_name, values)
    except Refused as refused:
        line["code"] = refused.code
    if differs:
        line["differs"] = sorted(differs)
    return line, identifier


# ---- Messages to send --------------------------------------------------------------------------------------------------


NUMBERS = {"uint32": (0, 1, 127, 128, 2**32 - 1), "uint64": (0, 1, 127, 128, 2**32 - 1, 2**32, 2**63, 2**64 - 1),
           "bool": (0, 1)}
CONTENTS = {"string": (b"", b"a", "24 °C, 東 \"x\\y\"\t/".encode(), b"0123456789abcdef" * 8),
            "bytes": (b"", b"\0", b"\xff\xfe\xfd", bytes(range(256)))}


class Full:
    """Messages in which every field occurs; no two numbers and no two contents are the same."""

    def __init__(self, elements=1):
        self.last = 0
        self.elements = elements

    def number(self, kind):
        self.last += 1
        return self.last % 2 if kind == "bool" else self.last * (2**32 + 1 if kind == "uint64" else 7)

    def content(self, kind):
        self.last += 1
        return f"text {self.last}".encode() if kind == "string" else bytes([self.last % 256, 0, self.last // 256])

    def value(self, field):
        if field.kind in SCALARS:
            return self.number(field.kind)
        if field.kind == "message":
            return self.message(field.nested)
        if field.kind == "list":
            return [self.message(field.nested) for _ in range(self.elements)]
        return self.content(field.kind)

    def message(self, type_name, leave_out=()):
        return b"".join(one(field, self.value(field)) for field in ALL[type_name] if field.nested not in leave_out)


def emptiest(type_name):
    """Every field occurs, with 0 or nothing in it; lists have one empty element."""
    return b"".join(one(field, 0 if field.kind in SCALARS else [b""] if field.kind == "list" else b"")
                    for field in ALL[type_name])


def smallest_with(kind):
    """A field of this kind in the type with the fewest fields; the name of the type and the field."""
    return min(((name, field) for name, fields in TYPES.items() for field in fields
                if field.kind == kind and field.nested not in IDENTIFIER), key=lambda found: len(TYPES[found[0]]))


def of_fields():
    """Each field of each type alone, with the values at the edges of its kind; nothing, everything, everything empty."""
    for name, fields in TYPES.items():
        yield name, "nothing", b""
        yield name, "every field", Full().message(name)
        yield name, "every field, empty or 0", emptiest(name)
        for field in fields:
            for value in NUMBERS.get(field.kind, ()):
                yield name, f"{field.name}: {value}", one(field, value)
            for value in CONTENTS.get(field.kind, ()):
                yield name, f"{field.name}: {field.kind} of {len(value)} bytes", one(field, value)
            if field.kind == "message":
                yield name, f"{field.name}: empty", one(field, b"")
                yield name, f"{field.name}: every field of it", one(field, Full().message(field.nested))
            if field.kind == "list":
                full = Full()
                yield name, f"{field.name}: an empty element", one(field, [b""])
                yield name, f"{field.name}: two elements", one(field, [full.message(field.nested), b""])
                yield name, f"{field.name}: 20 elements", one(field, [emptiest(field.nested)] * 20)


def of_identifier():
    """The fields of the identifier and of its elements alone, in the smallest message that holds one."""
    name, holder = next((name, field) for name, fields in TYPES.items() for field in fields
                        if field.nested == "drin_eid_st")
    *numbers, elements = IDENTIFIER["drin_eid_st"]
    for field in numbers:
        for value in NUMBERS["uint32"]:
            yield name, f"{holder.name}.{field.name}: {value}", one(holder, one(field, value))
    for count in (1, 2, 100):
        yield name, f"{holder.name}: {count} elements", one(holder, one(elements, [b""] * count))
    for field in IDENTIFIER["drin_eid_element"]:
        for value in NUMBERS["uint32"]:
            yield (name, f"{holder.name}.element_list.{field.name}: {value}",
                   one(holder, one(elements, [one(field, value)])))


def of_wire():
    """What a message may look like on the wire without being refused."""
    for name, fields in TYPES.items():
        full = Full().message(name, leave_out=IDENTIFIER)
        unknown = [tag(UNKNOWN, VARINT) + varint(2**64 - 1), tag(UNKNOWN + 1, FIXED64) + b"\x81" * 8,
                   tag(UNKNOWN + 2, LENGTH) + sized(b"unknown"), tag(UNKNOWN + 3, FIXED32) + b"\x81" * 4]
        yield name, "unknown fields alone", b"".join(unknown)
        yield name, "unknown fields before and after all others", b"".join([*unknown[:2], full, *unknown[2:]])
        backwards = [one(field, Full().value(field)) for field in reversed(fields)]
        yield name, "every field, in reverse order", b"".join(backwards)
    for kind in SCALARS:
        name, field = smallest_with(kind)
        number = tag(field.number, VARINT)
        for size in range(2, 13):
            yield name, f"{field.name}: 5 in {size} bytes", number + varint(5, size)
            yield name, f"{field.name}: 0 in {size} bytes", number + varint(0, size)
            if size <= 10:
                yield name, f"{field.name}: the tag in {size} bytes", tag(field.number, VARINT, size) + varint(5)
        for value in (2, 2**31, 2**32, 2**32 + 1, 2**35 - 1, 2**35, 2**63, 2**64 - 1, 2**64, 2**70 - 1):
            yield name, f"{field.name}: {value}", number + varint(value)
        yield name, f"{field.name}: twice", number + varint(5) + number + varint(0)
        yield name, f"{field.name}: three times", (number + varint(9)) * 2 + number + varint(2**32 - 1)
    for kind in ("string", "bytes", "message", "list"):
        name, field = smallest_with(kind)
        content = b"" if kind in ("message", "list") else b"abc"
        for size in range(2, 11):
            yield (name, f"{field.name}: the length in {size} bytes",
                   tag(field.number, LENGTH) + varint(len(content), size) + content)
            yield name, f"{field.name}: the tag in {size} bytes", tag(field.number, LENGTH, size) + sized(content)
        for bit in (32, 34):
            yield (name, f"{field.name}: a length with bit {bit} set",
                   tag(field.number, LENGTH) + varint(len(content) + 2**bit) + content)
    strings = [(name, field) for name, fields in TYPES.items() for field in fields if field.kind == "string"]
    for name, field in strings:
        yield name, f"{field.name}: a NUL inside", one(field, b"ab\0cd")
    name, field = strings[0]
    for content in (b"\0", b"\0a", b"a\0", b"\x01\x1f\x7f", "\u00e9\u2028\u2029\ufeff".encode(), "\U0001f511".encode()):
        yield name, f"{field.name}: {content!a}"[:60], one(field, content)
    for name, fields in TYPES.items():
        for field in fields:
            if field.kind == "message" and field.nested in TYPES:
                numbers = [one(inner, 1) for inner in ALL[field.nested] if inner.kind in SCALARS] or [b""]
                yield (name, f"{field.name}: twice, the second replaces the first",
                       one(field, numbers[0]) + one(field, numbers[-1]))
            if field.kind == "list" and field.nested in TYPES:
                yield (name, f"{field.name}: its second element under wire type 0",
                       one(field, [b""]) + tag(field.number, VARINT) + sized(b""))
    for name in ("pem_data", "event_data"):
        for wire_type, after in ((VARINT, varint(5)), (FIXED64, b"\1" * 8), (LENGTH, sized(b"abc")), (FIXED32, b"\1" * 4)):
            for number in (0, UNKNOWN, 2**29 - 1):
                whole = tag(number, wire_type) + after
                for length in range(len(tag(number, wire_type)), len(whole) + 1):
                    yield name, f"field {number} of wire type {wire_type}, {len(whole) - length} bytes missing", whole[:length]
        for size in (9, 10, 11):
            yield name, f"an unknown number of {size} bytes", tag(UNKNOWN, VARINT) + varint(5, size)
        yield name, "an unknown length of 6 bytes", tag(UNKNOWN, LENGTH) + varint(3, 6) + b"abc"
        yield name, "an unknown field longer than any message", tag(UNKNOWN, LENGTH) + varint(2**32 - 1) + b"abc"


def of_truncated():
    """Small messages up to each of their bytes: good at the end of a field, refused elsewhere."""
    for name in ("pem_data", "memory_data", "led_data", "sdr_data_object", "req_inv_data", "inv_debug_msg",
                 "resp_admin_memory_data"):
        full = Full(elements=2).message(name, leave_out=IDENTIFIER)[:120]
        for length in range(1, len(full)):
            yield name, f"the first {length} of {len(full)} bytes", full[:length]


def under(number, wire_type):
    """Something under a wire type that is not the field's; a group that ends."""
    return tag(number, wire_type) + (tag(number, END_GROUP) if wire_type == START_GROUP else b"\0" * 8)


def of_refused():
    """What is refused, with each code."""
    for place, (name, fields) in enumerate(TYPES.items()):
        for position, field in enumerate(fields):
            is_number = field.kind in SCALARS
            wire_type = (LENGTH if is_number else VARINT, FIXED64, START_GROUP, FIXED32, 6, END_GROUP, 7)[position % 7]
            if position < 7 or field.nested is not None:
                yield name, f"{field.name} under wire type {wire_type}", under(field.number, wire_type)
            if field.kind in ("string", "bytes"):
                yield name, f"{field.name}: twice", one(field, b"a") + one(field, b"b")
                yield name, f"{field.name}: 5 bytes that are not there", tag(field.number, LENGTH) + varint(5) + b"abcd"
            elif field.kind == "list":
                for other in [other for other in fields if other.kind in SCALARS][:1]:
                    yield (name, f"{field.name}: in two runs around {other.name}",
                           one(field, [b""]) + one(other, 1) + one(field, [b""]))
                yield (name, f"{field.name}: in two runs around an unknown field",
                       one(field, [b""]) + tag(UNKNOWN, VARINT) + varint(1) + one(field, [b""]))
                yield (name, f"{field.name}: its first element wrong within, its second cut short",
                       one(field, [tag(1, 7)]) + tag(field.number, LENGTH) + varint(9))
            elif field.kind == "message":
                yield name, f"{field.name}: longer than the message", tag(field.number, LENGTH) + varint(2) + b"\x08"
                yield name, f"{field.name}: an unknown field of wire type 7 in it", one(field, tag(UNKNOWN, 7))
        wire_type = (START_GROUP, END_GROUP, 6, 7)[place % 4]
        yield name, f"an unknown field of wire type {wire_type}", under(UNKNOWN, wire_type)
        yield name, "a tag that does not end", b"\x80"
    for name in ("pem_data", "led_data", "req_inv_data"):
        yield name, "a tag of 11 bytes that does not end", b"\xff" * 11
        yield name, "an unknown number that does not end", tag(UNKNOWN, VARINT) + b"\xff" * 3
        yield name, "an unknown length that does not end", tag(UNKNOWN, LENGTH) + b"\xff" * 3
    for kind in SCALARS:
        name, field = smallest_with(kind)
        for size in range(0, 12):
            yield name, f"{field.name}: a number of {size} bytes that does not end", tag(field.number, VARINT) + b"\xff" * size
    for kind in ("string", "bytes", "message", "list"):
        name, field = smallest_with(kind)
        for length in (1, 127, 128, 2**31 - 1, 2**31, 2**32 - 1, 2**32 + 1):
            yield name, f"{field.name}: {length} bytes that are not there", tag(field.number, LENGTH) + varint(length)


FILES = {"fields": [of_fields], "wire": [of_wire], "truncated": [of_truncated], "refused": [of_refused]}
IDENTIFIER_FILE = "entity_identifier"


def make():
    """The text of each file, by name. A message with the identifier's own bytes goes into the file about these."""
    lines = {f"{name}.jsonl": [] for name in (*FILES, IDENTIFIER_FILE)}
    seen = set()
    for file, sources in {**FILES, IDENTIFIER_FILE: [of_identifier]}.items():
        for source in sources:
            for name, about, data in source():
                if (name, data) in seen:
                    continue
                seen.add((name, data))
                expected, identifier = expectation(name, data)
                line = {"type": name, "about": about, "hex": data.hex(), **expected}
                lines[f"{IDENTIFIER_FILE if identifier else file}.jsonl"].append(json.dumps(line, ensure_ascii=False))
    return {name: "".join(f"{line}\n" for line in of_file) for name, of_file in lines.items()}


def main(folder=HERE):
    folder = pathlib.Path(folder)
    sums = ""
    for name, text in sorted(make().items()):
        data = text.encode()
        (folder / name).write_bytes(data)
        sums += f"{hashlib.sha256(data).hexdigest()}  {name}\n"
    (folder / "SHA256SUMS").write_text(sums, encoding="ascii")


if __name__ == "__main__":
    main(*sys.argv[1:])
