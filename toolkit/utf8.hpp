// UTF-8 as strings and JSON texts must be: no over-long form, no surrogate, nothing above U+10FFFF.
#pragma once

#include <cstdint>

namespace vesk {

// The length of the character that begins at `at`, 1 to 4; 0 if there is none.
unsigned measure_utf8(const std::uint8_t* at, const std::uint8_t* end);

// The first byte with which no character begins, or `end`.
const std::uint8_t* find_not_utf8(const std::uint8_t* at, const std::uint8_t* end);

}  // namespace vesk
