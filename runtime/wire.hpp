// The wire format's smallest pieces: varints and tags, read, measured and written, and the skip of an unknown field.
// https://protobuf.dev/programming-guides/encoding/ describes the format; the comments here say where this library
// is stricter or more lenient.
#pragma once

#include <vesk/vesk_runtime.h>

#include <cstdint>

namespace vesk {

enum WireType : std::uint32_t { varint_type = 0, fixed64_type = 1, length_type = 2, fixed32_type = 5 };

consteval std::uint32_t make_tag(std::uint32_t number, WireType type) { return number << 3 | type; }
constexpr std::uint32_t wire_type_of_tag(std::uint32_t tag) { return tag & 7; }
constexpr std::uint32_t number_of_tag(std::uint32_t tag) { return tag >> 3; }

// ---- Reading -------------------------------------------------------------------------------------------------------

// Where reading goes on, and VESK_OK; or null, and the error.
struct Step {
    const std::uint8_t* at;
    std::int32_t code;
};

// Read a varint of any length, of which the low 32 or 64 bits count. The position behind it, or null if it runs past
// `end`; `*value` is written only on success.
const std::uint8_t* read_long_varint32(const std::uint8_t* at, const std::uint8_t* end, std::uint32_t* value);
const std::uint8_t* read_long_varint64(const std::uint8_t* at, const std::uint8_t* end, std::uint64_t* value);

// The same as read_long_varint32, faster for one byte.
inline const std::uint8_t* read_varint32(const std::uint8_t* at, const std::uint8_t* end, std::uint32_t* value) {
    if (at < end && *at < 0x80) {
        *value = *at;
        return at + 1;
    }
    return read_long_varint32(at, end, value);
}

// Reads the length of a string, bytes field or message and holds it to the input. Returns the position of the content,
// whose `*length` bytes all lie before `end`, or null.
inline const std::uint8_t* read_length(const std::uint8_t* at, const std::uint8_t* end, std::uint32_t* length) {
    at = read_varint32(at, end, length);
    return at != nullptr && *length <= static_cast<std::uint64_t>(end - at) ? at : nullptr;
}

// The input as a whole, of which a message's range is a part. Varints are read in words of 8 bytes: such a word may
// reach beyond the range, but not beyond the input.
struct Input {
    const std::uint8_t* last_word;  // where the last word begins; null if the input is shorter than that
};

inline Input input_between(const std::uint8_t* at, const std::uint8_t* end) {
    return {end - at >= 8 ? end - 8 : nullptr};
}

// A number and the position behind it, which is null if the number runs past `end`.
struct Number {
    const std::uint8_t* at;
    std::uint64_t value;
};

// Reads a tag of two bytes or more.
Number read_long_tag(const std::uint8_t* at, const std::uint8_t* end);

// The same as read_long_varint32 and read_long_varint64 without a branch for every length.
Number read_number32(const std::uint8_t* at, const std::uint8_t* end, Input input);
Number read_number64(const std::uint8_t* at, const std::uint8_t* end, Input input);

// Steps over the value of an unknown field. VESK_MALFORMED if a varint runs past `end`, VESK_UNKNOWN_WIRE_TYPE for the
// wire types 3, 4, 6 and 7.
// A value of known width that is cut short is no error and ends the input: the position returned is `end`.
// See skip_field.fixed32_with_three_bytes_left_succeeds_and_ends_the_input.
Step skip_field(std::uint32_t wire_type, const std::uint8_t* at, const std::uint8_t* end);

// `size` or 0, without a branch: the compiler sees no work that it could jump over.
inline std::uint64_t only_if(bool condition, std::uint64_t size) {
    asm("" : "+r"(size));
    return condition ? size : 0;
}

// ---- Measuring -----------------------------------------------------------------------------------------------------

// Bytes that write_varint needs, one per group of 7 significant bits, and `more`. For 1 to 64 bits, 9/64 divides by 7
// well enough.
constexpr std::uint64_t varint_size(std::uint64_t value, unsigned more = 0) {
    const unsigned highest_bit = 63 ^ static_cast<unsigned>(__builtin_clzll(value | 1));
    return (highest_bit * 9 + 73 + more * 64) / 64;
}
constexpr std::uint64_t varint_size(std::uint32_t value, unsigned more = 0) {
    const unsigned highest_bit = 31 ^ static_cast<unsigned>(__builtin_clz(value | 1));
    return (highest_bit * 9 + 73 + more * 64) / 64;
}
// A flag: one byte, which need not be 0 or 1.
constexpr std::uint64_t varint_size(std::uint8_t value, unsigned more) { return 1u + (value >> 7) + more; }

// Bytes that write_length needs, and `more`.
constexpr std::uint64_t length_size(std::uint64_t length, unsigned more = 0) {
    return varint_size(static_cast<std::uint32_t>(length), more);
}

// ---- Writing -------------------------------------------------------------------------------------------------------

// The encoder's buffer. Every write counts: it stores what lies inside the buffer and advances the position by all of
// it, so that an empty buffer measures.
struct Buffer {
    std::uint8_t* data;
    std::uint64_t length;
};

inline std::uint64_t write_byte(std::uint8_t byte, std::uint64_t position, Buffer buffer) {
    if (position < buffer.length) buffer.data[position] = byte;
    return position + 1;
}

// Writes at most 10 bytes, at most 5 for a 32-bit value. Returns the position behind them.
inline std::uint64_t write_varint(std::uint64_t value, std::uint64_t position, Buffer buffer) {
    while (value > 0x7F) {
        position = write_byte(static_cast<std::uint8_t>(value | 0x80), position, buffer);
        value >>= 7;
    }
    return write_byte(static_cast<std::uint8_t>(value), position, buffer);
}

// Writes a length, of which only the low 32 bits reach the wire.
inline std::uint64_t write_length(std::uint64_t length, std::uint64_t position, Buffer buffer) {
    return write_varint(static_cast<std::uint32_t>(length), position, buffer);
}

// Writing where there is room: nothing is checked, the position is a pointer.

inline std::uint8_t* put_varint(std::uint8_t* at, std::uint64_t value) {
    while (value > 0x7F) {
        *at++ = static_cast<std::uint8_t>(value | 0x80);
        value >>= 7;
    }
    *at++ = static_cast<std::uint8_t>(value);
    return at;
}

inline std::uint8_t* put_length(std::uint8_t* at, std::uint64_t length) {
    return put_varint(at, static_cast<std::uint32_t>(length));
}

template <std::uint32_t Tag>
inline std::uint8_t* put_tag(std::uint8_t* at) {
    static_assert(Tag < 1 << 14);
    if constexpr (Tag < 0x80) {
        *at = static_cast<std::uint8_t>(Tag);
        return at + 1;
    } else {
        at[0] = static_cast<std::uint8_t>(Tag | 0x80);
        at[1] = static_cast<std::uint8_t>(Tag >> 7);
        return at + 2;
    }
}

// Copies bytes; short ones without a call of memcpy. Returns the position behind them.
std::uint8_t* put_bytes(std::uint8_t* at, const void* data, std::uint64_t length);

// The length and the data of a string or bytes field.
std::uint8_t* put_data(std::uint8_t* at, const void* data, std::uint64_t length);

// Stores the 8 bytes of a word, the lowest first.
inline void store_word(std::uint8_t* at, std::uint64_t word) {
    if constexpr (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__) word = __builtin_bswap64(word);
    __builtin_memcpy(at, &word, sizeof word);
}

// What the varint of a 32-bit value with this highest bit looks like: the marks of all its bytes but the last in the
// lower seven bytes, and its size in the eighth.
struct VarintShapes {
    std::uint64_t of_highest_bit[32];
};

consteval VarintShapes make_varint_shapes() {
    VarintShapes shapes{};
    for (unsigned bit = 0; bit < 32; ++bit) {
        const std::uint64_t size = bit / 7 + 1;
        shapes.of_highest_bit[bit] = (0x0080808080808080 >> (64 - 8 * size)) | size << 56;
    }
    return shapes;
}

inline constexpr VarintShapes varint_shapes = make_varint_shapes();

// Spreads groups of 7 bits over bytes: first 14 bits over 16, then 7 over 8. Adding what is above a group once more
// moves it up by one bit.
inline std::uint64_t spread_groups(std::uint32_t value) {
    std::uint64_t bytes = value;
    bytes = (bytes << 4 & 0xF00000000) + (bytes & 0x0FFFFFFF) + 3 * (bytes & 0x0FFFC000);
    return bytes + (bytes & 0x3F803F803F80);
}

// A word is so much longer than the longest varint of 32 bits.
inline constexpr std::uint64_t number_overhang = 3;

// Writes a number with its tag if it is present. Whether it is, and how long it is, differs from message to message, so
// there is no branch: the bytes are stored in any case, and the position advances by those that count.
template <std::uint32_t Tag>
inline std::uint8_t* put_number(std::uint8_t* at, std::uint32_t value, bool present) {
    const std::uint64_t shape =
        varint_shapes.of_highest_bit[63 ^ static_cast<unsigned>(__builtin_clzll(std::uint64_t{value} | 1))];
    std::uint8_t* const behind_tag = put_tag<Tag>(at);
    store_word(behind_tag, spread_groups(value) | shape);
    return at + only_if(present, varint_size(Tag) + (shape >> 56));
}

// Writes a varint of any length. Stores 10 bytes in any case.
std::uint8_t* put_varint64(std::uint8_t* at, std::uint64_t value);

// The same with 64 bits.
template <std::uint32_t Tag>
inline std::uint8_t* put_number(std::uint8_t* at, std::uint64_t value, bool present) {
    std::uint8_t* const behind = put_varint64(put_tag<Tag>(at), value);
    return present ? behind : at;
}

// A flag is a byte, which need not be 0 or 1.
template <std::uint32_t Tag>
inline std::uint8_t* put_number(std::uint8_t* at, std::uint8_t value, bool present) {
    if (value >= 0x80) return present ? put_varint(put_tag<Tag>(at), value) : at;
    std::uint8_t* const behind_tag = put_tag<Tag>(at);
    *behind_tag = value;
    return present ? behind_tag + 1 : at;
}

}  // namespace vesk
