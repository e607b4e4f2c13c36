// A message's members by the facts of its type, and which of its fields are encoded.
#pragma once

#include <vesk/drin_eid.h>
#include <vesk/vesk_toolkit.h>

#include <cstdint>
#include <cstring>

#include "toolkit/kinds.hpp"
#include "toolkit/types.hpp"

namespace vesk {

inline constexpr std::uint64_t longest_content = UINT32_MAX;  // in bytes, that the wire can carry

// ---- Members -------------------------------------------------------------------------------------------------------

inline const void* member_at(const void* message, std::uint64_t offset) {
    return static_cast<const std::uint8_t*>(message) + offset;
}

// Copied bytewise, since the type of a pointer member is not known here.
template <class Member>
Member load_member(const void* message, std::uint32_t offset) {
    Member member;
    std::memcpy(&member, member_at(message, offset), sizeof member);
    return member;
}

// A scalar's number (kinds.hpp).
inline std::uint64_t load_scalar(const vesk_field* field, const void* message) {
    switch (field->kind) {
        case VESK_KIND_UINT32: return load_member<std::uint32_t>(message, field->offset);
        case VESK_KIND_UINT64: return load_member<std::uint64_t>(message, field->offset);
        case VESK_KIND_BOOL: return load_member<std::uint8_t>(message, field->offset);
        default: return load_number(field->kind, member_at(message, field->offset));
    }
}

inline const char* load_string(const vesk_field* field, const void* message) {
    return load_member<const char*>(message, field->offset);
}

// The data of a bytes field.
struct Data {
    const std::uint8_t* at;
    std::uint64_t length;
};
inline Data load_data(const vesk_field* field, const void* message) {
    return {load_member<const std::uint8_t*>(message, field->offset),
            load_member<std::uint64_t>(message, field->size_offset)};
}

struct List {
    const vesk_type* type;  // of its elements
    const void* array;
    std::uint32_t count;
};
inline List load_list(const vesk_field* field, const void* message) {
    return {nested_type(field), load_member<const void*>(message, field->offset),
            load_member<std::uint32_t>(message, field->size_offset)};
}
inline const void* element_at(const List& list, std::uint32_t index) {
    return member_at(list.array, std::uint64_t{index} * list.type->structure_size);
}

// A repeated field.
struct Repeated {
    std::uint16_t kind;  // of its elements
    const void* array;
    std::uint32_t count;
};
inline Repeated load_repeated(const vesk_field* field, const void* message) {
    return {kind_of_values(field), load_member<const void*>(message, field->offset),
            load_member<std::uint32_t>(message, field->size_offset)};
}
inline const void* element_at(const Repeated& repeated, std::uint32_t index) {
    return member_at(repeated.array, std::uint64_t{index} * size_of_element(repeated.kind));
}
// A null string is encoded as an empty one.
inline const char* string_at(const Repeated& repeated, std::uint32_t index) {
    const char* const string = load_member<const char*>(element_at(repeated, index), 0);
    return string != nullptr ? string : "";
}
inline Data data_at(const Repeated& repeated, std::uint32_t index) {
    const vesk_bytes bytes = load_member<vesk_bytes>(element_at(repeated, index), 0);
    return {bytes.data, bytes.length};
}

// The field that is declared before this one, which may be the address past the last.
inline const vesk_field* previous_row(const vesk_type* type, const vesk_field* field) {
    return reinterpret_cast<const vesk_field*>(reinterpret_cast<const char*>(field) - type->field_size);
}

// ---- What is encoded -----------------------------------------------------------------------------------------------

// The presence bits of a message, of which there are at most 64.
inline std::uint64_t load_presence(const vesk_type* type, const void* message) {
    const std::uint8_t* const bytes = static_cast<const std::uint8_t*>(message) + type->presence_offset;
    std::uint64_t presence = 0;
    for (std::uint32_t bit = 0; bit < type->field_count; bit += 8) presence |= std::uint64_t{bytes[bit / 8]} << bit;
    return presence;
}

inline bool is_marked(std::uint64_t presence, const vesk_field* field) {
    return (presence >> field->presence_bit & 1) != 0;
}

// Whether a field that is no nested message is encoded.
inline bool is_written(std::uint64_t presence, const vesk_field* field, const void* message) {
    if (!is_marked(presence, field)) return false;
    if (field->kind == VESK_KIND_STRING) return load_string(field, message) != nullptr;
    if (field->kind < VESK_KIND_LIST || !has_count(field)) return true;
    return load_member<std::uint32_t>(message, field->size_offset) != 0;
}

// Whether encoding the message would write anything; of an identifier that nobody describes its library says so, of
// another library's message whether a byte of it is not 0.
bool has_content(const vesk_type* type, const void* message);

// Whether a field is encoded: a nested message with its bit or with content.
inline bool is_encoded(std::uint64_t presence, const vesk_field* field, const void* message) {
    if (field->kind != VESK_KIND_MESSAGE) return is_written(presence, field, message);
    return is_marked(presence, field) || has_content(vesk_field_nested(field), member_at(message, field->offset));
}

// ---- Identifiers ---------------------------------------------------------------------------------------------------

inline std::uint64_t measure_identifier(const void* identifier) {
    return vesk_drin_eid_st_encode_ext(static_cast<const vesk_drin_eid_st*>(identifier), nullptr, 0, nullptr, nullptr,
                                       0);
}

// Into just as many bytes as were measured. With a segment count, by which its library tells writing from measuring.
inline void put_identifier(const void* identifier, std::uint8_t* at, std::uint64_t size) {
    std::uint32_t segments = 0;
    vesk_drin_eid_st_encode_ext(static_cast<const vesk_drin_eid_st*>(identifier), at, size, nullptr, &segments, 0);
}

}  // namespace vesk
