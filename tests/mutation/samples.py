"""The message types of types.txt as C and C++: what the generator would make of them, in one unit."""

import pathlib

# What a field list calls a scalar kind, and its member's type.
SCALARS = {"uint32": ("Uint32", "uint32_t"), "uint64": ("Uint64", "uint64_t"), "bool": ("Bool", "uint8_t"),
           "sint32": ("Sint32", "int32_t"), "sint64": ("Sint64", "int64_t"), "int32": ("Int32", "int32_t"),
           "int64": ("Int64", "int64_t"), "fixed32": ("Fixed32", "uint32_t"), "fixed64": ("Fixed64", "uint64_t"),
           "sfixed32": ("Sfixed32", "int32_t"), "sfixed64": ("Sfixed64", "int64_t"), "float": ("Float", "float"),
           "double": ("Double", "double"), "enum": ("Enum", "int32_t")}
BY_MEMBER = {"uint32", "uint64", "bool"}  # kinds that follow from the type of their member


def read_types(path):
    types = []
    for line in path.read_text().splitlines():
        words = line.split()
        if not words or words[0] == "#" or line.startswith("#"):
            continue
        if words[0] == "type":
            types.append((f"vesk_{words[1]}", int(words[4]), []))
        else:
            number, name, kind, _, *nested = words
            types[-1][2].append((number, name, kind, f"vesk_{nested[0]}" if nested else ""))
    return types


def members(field):
    _, name, kind, nested = field
    if kind == "string":
        return [f"char *{name}"]
    if kind == "bytes":
        return [f"uint8_t *{name}", f"uint64_t {name}_length"]
    if kind == "list":
        return [f"{nested} *{name}", f"uint32_t {name}_count"]
    if "_" in kind:
        element = kind.split("_")[1]
        elements = {"string": "char *", "bytes": "vesk_bytes"}
        return [f"{elements.get(element) or SCALARS[element][1]} *{name}", f"uint32_t {name}_count"]
    return [f"{SCALARS[kind][1] if kind in SCALARS else nested} {name}"]


def structure(type_name, presence_bytes, fields):
    lines = [f"    {member};\n" for field in fields for member in members(field)]
    return (f"typedef struct {type_name} {{\n{''.join(lines)}    uint8_t present[{presence_bytes}];\n}} {type_name};\n"
            f"VESK_API uint64_t {type_name}_encode_ext(const {type_name} *, void *, uint64_t, vesk_segment *, uint32_t *, uint32_t);\n"
            f"VESK_API int32_t {type_name}_decode_ext({type_name} *, const void *, uint64_t, vesk_alloc, void *, uint32_t);\n"
            f"VESK_API int32_t {type_name}_duplicate({type_name} *, const {type_name} *, vesk_alloc, void *);\n"
            f"VESK_API void {type_name}_free_ext({type_name} *, vesk_release, void *, uint32_t);\n\n")


def field_word(type_name, field):
    number, name, kind, _ = field
    if kind == "bytes":
        return f"bytes<{number}>(&{type_name}::{name}, &{type_name}::{name}_length)"
    if kind == "list":
        return f"list<{number}>(&{type_name}::{name}, &{type_name}::{name}_count)"
    if "_" in kind:
        word, element = kind.split("_")
        word = {"string": f"strings<{number}>", "bytes": f"blobs<{number}>"}.get(element) or (
            f"{word}<{number}, {SCALARS[element][0]}>")
        return f"{word}(&{type_name}::{name}, &{type_name}::{name}_count)"
    if kind in SCALARS and kind not in BY_MEMBER:
        return f"scalar<{number}, {SCALARS[kind][0]}>(&{type_name}::{name})"
    return f"field<{number}>(&{type_name}::{name})"


def field_list(type_name, fields):
    words = ",\n    ".join(field_word(type_name, field) for field in fields)
    return f"template <>\ninline constexpr auto schema<{type_name}> = fields(\n    {words});\n\n"


IMPORTED = """template <>
inline constexpr ImportedFunctions<vesk_drin_eid_st> imported<vesk_drin_eid_st>{
    vesk_drin_eid_st_encode_ext, vesk_drin_eid_st_decode_ext, vesk_drin_eid_st_duplicate, vesk_drin_eid_st_free_ext};

"""


def write(types_file, folder):
    """Writes the unit below `folder`, under the names by which tests/support includes the service's."""
    types = read_types(types_file)

    def put(name, text):
        path = pathlib.Path(folder) / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    put("vesk/client_service.h",
        "#pragma once\n#include <vesk/drin_eid.h>\n#ifdef __cplusplus\nextern \"C\" {\n#endif\n" +
        "".join(structure(*one) for one in types) + "#ifdef __cplusplus\n}\n#endif\n")
    put("client_service/client_service_fields.hpp",
        "#pragma once\n#include <vesk/client_service.h>\n#include \"runtime/schema.hpp\"\nnamespace vesk {\n" + IMPORTED +
        "".join(field_list(name, fields) for name, _, fields in types) + "}\n")
    put("client_service/client_service_exports.cpp",
        "#include \"client_service/client_service_fields.hpp\"\n#include \"runtime/export.hpp\"\n" +
        "".join(f"VESK_EXPORT({name})\n" for name, _, _ in types))
    put("all_types.hpp",
        "#pragma once\n#define VESK_TEST_TYPES(X)" + "".join(f" \\\n    X({name})" for name, _, _ in types) + "\n")
