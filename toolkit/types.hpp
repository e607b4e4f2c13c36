// Types that are described here, by the entity identifier's library, or nowhere.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>
#include <cstring>

// The identifier's library need not have it: the address is then null.
extern "C" [[gnu::weak]] const vesk_type vesk_drin_eid_st_type;

namespace vesk {

// The description of the entity identifier, by its library itself; null if it has none.
inline const vesk_type* describe_elsewhere() { return &vesk_drin_eid_st_type; }

constexpr bool is_elsewhere(const vesk_type* type) { return (type->flags & VESK_TYPE_ELSEWHERE) != 0; }

// Whether a type of another library is the entity identifier; its name says so, which is its whole name in C in the
// tables of others. One that is not is opaque: nobody here knows the functions of its library.
inline bool is_identifier(const vesk_type* type) {
    const char* name = vesk_type_name(type);
    if (std::strncmp(name, "vesk_", 5) == 0) name += 5;
    return std::strcmp(name, "drin_eid_st") == 0;
}

// The type whose fields can be looked at: that itself, or of an identifier the description that its library brings.
// Null if there is none.
inline const vesk_type* describe(const vesk_type* type) {
    if (!is_elsewhere(type)) return type;
    return is_identifier(type) ? describe_elsewhere() : nullptr;
}

// What the table of the 95 types has in the identifier's place, so that it need not be known by its name. Of this
// library alone: libvesk_text has no table.
const vesk_type* own_identifier();

inline constexpr std::uint32_t most_fields = 64;  // of a type: its presence bits fit into a word

// The type of a nested message or of a list's elements, which such a field has.
inline const vesk_type* nested_type(const vesk_field* field) {
    const vesk_type* const type = vesk_field_nested(field);
    if (type == nullptr) __builtin_unreachable();
    return type;
}

// The field that is declared after this one; past the last there is no field, only its address.
inline const vesk_field* next_row(const vesk_type* type, const vesk_field* field) {
    const char* const row = reinterpret_cast<const char*>(field);
    return reinterpret_cast<const vesk_field*>(row + type->field_size);
}

}  // namespace vesk
