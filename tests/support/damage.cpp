#include "tests/support/damage.hpp"

#include <algorithm>

namespace vesk::test {
namespace {

Bytes random_piece(std::mt19937_64& random) {
    const std::uint32_t number = static_cast<std::uint32_t>(random() % 36);
    switch (random() % 7) {
        case 0: return number_field(number, random() >> random() % 64);
        case 1: return message(tag(number, varint_type), over_long(random() % 300, 3 + random() % 10));
        case 2: return message(tag(number, fixed64_type), Bytes(random() % 10, 0x55));
        case 3: return message(tag(number, fixed32_type), Bytes(random() % 6, 0x55));
        case 4: return message(tag(number, length_type), varint(random() >> (32 + random() % 32)));
        case 5: return text_field(number, std::string(random() % 5, 'd'));
        default: return tag(number, static_cast<std::uint32_t>(random() % 8));
    }
}

void damage_once(Bytes& bytes, std::mt19937_64& random) {
    const std::size_t at = bytes.empty() ? 0 : random() % bytes.size();
    const std::size_t length = bytes.empty() ? 0 : std::min<std::size_t>(random() % 16, bytes.size() - at);
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    const auto last = first + static_cast<std::ptrdiff_t>(length);
    const Bytes stretch(first, last);
    switch (random() % 7) {
        case 0:
            if (!bytes.empty()) bytes[at] = static_cast<std::uint8_t>(random());
            return;
        case 1:
            if (!bytes.empty()) bytes[at] ^= static_cast<std::uint8_t>(1u << random() % 8);
            return;
        case 2: bytes.resize(at); return;
        case 3: bytes.erase(first, last); return;
        case 4: bytes.insert(last, stretch.begin(), stretch.end()); return;
        case 5: bytes.insert(bytes.end(), stretch.begin(), stretch.end()); return;
        default: {
            const Bytes piece = random_piece(random);
            bytes.insert(first, piece.begin(), piece.end());
        }
    }
}

}  // namespace

Bytes damage(Bytes input, std::mt19937_64& random) {
    for (std::uint64_t times = 1 + random() % 4; times != 0; --times) damage_once(input, random);
    return input;
}

}  // namespace vesk::test
