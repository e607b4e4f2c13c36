// Where the fields of an encoding stand, nested messages included, found by the decoder's rules.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "tests/support/type_info.hpp"

namespace vesk::fuzz {

using test::FieldInfo;
using test::TypeInfo;

struct FoundField {
    const TypeInfo* type;   // of the message that it stands in
    const FieldInfo* info;  // null if the type does not have it
    std::uint32_t number;
    std::uint32_t wire_type;
    std::size_t start;    // of the tag
    std::size_t value;    // the position behind the tag: a number, a length, or bytes that are skipped
    std::size_t content;  // behind the length; as `value` if there is none
    std::size_t end;
    std::size_t parent;  // the place of the field that holds the message; `no_field` for the outermost

    bool is_nested() const { return info != nullptr && info->nested != nullptr; }
    bool has_length() const { return content != value; }
};

inline constexpr std::size_t no_field = std::numeric_limits<std::size_t>::max();

// Appends the fields of a message to `fields`, a nested message's behind the field that holds it. A message is read up
// to its first error; false if there was one, here or inside.
bool find_fields(const TypeInfo& type, const std::uint8_t* bytes, std::size_t length, std::vector<FoundField>& fields);

// Of one value, not packed.
std::uint32_t wire_type_of(Kind kind);

// A varint of which the low 64 bits count. The position behind it, or 0 if it runs past `end`.
std::size_t read_varint(const std::uint8_t* bytes, std::size_t at, std::size_t end, std::uint64_t* value);

}  // namespace vesk::fuzz
