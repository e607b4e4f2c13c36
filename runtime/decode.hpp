// Decoding: bytes into a message. Input bytes are never trusted; the first error ends the call, and what was read
// before it stays in the message for the caller to free.
#pragma once

#include <cstring>

#include "runtime/memory.hpp"
#include "runtime/schema.hpp"

namespace vesk {

// What stays the same while a message and all that is in it are decoded.
struct Source {
    Input input;
    Allocator allocator;
    std::uint32_t flags;
};

// Reads the range from `at` to `end` into a message that has been cleared. `untyped` is a Message.
template <class Message>
std::int32_t decode(void* untyped, const std::uint8_t* at, const std::uint8_t* end, const Source& source);

// What the functions that all types share need to know of a nested type.
struct NestedDecoder {
    std::size_t size;  // of the structure
    std::int32_t (*decode)(void* nested, const std::uint8_t* at, const std::uint8_t* end, const Source& source);
};

// Each of these reads one field whose tag has been read, `at` being the position behind the tag. The order of its
// checks is part of the contract: where several would fail, the first decides the code.
Step decode_string(char** member, const std::uint8_t* at, const std::uint8_t* end, const Source& source);
Step decode_bytes(std::uint8_t** data, std::uint64_t* length, const std::uint8_t* at, const std::uint8_t* end,
                  const Source& source);
// With `clear`, what the nested message held from an earlier occurrence is replaced.
Step decode_nested(void* nested, const NestedDecoder& decoder, bool clear, const std::uint8_t* at,
                   const std::uint8_t* end, const Source& source);

// Reads a list, which is one unbroken run of fields of one number: counts the run, allocates it once, then decodes it.
// `array` is what the member holds, `array_member` its address.
Step decode_list(const void* array, void* array_member, std::uint32_t* count, std::uint32_t number,
                 const NestedDecoder& decoder, const std::uint8_t* at, const std::uint8_t* end, const Source& source);

// Skips the value of a field that the message does not have. `known_numbers` has a bit for each that it has: such a
// number in a tag that no field has means that the wire type is wrong.
Step skip_unknown(std::uint32_t tag, std::uint64_t known_numbers, const std::uint8_t* at, const std::uint8_t* end);

template <class Message>
std::int32_t decode_imported(void* message, const std::uint8_t* at, const std::uint8_t* end, const Source& source) {
    return imported<Message>.decode(static_cast<Message*>(message), at, static_cast<std::uint64_t>(end - at),
                                    source.allocator.alloc, source.allocator.context, source.flags);
}

template <class Message>
consteval NestedDecoder make_decoder() {
    if constexpr (is_imported<Message>) {
        return {sizeof(Message), decode_imported<Message>};
    } else {
        return {sizeof(Message), decode<Message>};
    }
}

template <class Message>
inline constexpr NestedDecoder decoder_of = make_decoder<Message>();

inline Varint read_word_varint(const std::uint8_t* at, const std::uint8_t* end, Input input, std::uint32_t) {
    return read_word_varint32(at, end, input);
}
inline Varint read_word_varint(const std::uint8_t* at, const std::uint8_t* end, Input input, std::uint64_t) {
    return read_word_varint64(at, end, input);
}

template <class Message, std::size_t Index>
[[gnu::always_inline]] inline Step decode_field(Message& message, bool again, const std::uint8_t* at,
                                                const std::uint8_t* end, const Source& source) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    if constexpr (kind == Kind::message) {
        using Nested = NestedOf<Message, Index>;
        // What a later occurrence of an imported message does to the earlier one is for its own decoder to say.
        const bool clear = again && !is_imported<Nested>;
        return decode_nested(&(message.*field.member), decoder_of<Nested>, clear, at, end, source);
    } else if constexpr (kind == Kind::list) {
        return decode_list(message.*field.array, &(message.*field.array), &(message.*field.count),
                           number_of<Message, Index>, decoder_of<NestedOf<Message, Index>>, at, end, source);
    } else if constexpr (kind == Kind::string) {
        return decode_string(&(message.*field.member), at, end, source);
    } else if constexpr (kind == Kind::bytes) {
        return decode_bytes(&(message.*field.data), &(message.*field.length), at, end, source);
    } else {
        using Scalar = ScalarOf<Message, Index>;
        typename Scalar::Wire value;
        if (at < end && *at < 0x80) {
            value = *at++;
        } else {
            const Varint varint = read_word_varint(at, end, source.input, typename Scalar::Wire{});
            if (varint.at == nullptr) return {nullptr, VESK_MALFORMED};
            at = varint.at;
            value = static_cast<typename Scalar::Wire>(varint.value);
        }
        message.*field.member = Scalar::from_wire(value);
        return {at, VESK_OK};
    }
}

// How far the decoding of a message has come.
struct Decoded {
    const std::uint8_t* at;  // null when it has ended, with the code
    std::uint64_t presence;
    std::uint32_t tag;  // the last one read, whose value begins at `at`; but if the code is `unread`, it begins there
    std::int32_t code;
};

inline constexpr std::int32_t unread = 1;

// With `long_tags`, reads any tag; without, leaves one of two bytes or more unread.
template <bool long_tags>
[[gnu::always_inline]] inline Decoded read_tag(const std::uint8_t* at, std::uint64_t presence,
                                               const std::uint8_t* end) {
    if (at == end) return {nullptr, presence, {}, VESK_OK};
    if (*at < 0x80) return {at + 1, presence, *at, VESK_OK};
    if constexpr (!long_tags) return {at, presence, {}, unread};
    const Varint tag = read_long_tag(at, end);
    return {tag.at, presence, static_cast<std::uint32_t>(tag.value), tag.at != nullptr ? VESK_OK : VESK_MALFORMED};
}

template <class Message, std::size_t Index>
consteval bool has_long_tag() {
    if constexpr (Index < field_count<Message>) return tag_of<Message, Index> >= 0x80;
    return false;
}

// Fields usually come in the order of their declaration, so that the tag at hand is that of the next one, or of one
// soon after it.
template <class Message, std::size_t Index>
[[gnu::always_inline]] inline Decoded decode_fields(Message& message, Decoded so_far, const std::uint8_t* end,
                                                    const Source& source) {
    if constexpr (Index == field_count<Message>) {
        return so_far;
    } else {
        if (so_far.tag == tag_of<Message, Index>) {
            const Step step =
                decode_field<Message, Index>(message, has_bit<Index>(so_far.presence), so_far.at, end, source);
            if (step.at == nullptr) return {nullptr, so_far.presence, {}, step.code};
            so_far =
                read_tag<has_long_tag<Message, Index + 1>()>(step.at, so_far.presence | std::uint64_t{1} << Index, end);
            if (so_far.at == nullptr || so_far.code == unread) return so_far;
        }
        return decode_fields<Message, Index + 1>(message, so_far, end, source);
    }
}

// A bit for each field number of the message, or for each that has a value of the wire type.
template <class Message, std::size_t... Indices>
consteval std::uint64_t numbers_of(std::index_sequence<Indices...>, [[maybe_unused]] std::uint32_t wire_type) {
    return (std::uint64_t{0} | ... |
            (wire_type == wire_type_of_tag(tag_of<Message, Indices>) ? std::uint64_t{1} << number_of<Message, Indices>
                                                                     : 0));
}

inline bool is_number_in(std::uint32_t number, std::uint64_t numbers) {
    return number < 64 && (numbers >> number & 1) != 0;
}

template <class Message>
[[gnu::noinline]] std::int32_t decode(void* untyped, const std::uint8_t* at, const std::uint8_t* end,
                                      const Source& source) {
    constexpr auto all_fields = std::make_index_sequence<field_count<Message>>{};
    constexpr std::uint64_t varint_numbers = numbers_of<Message>(all_fields, varint_type);
    constexpr std::uint64_t length_numbers = numbers_of<Message>(all_fields, length_type);
    Message& message = *static_cast<Message*>(untyped);
    Decoded so_far{at, 0, {}, unread};
    for (;;) {
        if (so_far.code == unread) so_far = read_tag<true>(so_far.at, so_far.presence, end);
        if (so_far.at == nullptr) break;
        so_far = decode_fields<Message, 0>(message, so_far, end, source);
        if (so_far.at == nullptr) break;
        if (so_far.code == unread) continue;
        // The tag of an earlier field is answered in another turn; what is left is none of this message's tags.
        const std::uint32_t number = field_number_of_tag(so_far.tag);
        if (wire_type_of_tag(so_far.tag) == varint_type && is_number_in(number, varint_numbers)) continue;
        if (wire_type_of_tag(so_far.tag) == length_type && is_number_in(number, length_numbers)) continue;
        const Step step = skip_unknown(so_far.tag, varint_numbers | length_numbers, so_far.at, end);
        so_far = {step.at, so_far.presence, {}, step.code == VESK_OK ? unread : step.code};
        if (so_far.at == nullptr) break;
    }
    store_presence(message, so_far.presence);
    return so_far.code;
}

// What an exported function does, with the arguments as it got them.
std::int32_t decode_ext(void* message, const NestedDecoder& decoder, const void* buffer, std::uint64_t length,
                        Allocator allocator, std::uint32_t flags);

}  // namespace vesk
