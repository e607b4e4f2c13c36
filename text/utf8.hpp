// UTF-8 as strings and JSON texts must be: no over-long form, no surrogate, nothing above U+10FFFF.
#pragma once

#include <cstdint>

namespace vesk {

// The length of the character that begins at `at`, 1 to 4; 0 if there is none.
unsigned measure_utf8(const std::uint8_t* at, const std::uint8_t* end);

// The first byte with which no character begins, or `end`.
const std::uint8_t* find_not_utf8(const std::uint8_t* at, const std::uint8_t* end);

// Half of a surrogate pair, of the second kind, in three bytes: what \udc80 becomes if nobody looks.
inline bool is_low_surrogate(const std::uint8_t* at, const std::uint8_t* end) {
    return end - at >= 3 && at[0] == 0xED && at[1] >= 0xB0;
}

// Puts a code point of up to 21 bits, surrogates as they are; the position after it.
std::uint8_t* put_utf8(std::uint8_t* at, std::uint32_t code_point);

}  // namespace vesk
