// Tags, lengths and numbers of encoded bytes, by offsets.
#pragma once

#include <cstdint>

namespace vesk::tool {

constexpr std::uint64_t never = UINT64_MAX;

constexpr std::uint32_t varint_type = 0;
constexpr std::uint32_t fixed64_type = 1;
constexpr std::uint32_t length_type = 2;
constexpr std::uint32_t group_type = 3;
constexpr std::uint32_t end_of_group_type = 4;
constexpr std::uint32_t fixed32_type = 5;

// A varint of any length, of which the low 64 bits count; `to` is `never` if it runs past the end.
struct Varint {
    std::uint64_t from;
    std::uint64_t to;
    std::uint64_t value;

    std::uint64_t size() const { return to - from; }
    // Of a tag.
    std::uint32_t wire_type() const { return value & 7; }
    std::uint32_t number() const { return static_cast<std::uint32_t>(value) >> 3; }
    // Of the content that a length announces: the low 32 bits count.
    std::uint64_t length() const { return static_cast<std::uint32_t>(value); }
    bool reaches_past(std::uint64_t end) const { return to == never || length() > end - to; }
};

inline Varint read_varint(const std::uint8_t* input, std::uint64_t at, std::uint64_t end) {
    const std::uint64_t from = at;
    std::uint64_t value = 0;
    for (unsigned shift = 0; at < end; shift += 7) {
        const std::uint8_t byte = input[at++];
        if (shift < 64) value |= std::uint64_t{byte & 0x7Fu} << shift;
        if (byte < 0x80) return {from, at, value};
    }
    return {from, never, 0};
}

}  // namespace vesk::tool
