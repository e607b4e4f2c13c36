#include "text/utf8.hpp"

namespace vesk {

std::uint8_t* put_utf8(std::uint8_t* at, std::uint32_t code_point) {
    if (code_point < 0x80) {
        *at++ = static_cast<std::uint8_t>(code_point);
        return at;
    }
    const unsigned more = code_point < 0x800 ? 1 : code_point < 0x10000 ? 2 : 3;
    constexpr std::uint8_t first_bits[] = {0, 0xC0, 0xE0, 0xF0};
    *at++ = static_cast<std::uint8_t>(first_bits[more] | code_point >> 6 * more);
    for (unsigned shift = 6 * more; shift != 0;) {
        shift -= 6;
        *at++ = static_cast<std::uint8_t>(0x80 | (code_point >> shift & 0x3F));
    }
    return at;
}

}  // namespace vesk
