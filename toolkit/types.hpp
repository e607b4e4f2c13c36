// The types that the toolkit knows, and what the entity identifier's library says of its own.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>

// The identifier's library need not have it: the address is then null.
extern "C" [[gnu::weak]] const vesk_type vesk_drin_eid_st_type;

namespace vesk {

// The description of a type of another library, by that library itself; null if it has none.
inline const vesk_type* describe_elsewhere() { return &vesk_drin_eid_st_type; }

constexpr bool is_elsewhere(const vesk_type* type) { return (type->flags & VESK_TYPE_ELSEWHERE) != 0; }

// The type whose fields can be looked at: that itself, or of an identifier the description that its library brings.
// Null if there is none.
inline const vesk_type* describe(const vesk_type* type) { return is_elsewhere(type) ? describe_elsewhere() : type; }

inline constexpr std::uint32_t most_fields = 64;  // of a type: its presence bits fit into a word

// The field that is declared after this one; past the last there is no field, only its address.
inline const vesk_field* next_row(const vesk_type* type, const vesk_field* field) {
    const char* const row = reinterpret_cast<const char*>(field);
    return reinterpret_cast<const vesk_field*>(row + type->field_size);
}

}  // namespace vesk
