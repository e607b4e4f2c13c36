// Decoding: bytes into a message. Input bytes are never trusted; the first error ends the call, and what was read
// before it stays in the message for the caller to free.
//
// What reads returns the position after what it read; or null, and then `source.code` says why.
#pragma once

#include <cstring>

#include "runtime/memory.hpp"
#include "runtime/schema.hpp"

namespace vesk {

// What stays the same while a message and all that is in it are decoded, and the error that ended it.
struct Source {
    Input input;
    Allocator allocator;
    std::uint32_t flags;
    std::int32_t code;
};

inline const std::uint8_t* fail(Source& source, std::int32_t code) {
    source.code = code;
    return nullptr;
}

// Reads the range from `at` to `end` into a message that has been cleared. `untyped` is a Message.
template <class Message>
const std::uint8_t* decode(void* untyped, const std::uint8_t* at, const std::uint8_t* end, Source& source);

// What the functions that all types share need to know of a nested type.
struct NestedDecoder {
    std::size_t size;  // of the structure
    bool imported;
    const std::uint8_t* (*decode)(void* nested, const std::uint8_t* at, const std::uint8_t* end, Source& source);
};

// Each of these reads one field whose tag has been read, `at` being the position after the tag. The order of its
// checks is part of the contract: where several would fail, the first decides the code.
const std::uint8_t* decode_string(char** member, const std::uint8_t* at, const std::uint8_t* end, Source& source);
const std::uint8_t* decode_bytes(std::uint8_t** data, std::uint64_t* length, const std::uint8_t* at,
                                 const std::uint8_t* end, Source& source);
const std::uint8_t* decode_nested(void* nested, const NestedDecoder& decoder, bool again, const std::uint8_t* at,
                                  const std::uint8_t* end, Source& source);
// Reads a list, which is one unbroken run of fields of one number: counts the run, allocates it once, then decodes it.
// `array` is what the member holds, `array_member` its address.
const std::uint8_t* decode_list(const void* array, void* array_member, std::uint32_t* count, std::uint32_t number,
                                const NestedDecoder& decoder, const std::uint8_t* at, const std::uint8_t* end,
                                Source& source);

// Skips the value of a field that the message does not have. `field_numbers` has a bit for each that it has: such a
// number in a tag that no field has means that the wire type is wrong.
const std::uint8_t* skip_unknown(std::uint32_t tag, std::uint64_t field_numbers, const std::uint8_t* at,
                                 const std::uint8_t* end, Source& source);

template <std::size_t Count>
struct FieldNumbers {
    std::uint32_t of_field[Count];
};

// Counts the elements of a run, `at` being the position of the first one's length. Only field numbers are compared: an
// element with another wire type counts, and is then read as a length.
// See decode_list.later_element_with_wire_type_0_is_part_of_the_run.
inline bool count_run(std::uint32_t* count, std::uint32_t number, const std::uint8_t* at, const std::uint8_t* end) {
    std::uint32_t elements = 0;
    Varint tag;
    do {
        const Varint length = read_length(at, end);
        if (length.at == nullptr) return false;
        at = length.at + length.value;
        ++elements;
        if (at == end) break;
        tag = read_tag(at, end);
        if (tag.at == nullptr) return false;
        at = tag.at;
    } while (field_number_of_tag(static_cast<std::uint32_t>(tag.value)) == number);
    *count = elements;
    return true;
}

// The same for repeated fields of others' messages. Of scalars: `wire_type` is that of the kind, `tag` the first one's.
// Counts the run and gives it its block of zeroes, unless it is empty. False after an error.
bool make_values(const void* array, void* array_member, std::uint32_t* count, std::uint32_t tag, WireType wire_type,
                 std::size_t size, const std::uint8_t* at, const std::uint8_t* end, Source& source);
const std::uint8_t* decode_strings(char*** array, std::uint32_t* count, std::uint32_t number, const std::uint8_t* at,
                                   const std::uint8_t* end, Source& source);
const std::uint8_t* decode_blobs(vesk_bytes** array, std::uint32_t* count, std::uint32_t number, const std::uint8_t* at,
                                 const std::uint8_t* end, Source& source);

template <class Message>
const std::uint8_t* decode_imported(void* message, const std::uint8_t* at, const std::uint8_t* end, Source& source) {
    const std::int32_t code =
        imported<Message>.decode(static_cast<Message*>(message), at, static_cast<std::uint64_t>(end - at),
                                 source.allocator.alloc, source.allocator.context, source.flags);
    return code == VESK_OK ? end : fail(source, code);
}

template <class Message>
consteval NestedDecoder make_decoder() {
    if constexpr (is_imported<Message>) {
        return {sizeof(Message), true, decode_imported<Message>};
    } else {
        return {sizeof(Message), false, decode<Message>};
    }
}

template <class Message>
inline constexpr NestedDecoder decoder_of = make_decoder<Message>();

// ---- Fields --------------------------------------------------------------------------------------------------------

// Most values are below 128: those are read here, the others without a branch for every length.
template <class Scalar, class Member>
VESK_INLINE const std::uint8_t* decode_scalar(Member& member, const std::uint8_t* at, const std::uint8_t* end,
                                              Source& source) {
    if constexpr (Scalar::wire_type != varint_type) {
        typename Scalar::Wire word;
        const std::uint8_t* const past = read_fixed(at, end, &word);
        if (past == nullptr) return fail(source, VESK_MALFORMED);
        __builtin_memcpy(&member, &word, sizeof word);
        return past;
    } else {
        if (at < end && *at < 0x80) [[likely]] {
            member = Scalar::from_wire(*at);
            return at + 1;
        }
        const Varint varint = sizeof(typename Scalar::Wire) == 8 ? read_word_varint64(at, end, source.input)
                                                                 : read_word_varint32(at, end, source.input);
        if (varint.at == nullptr) return fail(source, VESK_MALFORMED);
        member = Scalar::from_wire(static_cast<typename Scalar::Wire>(varint.value));
        return varint.at;
    }
}

// Reads a repeated field of scalars, whose first tag has been read: as a list, one unbroken run of fields of one
// number, some of them packed and some not.
template <class Scalar>
[[gnu::noinline]] const std::uint8_t* decode_values(const void* array, void* array_member, std::uint32_t* count,
                                                    std::uint32_t tag, const std::uint8_t* at, const std::uint8_t* end,
                                                    Source& source) {
    using Member = typename Scalar::Member;
    if (!make_values(array, array_member, count, tag, Scalar::wire_type, sizeof(Member), at, end, source))
        return nullptr;
    Member* value;
    std::memcpy(&value, array_member, sizeof value);
    std::uint32_t left = *count;
    for (;;) {
        // Counting has shown all of this to be there; but whoever gave the block may have written into the input.
        const std::uint8_t* past = nullptr;  // the content of a packed field; null for a single value
        if (wire_type_of_tag(tag) == length_type) {
            const Varint length = read_length(at, end);
            if (length.at == nullptr) return fail(source, VESK_MALFORMED);
            at = length.at;
            past = at + length.value;
        }
        while (at != past) {
            if (left == 0) return fail(source, VESK_MALFORMED);
            at = decode_scalar<Scalar>(*value, at, past != nullptr ? past : end, source);
            if (at == nullptr) return nullptr;
            ++value;
            --left;
            if (past == nullptr) break;
        }
        const Varint next = at != end ? read_tag(at, end) : Varint{nullptr, 0};
        if (next.at == nullptr ||
            field_number_of_tag(static_cast<std::uint32_t>(next.value)) != field_number_of_tag(tag)) {
            return left == 0 ? at : fail(source, VESK_MALFORMED);
        }
        at = next.at;
        tag = static_cast<std::uint32_t>(next.value);
    }
}

template <class Message, std::size_t Index>
VESK_INLINE const std::uint8_t* decode_field(Message& message, bool again, const std::uint8_t* at,
                                             const std::uint8_t* end, Source& source) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    if constexpr (kind == Kind::message) {
        using Nested = NestedOf<Message, Index>;
        return decode_nested(&(message.*field.member), decoder_of<Nested>, again, at, end, source);
    } else if constexpr (kind == Kind::list) {
        return decode_list(message.*field.array, &(message.*field.array), &(message.*field.count),
                           number_of<Message, Index>, decoder_of<NestedOf<Message, Index>>, at, end, source);
    } else if constexpr (kind == Kind::strings) {
        return decode_strings(&(message.*field.array), &(message.*field.count), number_of<Message, Index>, at, end,
                              source);
    } else if constexpr (kind == Kind::blobs) {
        return decode_blobs(&(message.*field.array), &(message.*field.count), number_of<Message, Index>, at, end,
                            source);
    } else if constexpr (kind == Kind::string) {
        return decode_string(&(message.*field.member), at, end, source);
    } else if constexpr (kind == Kind::bytes) {
        return decode_bytes(&(message.*field.data), &(message.*field.length), at, end, source);
    } else {
        return decode_scalar<ScalarOf<Message, Index>>(message.*field.member, at, end, source);
    }
}

// ---- Messages ------------------------------------------------------------------------------------------------------

inline constexpr std::uint64_t no_tag = UINT64_MAX;

// How far the decoding of a message has come.
struct Cursor {
    const std::uint8_t* at;  // null after an error
    std::uint64_t presence;
    std::uint64_t tag;  // whose value begins at `at`; or `no_tag`, and then the next tag begins there
};

template <class Message, std::size_t Index>
consteval bool has_long_tag() {
    if constexpr (Index < field_count<Message>) return tag_of<Message, Index> >= 0x80;
    return false;
}

// Fields usually come in the order of their declaration, so that the tag at hand is that of the next one, or of one
// soon after it.
template <class Message, std::size_t Index>
VESK_INLINE Cursor decode_fields(Message& message, Cursor cursor, const std::uint8_t* end, Source& source) {
    if constexpr (Index == field_count<Message>) {
        return cursor;
    } else {
        using Tags = TagOf<Message, Index>;
        // NOLINTNEXTLINE(misc-redundant-expression): scalars have another tag
        if (cursor.tag == Tags::tag || cursor.tag == Tags::other_tag) {
            const std::uint8_t* at;
            if constexpr (kind_of<Message, Index> == Kind::repeated) {
                constexpr auto field = field_of<Message, Index>;
                at = decode_values<typename Tags::Scalar>(
                    message.*field.array, &(message.*field.array), &(message.*field.count),
                    static_cast<std::uint32_t>(cursor.tag), cursor.at, end, source);
            } else {
                at = decode_field<Message, Index>(message, has_bit<Index>(cursor.presence), cursor.at, end, source);
            }
            if (at == nullptr) return {nullptr, cursor.presence, no_tag};
            cursor = {at, cursor.presence | std::uint64_t{1} << Index, no_tag};
            if (at == end) return cursor;
            if (*at < 0x80) [[likely]] {
                cursor.tag = *at;
                cursor.at = at + 1;
            } else if constexpr (has_long_tag<Message, Index + 1>()) {
                const Varint tag = read_long_tag(at, end);
                if (tag.at == nullptr) return {fail(source, VESK_MALFORMED), cursor.presence, no_tag};
                cursor.at = tag.at;
                cursor.tag = tag.value;
            } else {
                return cursor;
            }
        }
        return decode_fields<Message, Index + 1>(message, cursor, end, source);
    }
}

// A bit for each field number of the message; or the numbers themselves, where one is too high for that.
template <class Message, std::size_t... Indices>
consteval auto field_numbers_of(std::index_sequence<Indices...>) {
    if constexpr (((number_of<Message, Indices> < 64) && ...)) {
        return (std::uint64_t{0} | ... | (std::uint64_t{1} << number_of<Message, Indices>));
    } else {
        return FieldNumbers<sizeof...(Indices)>{{number_of<Message, Indices>...}};
    }
}

template <std::size_t Count>
const std::uint8_t* skip_unknown(std::uint32_t tag, const FieldNumbers<Count>& numbers, const std::uint8_t* at,
                                 const std::uint8_t* end, Source& source) {
    std::uint64_t known = 0;
    for (const std::uint32_t number : numbers.of_field) known |= number == field_number_of_tag(tag);
    // Number 1 of the bits stands for the number in question.
    return skip_unknown(wire_type_of_tag(tag) | 1 << 3, known << 1, at, end, source);
}

inline bool has_field_number(std::uint32_t number, std::uint64_t numbers) {
    return number < 64 && (numbers >> number & 1) != 0;
}

template <class Message>
[[gnu::noinline]] const std::uint8_t* decode(void* untyped, const std::uint8_t* at, const std::uint8_t* end,
                                             Source& source) {
    constexpr auto field_numbers = field_numbers_of<Message>(std::make_index_sequence<field_count<Message>>{});
    Message& message = *static_cast<Message*>(untyped);
    Cursor cursor{at, 0, no_tag};
    while (cursor.at != nullptr) {
        if (cursor.tag == no_tag) {
            if (cursor.at == end) break;
            const Varint tag = read_tag(cursor.at, end);
            cursor = {tag.at != nullptr ? tag.at : fail(source, VESK_MALFORMED), cursor.presence, tag.value};
            if (cursor.at == nullptr) break;
        }
        const std::uint8_t* const before = cursor.at;
        cursor = decode_fields<Message, 0>(message, cursor, end, source);
        // The tag of an earlier field is answered in another turn; one that no turn answers is none of this message's.
        if (cursor.at == before) [[unlikely]] {
            cursor = {skip_unknown(static_cast<std::uint32_t>(cursor.tag), field_numbers, before, end, source),
                      cursor.presence, no_tag};
        }
    }
    store_presence(message, cursor.presence);
    return cursor.at;
}

// What an exported function does, with the arguments as it got them.
std::int32_t decode_ext(void* message, const NestedDecoder& decoder, const void* buffer, std::uint64_t length,
                        Allocator allocator, std::uint32_t flags);

}  // namespace vesk
