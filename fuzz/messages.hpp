// What the targets ask of a message, by walking it.
#pragma once

#include <functional>

#include "fuzz/input.hpp"
#include "fuzz/pool.hpp"
#include "tests/support/type_info.hpp"

namespace vesk::fuzz {

using test::FieldInfo;
using test::TypeInfo;

// Calls visit(type, message, index) for every field of a message, then, in the same way, for those of the messages
// inside it, field by field.
template <class Visitor>
void for_every_field(const TypeInfo& type, const void* message, Visitor& visit) {
    for (std::size_t index = 0; index < type.fields.size(); ++index) {
        const FieldInfo& field = type.fields[index];
        visit(type, message, index);
        if (field.kind == Kind::message) {
            for_every_field(*field.nested, test::member_at(message, field.offset), visit);
        } else if (field.kind == Kind::list) {
            const auto* array = test::load<const std::uint8_t*>(message, field.offset);
            const auto count = test::load<std::uint32_t>(message, field.second_offset);
            for (std::size_t i = 0; i < count; ++i) {
                for_every_field(*field.nested, array + i * field.nested->size, visit);
            }
        }
    }
}

inline bool is_number(const FieldInfo& field) { return test::is_scalar_kind(field.kind); }

inline bool is_owner(const FieldInfo& field) { return !is_number(field) && field.kind != Kind::message; }

inline const std::uint8_t* pointer_of(const FieldInfo& field, const void* message) {
    return test::load<const std::uint8_t*>(message, field.offset);
}

// What a pointer member must point at: the string with its NUL, the data, the elements. 0 for a null string.
std::uint64_t pointed_size(const FieldInfo& field, const void* message);

// Of a list or of what others' messages have any number of.
std::size_t element_size(const FieldInfo& field);

inline std::uint64_t number_of(const FieldInfo& field, const void* message) {
    return test::load_scalar(field.kind, message, field.offset);
}

// True if both hold the same: numbers, strings as C reads them, data, elements and presence bits. Where blocks stand
// does not matter, nor does the pointer of an empty bytes field.
bool have_same_values(const TypeInfo& type, const void* left, const void* right);

// The presence bits that belong to no field, as they stand in the last byte.
std::uint8_t spare_bits(const TypeInfo& type, const void* message);

// Changes a message as a careless caller might: presence bits against what the members hold, flags of any byte, strings
// taken away, lists and data cut short. `seed` chooses; 0 leaves the message alone.
void distort(const TypeInfo& type, void* message, std::uint32_t seed);

// The message of an input, decoded by copying and then distorted as the input says; null if it does not decode. It lies
// in `structures`, its blocks in `pool`.
std::uint8_t* take_distorted(const Input& input, Pool& structures, Pool& pool);

// The length of the encoding.
inline std::uint64_t measured(const TypeInfo& type, const void* message, std::uint32_t flags = 0) {
    return type.encode(message, nullptr, 0, nullptr, nullptr, flags);
}

}  // namespace vesk::fuzz
