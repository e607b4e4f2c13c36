#include "toolkit/utf8.hpp"

#include <cstring>

namespace vesk {

unsigned measure_utf8(const std::uint8_t* at, const std::uint8_t* end) {
    const std::uint8_t first = *at;
    if (first < 0x80) return 1;
    if (first < 0xC2 || first > 0xF4) return 0;
    const unsigned length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (end - at < static_cast<std::ptrdiff_t>(length)) return 0;
    // What the second byte may be, where the first one alone would let in over-long forms, surrogates or too much.
    const std::uint8_t lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const std::uint8_t highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (at[1] < lowest || at[1] > highest) return 0;
    for (unsigned i = 2; i < length; ++i) {
        if ((at[i] & 0xC0) != 0x80) return 0;
    }
    return length;
}

const std::uint8_t* find_not_utf8(const std::uint8_t* at, const std::uint8_t* end) {
    while (at != end) {
        std::uint64_t word = 0;
        if (end - at >= 8 && (std::memcpy(&word, at, 8), (word & 0x8080808080808080) == 0)) {
            at += 8;
            continue;
        }
        const unsigned length = measure_utf8(at, end);
        if (length == 0) return at;
        at += length;
    }
    return end;
}

}  // namespace vesk
