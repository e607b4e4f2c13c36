"""The message types of types.txt as C and C++: what the generator would make of them, in one unit."""

import pathlib

SCALARS = {"uint32": "uint32_t", "uint64": "uint64_t", "bool": "uint8_t"}


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
    return [f"{SCALARS.get(kind, nested)} {name}"]


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
