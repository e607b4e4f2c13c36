// Duplicating: a deep copy. It never stops early: what could not be copied is empty and marked absent, the rest is
// there.
#pragma once

#include <type_traits>

#include "runtime/memory.hpp"
#include "runtime/schema.hpp"

namespace vesk {

template <class Message>
std::int32_t duplicate(Message& destination, const Message& source, Allocator allocator);

// `duplicate` for the functions that all types share, which do not know the nested type.
using DuplicateNested = std::int32_t (*)(void* destination, const void* source, Allocator allocator);

template <class Nested>
std::int32_t duplicate_any(void* destination, const void* source, Allocator allocator) {
    return duplicate(*static_cast<Nested*>(destination), *static_cast<const Nested*>(source), allocator);
}

// The code of a nested message counts only if nothing failed before it.
inline std::int32_t first_code(std::int32_t recorded, std::int32_t nested) {
    return recorded != VESK_OK ? recorded : nested;
}

// Each of these copies one field that owns a block and returns true, or leaves the destination's members null and 0
// and returns false if the block could not be had. The source's members are passed by value.
bool duplicate_string(char** destination, const char* source, Allocator allocator);
bool duplicate_bytes(std::uint8_t** destination, std::uint64_t* destination_length, const std::uint8_t* source,
                     std::uint64_t length, Allocator allocator);

// `destination_member` is the address of the array member. `*code` takes up the first code of an element.
bool duplicate_list(void* destination_member, std::uint32_t* destination_count, const void* source, std::uint32_t count,
                    std::size_t element_size, DuplicateNested duplicate_one, Allocator allocator, std::int32_t* code);

template <class Message, std::size_t Index>
inline constexpr bool is_number = wire_type_of_kind(kind_of<Message, Index>) == varint_type;

// The last of the numbers and flags that stand one behind the other from field Index on.
template <class Message, std::size_t Index>
constexpr std::size_t last_number() {
    if constexpr (Index + 1 < field_count<Message>) {
        if constexpr (is_number<Message, Index + 1>) return last_number<Message, Index + 1>();
    }
    return Index;
}

// Copies the numbers and flags of the fields First to Last as one stretch of the structure, padding included.
template <class Message, std::size_t First, std::size_t Last>
inline void copy_numbers(Message& destination, const Message& source) {
    const char* from = reinterpret_cast<const char*>(&source);
    const char* first = reinterpret_cast<const char*>(&(source.*field_of<Message, First>.member));
    const char* end = reinterpret_cast<const char*>(&(source.*field_of<Message, Last>.member) + 1);
    std::memcpy(reinterpret_cast<char*>(&destination) + (first - from), first, static_cast<std::size_t>(end - first));
}

// Copies the presence bits of all fields; the spare bits of the last byte stay as they are.
template <class Message>
inline void copy_presence(Message& destination, const Message& source) {
    constexpr std::size_t last = sizeof(Message::present) - 1;
    constexpr unsigned fields_in_last = static_cast<unsigned>(field_count<Message> - 8 * last);
    constexpr std::uint8_t spare = static_cast<std::uint8_t>(0xFFu << fields_in_last);
    std::memcpy(destination.present, source.present, last);
    destination.present[last] = static_cast<std::uint8_t>((destination.present[last] & spare) |
                                                          (source.present[last] & static_cast<std::uint8_t>(~spare)));
}

// Copies one field that is no number or flag; its presence bit is cleared if it could not be copied. Returns `code`,
// the code recorded so far, joined with the field's own.
template <class Message, std::size_t Index>
inline std::int32_t duplicate_field(Message& destination, const Message& source, Allocator allocator,
                                    std::int32_t code) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    bool copied;
    if constexpr (kind == Kind::message) {
        return first_code(code, duplicate(destination.*field.member, source.*field.member, allocator));
    } else if constexpr (kind == Kind::list) {
        using Element = std::remove_cvref_t<decltype(*(source.*field.array))>;
        copied = duplicate_list(&(destination.*field.array), &(destination.*field.count), source.*field.array,
                                source.*field.count, sizeof(Element), duplicate_any<Element>, allocator, &code);
    } else if constexpr (kind == Kind::string) {
        copied = duplicate_string(&(destination.*field.member), source.*field.member, allocator);
    } else {
        static_assert(kind == Kind::bytes);
        copied = duplicate_bytes(&(destination.*field.data), &(destination.*field.length), source.*field.data,
                                 source.*field.length, allocator);
    }
    if (copied) return code;
    mark_absent<Message, Index>(destination);
    return VESK_NO_MEMORY;
}

template <class Message, std::size_t Index = 0>
[[gnu::always_inline]] inline std::int32_t duplicate_fields(Message& destination, const Message& source,
                                                            Allocator allocator, std::int32_t code) {
    if constexpr (Index == field_count<Message>) {
        return code;
    } else if constexpr (is_number<Message, Index>) {
        constexpr std::size_t last = last_number<Message, Index>();
        copy_numbers<Message, Index, last>(destination, source);
        return duplicate_fields<Message, last + 1>(destination, source, allocator, code);
    } else {
        code = duplicate_field<Message, Index>(destination, source, allocator, code);
        return duplicate_fields<Message, Index + 1>(destination, source, allocator, code);
    }
}

template <class Message>
[[gnu::noinline]] std::int32_t duplicate(Message& destination, const Message& source, Allocator allocator) {
    if constexpr (is_imported<Message>) {
        return imported<Message>.duplicate(&destination, &source, allocator.alloc, allocator.context);
    } else {
        copy_presence(destination, source);
        return duplicate_fields<Message>(destination, source, allocator, VESK_OK);
    }
}

}  // namespace vesk
