// The wire format's smallest pieces: varints and tags, read, measured and written, and the skip of an unknown field.
// https://protobuf.dev/programming-guides/encoding/ describes the format; the comments here say where this library
// is stricter or more lenient.
#pragma once

#include <vesk/vesk_runtime.h>

#include <cstdint>

namespace vesk {

enum WireType : std::uint32_t { varint_type = 0, fixed64_type = 1, length_type = 2, fixed32_type = 5 };

constexpr std::uint32_t make_tag(std::uint32_t number, WireType type) { return number << 3 | type; }
constexpr std::uint32_t wire_type_of_tag(std::uint32_t tag) { return tag & 7; }
constexpr std::uint32_t number_of_tag(std::uint32_t tag) { return tag >> 3; }

// ---- Reading -------------------------------------------------------------------------------------------------------

// Where reading goes on, and VESK_OK; or an error, and then the position means nothing.
struct Step {
    const std::uint8_t* at;
    std::int32_t code;
};

const std::uint8_t* read_long_varint32(const std::uint8_t* at, const std::uint8_t* end, std::uint32_t* value);
const std::uint8_t* read_long_varint64(const std::uint8_t* at, const std::uint8_t* end, std::uint64_t* value);

// Reads a varint, of which the low 32 bits count. Returns the position behind it, or null if it runs past `end`;
// `*value` is written only on success.
inline const std::uint8_t* read_varint32(const std::uint8_t* at, const std::uint8_t* end, std::uint32_t* value) {
    if (at < end && *at < 0x80) {
        *value = *at;
        return at + 1;
    }
    return read_long_varint32(at, end, value);
}

// The same with 64 bits.
inline const std::uint8_t* read_varint64(const std::uint8_t* at, const std::uint8_t* end, std::uint64_t* value) {
    if (at < end && *at < 0x80) {
        *value = *at;
        return at + 1;
    }
    return read_long_varint64(at, end, value);
}

// Reads the length of a string, bytes field or message and holds it to the input. Returns the position of the content,
// whose `*length` bytes all lie before `end`, or null.
inline const std::uint8_t* read_length(const std::uint8_t* at, const std::uint8_t* end, std::uint32_t* length) {
    at = read_varint32(at, end, length);
    return at != nullptr && *length <= static_cast<std::uint64_t>(end - at) ? at : nullptr;
}

// Steps over the value of an unknown field. VESK_MALFORMED if a varint runs past `end`, VESK_UNKNOWN_WIRE_TYPE for the
// wire types 3, 4, 6 and 7.
// A value of known width that is cut short is no error and ends the input: the position returned is `end`.
// See skip_field.fixed32_with_three_bytes_left_succeeds_and_ends_the_input.
Step skip_field(std::uint32_t wire_type, const std::uint8_t* at, const std::uint8_t* end);

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

// ---- Measuring -----------------------------------------------------------------------------------------------------

// Bytes that write_varint needs: one per group of 7 significant bits.
constexpr std::uint64_t varint_size(std::uint64_t value) {
    const unsigned significant_bits = 64 - static_cast<unsigned>(__builtin_clzll(value | 1));
    return (significant_bits + 6) / 7;
}

// Bytes that write_length needs.
constexpr std::uint64_t length_size(std::uint64_t length) { return varint_size(static_cast<std::uint32_t>(length)); }

}  // namespace vesk
