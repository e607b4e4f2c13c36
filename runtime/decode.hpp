// Decoding: bytes into a message. Input bytes are never trusted; the first error ends the call, and what was read
// before it stays in the message for the caller to free.
#pragma once

#include <cstring>
#include <type_traits>

#include "runtime/memory.hpp"
#include "runtime/schema.hpp"

namespace vesk {

template <class Message>
std::int32_t decode(Message& message, const std::uint8_t* at, const std::uint8_t* end, Allocator allocator,
                    std::uint32_t flags);

// `decode` for the functions that all types share, which do not know the nested type.
using DecodeNested = std::int32_t (*)(void* nested, const std::uint8_t* at, const std::uint8_t* end,
                                      Allocator allocator, std::uint32_t flags);

template <class Nested>
std::int32_t decode_any(void* nested, const std::uint8_t* at, const std::uint8_t* end, Allocator allocator,
                        std::uint32_t flags) {
    return decode(*static_cast<Nested*>(nested), at, end, allocator, flags);
}

// Each of these reads one field whose tag has been read, `at` being the position behind the tag. The order of its
// checks is part of the contract: where several would fail, the first decides the code.
Step decode_string(char** member, const std::uint8_t* at, const std::uint8_t* end, Allocator allocator);
Step decode_bytes(std::uint8_t** data, std::uint64_t* length, const std::uint8_t* at, const std::uint8_t* end,
                  Allocator allocator, std::uint32_t flags);
Step decode_nested(void* nested, DecodeNested decode_one, const std::uint8_t* at, const std::uint8_t* end,
                   Allocator allocator, std::uint32_t flags);

// Reads a list, which is one unbroken run of fields of one number: counts the run, allocates it once, then decodes it.
// `array` is what the member holds, `array_member` its address.
Step decode_list(const void* array, void* array_member, std::uint32_t* count, std::uint32_t number,
                 std::size_t element_size, DecodeNested decode_one, const std::uint8_t* at, const std::uint8_t* end,
                 Allocator allocator, std::uint32_t flags);

template <class Message, std::size_t Index>
inline Step decode_value(Message& message, const std::uint8_t* at, const std::uint8_t* end, Allocator allocator,
                         std::uint32_t flags) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    if constexpr (kind == Kind::message) {
        using Nested = std::remove_cvref_t<decltype(message.*field.member)>;
        return decode_nested(&(message.*field.member), decode_any<Nested>, at, end, allocator, flags);
    } else if constexpr (kind == Kind::list) {
        using Element = std::remove_cvref_t<decltype(*(message.*field.array))>;
        return decode_list(message.*field.array, &(message.*field.array), &(message.*field.count),
                           number_of<Message, Index>, sizeof(Element), decode_any<Element>, at, end, allocator, flags);
    } else if constexpr (kind == Kind::string) {
        return decode_string(&(message.*field.member), at, end, allocator);
    } else if constexpr (kind == Kind::bytes) {
        return decode_bytes(&(message.*field.data), &(message.*field.length), at, end, allocator, flags);
    } else if constexpr (kind == Kind::uint64) {
        at = read_varint64(at, end, &(message.*field.member));
        return {at, at != nullptr ? VESK_OK : VESK_MALFORMED};
    } else {
        std::uint32_t value;
        at = read_varint32(at, end, &value);
        if (at == nullptr) return {nullptr, VESK_MALFORMED};
        if constexpr (kind == Kind::boolean) {
            message.*field.member = value != 0;
        } else {
            message.*field.member = value;
        }
        return {at, VESK_OK};
    }
}

// Reads the field and marks it present; the bit is set only when the field is complete.
template <class Message, std::size_t Index>
inline Step decode_field(Message& message, const std::uint8_t* at, const std::uint8_t* end, Allocator allocator,
                         std::uint32_t flags) {
    const Step step = decode_value<Message, Index>(message, at, end, allocator, flags);
    if (step.code == VESK_OK) mark_present<Message, Index>(message);
    return step;
}

template <class Message, std::size_t... Indices>
constexpr bool is_known([[maybe_unused]] std::uint32_t number, std::index_sequence<Indices...>) {
    return ((number == number_of<Message, Indices>) || ...);
}

// Finds the field of a tag from `Index` on and reads it, or skips a field that the message does not have.
template <class Message, std::size_t Index = 0>
[[gnu::always_inline]] inline Step decode_or_skip(Message& message, std::uint32_t tag, const std::uint8_t* at,
                                                  const std::uint8_t* end, Allocator allocator, std::uint32_t flags) {
    if constexpr (Index < field_count<Message>) {
        if (tag == tag_of<Message, Index>) return decode_field<Message, Index>(message, at, end, allocator, flags);
        return decode_or_skip<Message, Index + 1>(message, tag, at, end, allocator, flags);
    } else {
        // A known number in a tag that no field has: the wire type is wrong.
        if (is_known<Message>(number_of_tag(tag), std::make_index_sequence<field_count<Message>>{})) {
            return {nullptr, VESK_WRONG_WIRE_TYPE};
        }
        return skip_field(wire_type_of_tag(tag), at, end);
    }
}

template <class Message>
[[gnu::noinline]] std::int32_t decode(Message& message, const std::uint8_t* at, const std::uint8_t* end,
                                      Allocator allocator, std::uint32_t flags) {
    if constexpr (is_imported<Message>) {
        return imported<Message>.decode(&message, at, static_cast<std::uint64_t>(end - at), allocator.alloc,
                                        allocator.context, flags);
    } else {
        std::memset(&message, 0, sizeof message);
        while (at < end) {
            std::uint32_t tag;
            at = read_varint32(at, end, &tag);
            if (at == nullptr) return VESK_MALFORMED;
            const Step step = decode_or_skip<Message>(message, tag, at, end, allocator, flags);
            if (step.code != VESK_OK) return step.code;
            at = step.at;
        }
        return VESK_OK;
    }
}

}  // namespace vesk
