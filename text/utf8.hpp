// What a JSON text needs of UTF-8 beyond telling whether something is.
#pragma once

#include <cstdint>

#include "toolkit/utf8.hpp"

namespace vesk {

// Half of a surrogate pair, of the second kind, in three bytes: what \udc80 becomes if nobody looks.
inline bool is_low_surrogate(const std::uint8_t* at, const std::uint8_t* end) {
    return end - at >= 3 && at[0] == 0xED && at[1] >= 0xB0;
}

// Puts a code point of up to 21 bits, surrogates as they are; the position after it.
std::uint8_t* put_utf8(std::uint8_t* at, std::uint32_t code_point);

}  // namespace vesk
