// The wire format's smallest pieces: varints and tags, read, measured and written, and the skip of an unknown field.
// https://protobuf.dev/programming-guides/encoding/ describes the format; the comments here say where this library
// is stricter or more lenient.
//
// Verbs: `read_` never trusts what it reads; `put_` stores where room is known; `write_` stores what lies inside the
// buffer and counts all of it.
#pragma once

#include <vesk/vesk_runtime.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#ifdef VESK_PEXT
#include <immintrin.h>
#endif

// What is small enough, or known well enough while compiling, to be part of every function that uses it.
#define VESK_INLINE [[gnu::always_inline]] inline

namespace vesk {

// One value or the other, without a branch: the compiler sees no work that it could jump over.
template <class Value>
VESK_INLINE Value choose(bool condition, Value one, Value other) {
    asm("" : "+r"(one));
    return condition ? one : other;
}

// Where the processor has them and is quick at them: the bits of a mask moved together, and the reverse.
#ifdef VESK_PEXT
inline constexpr bool has_pext = true;
inline std::uint64_t gather_bits(std::uint64_t word, std::uint64_t mask) { return _pext_u64(word, mask); }
inline std::uint64_t scatter_bits(std::uint64_t bits, std::uint64_t mask) { return _pdep_u64(bits, mask); }
#else
inline constexpr bool has_pext = false;
std::uint64_t gather_bits(std::uint64_t word, std::uint64_t mask);
std::uint64_t scatter_bits(std::uint64_t bits, std::uint64_t mask);
#endif

enum WireType : std::uint32_t { varint_type = 0, fixed64_type = 1, length_type = 2, fixed32_type = 5 };

consteval std::uint32_t make_tag(std::uint32_t field_number, WireType type) { return field_number << 3 | type; }
constexpr std::uint32_t wire_type_of_tag(std::uint32_t tag) { return tag & 7; }
constexpr std::uint32_t field_number_of_tag(std::uint32_t tag) { return tag >> 3; }

// ---- Reading -------------------------------------------------------------------------------------------------------

// Where reading goes on, and VESK_OK; or null, and the error.
struct Step {
    const std::uint8_t* at;
    std::int32_t code;
};

// Read a varint of any length, of which the low 32 or 64 bits count. The position after it, or null if it runs past
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

// Steps over a varint of any length, or what is left of one; null if it runs past `end`.
inline const std::uint8_t* skip_varint(const std::uint8_t* at, const std::uint8_t* end) {
    while (at < end) {
        if (*at++ < 0x80) return at;
    }
    return nullptr;
}

// A varint's value and the position after it, which is null if the varint runs past `end`.
struct Varint {
    const std::uint8_t* at;
    std::uint64_t value;
};

// Reads a length of any size; UINT64_MAX if it runs past `end`.
Varint read_long_length(const std::uint8_t* at, const std::uint8_t* end);

// Reads the length of a string, bytes field or message and holds it to the input. Returns the position of the content,
// of which all bytes lie before `end`, or null.
inline Varint read_length(const std::uint8_t* at, const std::uint8_t* end) {
    Varint length;
    if (at < end && *at < 0x80) {
        length = {at + 1, *at};
    } else {
        length = read_long_length(at, end);
    }
    if (length.value > static_cast<std::uint64_t>(end - length.at)) return {nullptr, 0};
    return length;
}

// The input as a whole, of which a message's range is a part. Varints are read in words of 8 bytes: such a word may
// reach past the range, but not past the input.
struct Input {
    const std::uint8_t* end_of_words;  // the first position at which no word begins; null if the input has none
};

// Where an input of `length` bytes ends: at the last address at the latest, and no object is larger than a difference
// of pointers can say.
inline const std::uint8_t* end_of_input(const std::uint8_t* at, std::uint64_t length) {
    const std::uint64_t to_last_address = UINTPTR_MAX - reinterpret_cast<std::uintptr_t>(at);
    const std::uint64_t longest = to_last_address < PTRDIFF_MAX ? to_last_address : PTRDIFF_MAX;
    return at + (length > longest ? longest : length);
}

inline Input input_between(const std::uint8_t* at, const std::uint8_t* end) {
    return {end - at >= 8 ? end - 7 : nullptr};
}

// Reads a word of four or eight bytes, the lowest first. The position after it, or null if it is cut short.
template <class Word>
inline const std::uint8_t* read_fixed(const std::uint8_t* at, const std::uint8_t* end, Word* word) {
    if (static_cast<std::size_t>(end - at) < sizeof *word) return nullptr;
    __builtin_memcpy(word, at, sizeof *word);
    if constexpr (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__) {
        *word = static_cast<Word>(sizeof *word == 8 ? __builtin_bswap64(*word)
                                                    : __builtin_bswap32(static_cast<std::uint32_t>(*word)));
    }
    return at + sizeof *word;
}

// Reads a tag; the second one, a tag of two bytes or more.
inline Varint read_tag(const std::uint8_t* at, const std::uint8_t* end);
Varint read_long_tag(const std::uint8_t* at, const std::uint8_t* end);

inline Varint read_tag(const std::uint8_t* at, const std::uint8_t* end) {
    if (at < end && *at < 0x80) return {at + 1, *at};
    return read_long_tag(at, end);
}

// The same as read_long_varint32 and read_long_varint64 without a branch for every length.
Varint read_word_varint32(const std::uint8_t* at, const std::uint8_t* end, Input input);
Varint read_word_varint64(const std::uint8_t* at, const std::uint8_t* end, Input input);

// Steps over the value of an unknown field. VESK_MALFORMED if a varint runs past `end`, VESK_UNKNOWN_WIRE_TYPE for the
// wire types 3, 4, 6 and 7.
// A value of known width that is cut short is no error and ends the input: the position returned is `end`.
// See skip_field.fixed32_with_three_bytes_left_succeeds_and_ends_the_input.
Step skip_field(std::uint32_t wire_type, const std::uint8_t* at, const std::uint8_t* end);

// ---- Measuring -----------------------------------------------------------------------------------------------------

// Bytes that a varint takes, one per group of 7 significant bits, and `more`. For 1 to 64 bits, 9/64 divides by 7 well
// enough.
constexpr std::uint64_t measure_varint(std::uint64_t value, unsigned more = 0) {
    const unsigned highest_bit = 63 ^ static_cast<unsigned>(__builtin_clzll(value | 1));
    return (highest_bit * 9 + 73 + more * 64) / 64;
}
constexpr std::uint64_t measure_varint(std::uint32_t value, unsigned more = 0) {
    const unsigned highest_bit = 31 ^ static_cast<unsigned>(__builtin_clz(value | 1));
    return (highest_bit * 9 + 73 + more * 64) / 64;
}

// Bytes that a length takes, and `more`.
constexpr std::uint64_t measure_length(std::uint64_t length, unsigned more = 0) {
    return measure_varint(static_cast<std::uint32_t>(length), more);
}

// ---- Checked writing -----------------------------------------------------------------------------------------------

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

// Writes at most 10 bytes, at most 5 for a 32-bit value. Returns the position after them.
inline std::uint64_t write_varint(std::uint64_t value, std::uint64_t position, Buffer buffer) {
    while (value > 0x7F) {
        position = write_byte(static_cast<std::uint8_t>(value | 0x80), position, buffer);
        value >>= 7;
    }
    return write_byte(static_cast<std::uint8_t>(value), position, buffer);
}

// Writes a word of four or eight bytes, the lowest first.
inline std::uint64_t write_fixed(std::unsigned_integral auto word, std::uint64_t position, Buffer buffer) {
    for (unsigned shift = 0; shift < 8 * sizeof word; shift += 8) {
        position = write_byte(static_cast<std::uint8_t>(word >> shift), position, buffer);
    }
    return position;
}

// Writes a length, of which only the low 32 bits reach the wire.
inline std::uint64_t write_length(std::uint64_t length, std::uint64_t position, Buffer buffer) {
    return write_varint(static_cast<std::uint32_t>(length), position, buffer);
}

// ---- Putting -------------------------------------------------------------------------------------------------------

// Each returns the position after what it put.

inline std::uint8_t* put_varint(std::uint8_t* at, std::uint64_t value) {
    while (value > 0x7F) {
        *at++ = static_cast<std::uint8_t>(value | 0x80);
        value >>= 7;
    }
    *at++ = static_cast<std::uint8_t>(value);
    return at;
}

template <std::uint32_t Tag>
inline std::uint8_t* put_tag(std::uint8_t* at) {
    if constexpr (Tag < 0x80) {
        *at = static_cast<std::uint8_t>(Tag);
        return at + 1;
    } else if constexpr (Tag >= 1 << 14) {
        return put_varint(at, Tag);
    } else {
        at[0] = static_cast<std::uint8_t>(Tag | 0x80);
        at[1] = static_cast<std::uint8_t>(Tag >> 7);
        return at + 2;
    }
}

// Stores a word of four or eight bytes, the lowest first.
inline std::uint8_t* put_fixed(std::uint8_t* at, std::unsigned_integral auto word) {
    if constexpr (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__) {
        word = sizeof word == 8 ? __builtin_bswap64(word) : __builtin_bswap32(static_cast<std::uint32_t>(word));
    }
    __builtin_memcpy(at, &word, sizeof word);
    return at + sizeof word;
}

// Copies bytes; short ones without a call of memcpy.
std::uint8_t* put_bytes(std::uint8_t* at, const void* data, std::uint64_t length);

// Stores the 8 bytes of a word, the lowest first.
inline void store_word(std::uint8_t* at, std::uint64_t word) {
    if constexpr (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__) word = __builtin_bswap64(word);
    __builtin_memcpy(at, &word, sizeof word);
}

// Spreads the groups of 7 bits of a value over bytes: what lies above 14 bits moves up by two bits, what then lies
// above 30 by two more, what lies above 7 bits of each 16 by one. Adding a part three times moves it up by two bits:
//
//     eeeedddddddcccccc cbbbbbbbaaaaaaa                 value
//     0000eeee 00dddddddccccccc 00bbbbbbbaaaaaaa
//     0000eeee 0ddddddd0ccccccc 0bbbbbbb0aaaaaaa        bytes
inline std::uint64_t spread_groups(std::uint32_t value) {
    if constexpr (has_pext) return scatter_bits(value, 0x7F7F7F7F7F);
    std::uint64_t bytes = value;
    bytes += 3 * (bytes & 0xFFFFC000);
    bytes += 3 * (bytes & 0x3C0000000);
    return bytes + (bytes & 0x3F803F803F80);
}

// ---- Putting backwards ---------------------------------------------------------------------------------------------

// Each puts something that ends before `at` and returns its beginning. The bytes in front of that are still to be put:
// up to 8 before `at` are spoiled.

// A varint, without a branch for every length.
inline std::uint8_t* put_varint_before(std::uint8_t* at, std::uint32_t value) {
    constexpr std::uint64_t all_but_the_last = 0x0080808080808080;
    const std::uint64_t bytes = spread_groups(value);
    const unsigned unused = static_cast<unsigned>(__builtin_clzll(bytes | 1)) & 56;  // bits of the word
    store_word(at - 8, bytes << unused | all_but_the_last);
    return at - 8 + unused / 8;
}
std::uint8_t* put_varint_before(std::uint8_t* at, std::uint64_t value);

// A varint of at most 14 bits.
inline std::uint8_t* put_short_varint_before(std::uint8_t* at, std::uint32_t value) {
    const bool two = value > 0x7F;
    at[-1] = static_cast<std::uint8_t>(two ? value >> 7 : value);
    at[-2] = static_cast<std::uint8_t>(value | 0x80);
    return at - 1 - two;
}

std::uint8_t* put_long_length_before(std::uint8_t* at, std::uint64_t length);

VESK_INLINE std::uint8_t* put_length_before(std::uint8_t* at, std::uint64_t length) {
    if (length >= 0x80) [[unlikely]]
        return put_long_length_before(at, length);
    *--at = static_cast<std::uint8_t>(length);
    return at;
}

// A tag and a length.
template <std::uint32_t Tag>
VESK_INLINE std::uint8_t* put_head_before(std::uint8_t* at, std::uint64_t length) {
    at = put_length_before(at, length) - measure_varint(Tag);
    put_tag<Tag>(at);
    return at;
}
inline std::uint8_t* put_head_before(std::uint8_t* at, std::uint32_t tag, std::uint64_t length) {
    at = put_length_before(at, length) - measure_varint(tag);
    put_varint(at, tag);
    return at;
}

// A tag as 16 bits whose last byte is the highest; `TagSize` bytes of them are put.
consteval std::uint64_t right_aligned(std::uint32_t tag) {
    return tag < 0x80 ? tag << 8 : (tag & 0x7F) | 0x80 | tag >> 7 << 8;
}
template <std::size_t TagSize>
VESK_INLINE std::uint8_t* put_tag_before(std::uint8_t* at, std::uint64_t tag) {
    at[-2] = static_cast<std::uint8_t>(tag);
    at[-1] = static_cast<std::uint8_t>(tag >> 8);
    return at - TagSize;
}

// A scalar below 128 with its tag if it is present. It is stored in any case, and the position chosen without a branch.
template <std::uint32_t Tag>
VESK_INLINE std::uint8_t* put_narrow_before(std::uint8_t* at, std::uint32_t value, bool present) {
    std::uint8_t* const before = at - 1 - measure_varint(Tag);
    *put_tag<Tag>(before) = static_cast<std::uint8_t>(value);
    return choose(present, before, at);
}

}  // namespace vesk
