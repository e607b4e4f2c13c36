#include "runtime/wire.hpp"

#include <cstring>

namespace vesk {
namespace {

// Steps over `length` bytes, or to `end` if there are fewer.
const std::uint8_t* skip_bytes(std::uint64_t length, const std::uint8_t* at, const std::uint8_t* end) {
    return length < static_cast<std::uint64_t>(end - at) ? at + length : end;
}

}  // namespace

// Extra continuation bytes are accepted and ignored: other encoders write a negative number in ten bytes.
// See read_varint32.ten_byte_negative_keeps_low_bits.
const std::uint8_t* read_long_varint32(const std::uint8_t* at, const std::uint8_t* end, std::uint32_t* value) {
    std::uint32_t result = 0;
    for (unsigned shift = 0; shift <= 28; shift += 7) {
        if (at >= end) return nullptr;
        const std::uint32_t byte = *at++;
        result |= (byte & 0x7F & UINT32_MAX >> shift) << shift;  // of the fifth group only 4 bits fit
        if (byte < 0x80) {
            *value = result;
            return at;
        }
    }
    at = skip_varint(at, end);
    if (at != nullptr) *value = result;
    return at;
}

const std::uint8_t* read_long_varint64(const std::uint8_t* at, const std::uint8_t* end, std::uint64_t* value) {
    std::uint64_t result = 0;
    for (unsigned shift = 0; shift <= 63; shift += 7) {
        if (at >= end) return nullptr;
        const std::uint64_t byte = *at++;
        result |= (byte & 0x7F & UINT64_MAX >> shift) << shift;  // of the tenth group only 1 bit fits
        if (byte < 0x80) {
            *value = result;
            return at;
        }
    }
    at = skip_varint(at, end);
    if (at != nullptr) *value = result;
    return at;
}

namespace {

// The 8 bytes from `at` on, the first lowest.
inline std::uint64_t load_word(const std::uint8_t* at) {
    std::uint64_t word;
    __builtin_memcpy(&word, at, sizeof word);
    if constexpr (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__) word = __builtin_bswap64(word);
    return word;
}

// Joins groups of 7 bits, one in each byte: 7 bits over 8 to 14 over 16, those to 28 over 32, those to 56.
inline std::uint64_t join_groups(std::uint64_t groups) {
    if constexpr (has_pext) return gather_bits(groups, 0x7F7F7F7F7F7F7F7F);
    groups -= (groups & 0x7F007F007F007F00) >> 1;
    groups -= 3 * (groups >> 2 & 0x0FFFC0000FFFC000);
    return (groups & 0x0FFFFFFF) | groups >> 32 << 28;
}

// The reverse of join_groups: 28 bits over 32, 14 over 16, 7 over 8.
inline std::uint64_t split_groups(std::uint64_t value) {
    if constexpr (has_pext) return scatter_bits(value, 0x7F7F7F7F7F7F7F7F);
    value = (value & 0x000000000FFFFFFF) | (value & 0x00FFFFFFF0000000) << 4;
    value = (value & 0x00003FFF00003FFF) | (value & 0x0FFFC0000FFFC000) << 2;
    return (value & 0x007F007F007F007F) | (value & 0x3F803F803F803F80) << 1;
}

// Reads a varint of at most 8 bytes that ends in one of the bytes that `ends` marks, out of a word. A null position
// says that the word is not enough.
inline Varint read_word(const std::uint8_t* at, Input input, std::uint64_t ends) {
    if (at >= input.end_of_words) [[unlikely]]
        return {nullptr, 0};
    const std::uint64_t word = load_word(at);
    const std::uint64_t last = ~word & ends;
    if (last == 0) [[unlikely]]
        return {nullptr, 0};
    // `last - 1` has ones below the lowest mark, which is bit 7 of the varint's last byte, and marks alone above it.
    const std::uint64_t groups = word & (last - 1) & 0x7F7F7F7F7F7F7F7F;
    at += static_cast<unsigned>(__builtin_ctzll(last)) / 8 + 1;
    return {at, join_groups(groups)};
}

}  // namespace

Varint read_long_length(const std::uint8_t* at, const std::uint8_t* end) {
    std::uint32_t length;
    at = read_long_varint32(at, end, &length);
    return at != nullptr ? Varint{at, length} : Varint{end, UINT64_MAX};
}

Varint read_long_tag(const std::uint8_t* at, const std::uint8_t* end) {
    if (end - at >= 2 && at[1] < 0x80) return {at + 2, (at[0] & 0x7Fu) | std::uint32_t{at[1]} << 7};
    std::uint32_t tag = 0;
    at = read_long_varint32(at, end, &tag);
    return {at, tag};
}

Varint read_word_varint32(const std::uint8_t* at, const std::uint8_t* end, Input input) {
    const Varint varint = read_word(at, input, 0x8080808080);
    if (varint.at != nullptr) [[likely]]
        return {varint.at <= end ? varint.at : nullptr, varint.value & 0xFFFFFFFF};
    std::uint32_t value = 0;
    at = read_long_varint32(at, end, &value);
    return {at, value};
}

Varint read_word_varint64(const std::uint8_t* at, const std::uint8_t* end, Input input) {
    const Varint varint = read_word(at, input, 0x8080808080808080);
    if (varint.at != nullptr) [[likely]]
        return {varint.at <= end ? varint.at : nullptr, varint.value};
    std::uint64_t value = 0;
    at = read_long_varint64(at, end, &value);
    return {at, value};
}

std::uint8_t* put_varint_before(std::uint8_t* at, std::uint64_t value) {
    constexpr std::uint64_t marks = 0x8080808080808080;
    const std::uint64_t bytes = split_groups(value);
    if (value < std::uint64_t{1} << 56) {
        const unsigned unused = static_cast<unsigned>(__builtin_clzll(bytes | 1)) & 56;  // bits of the word
        store_word(at - 8, bytes << unused | marks >> 8);
        return at - 8 + unused / 8;
    }
    if (value >> 63 != 0) *--at = 1;
    *--at = static_cast<std::uint8_t>((value >> 56 & 0x7F) | value >> 63 << 7);
    store_word(at - 8, bytes | marks);
    return at - 8;
}

std::uint8_t* put_long_length_before(std::uint8_t* at, std::uint64_t length) {
    return put_varint_before(at, static_cast<std::uint32_t>(length));
}

Step skip_field(std::uint32_t wire_type, const std::uint8_t* at, const std::uint8_t* end) {
    switch (wire_type) {
        case varint_type: at = skip_varint(at, end); return {at, at != nullptr ? VESK_OK : VESK_MALFORMED};
        case fixed64_type: return {skip_bytes(8, at, end), VESK_OK};
        case length_type: {
            std::uint32_t length;
            at = read_varint32(at, end, &length);
            if (at == nullptr) return {nullptr, VESK_MALFORMED};
            return {skip_bytes(length, at, end), VESK_OK};
        }
        case fixed32_type: return {skip_bytes(4, at, end), VESK_OK};
        default: return {nullptr, VESK_UNKNOWN_WIRE_TYPE};
    }
}

// Short data goes as moves that overlap, so that one branch serves many lengths.
std::uint8_t* put_bytes(std::uint8_t* at, const void* data, std::uint64_t length) {
    const std::uint8_t* from = static_cast<const std::uint8_t*>(data);
    if (length >= 8 && length <= 24) {
        const std::uint64_t middle = length < 16 ? length - 8 : 8;
        __builtin_memcpy(at, from, 8);
        __builtin_memcpy(at + middle, from + middle, 8);
        __builtin_memcpy(at + length - 8, from + length - 8, 8);
    } else if (length > 8) {
        std::memcpy(at, from, static_cast<std::size_t>(length));
    } else if (length >= 4) {
        __builtin_memcpy(at, from, 4);
        __builtin_memcpy(at + length - 4, from + length - 4, 4);
    } else if (length >= 2) {
        __builtin_memcpy(at, from, 2);
        __builtin_memcpy(at + length - 2, from + length - 2, 2);
    } else if (length == 1) {
        *at = *from;
    }
    return at + length;
}

}  // namespace vesk
