// Messages with every field set, nested ones included, spelled without the encoder.
#pragma once

#include "tests/support/type_info.hpp"

namespace vesk::test {

// Of strings and bytes fields.
enum class Contents {
    some,   // of 1 to 9 bytes, none of them NUL
    empty,  // of length 0
};

// The encoding of a message in which every field occurs, every list with two elements. No two numbers in it are the
// same, so that none can stand in for another.
Bytes full_encoding(const TypeInfo& type, Contents contents = Contents::some);

// For each of its bytes, the length that a buffer must have for the encoder to store it: a content is stored whole or
// not at all, everything else byte by byte.
std::vector<std::size_t> room_needed_by_full_encoding(const TypeInfo& type);

}  // namespace vesk::test
