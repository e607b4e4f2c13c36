// Duplicating: a deep copy. It never stops early: what could not be copied is empty and marked absent, the rest is
// there.
#pragma once

#include <cstring>

#include "runtime/memory.hpp"
#include "runtime/schema.hpp"

namespace vesk {

// Copies a message into raw storage, which may be its own. Both are Messages.
template <class Message>
std::int32_t duplicate(void* destination, const void* source, const Allocator& allocator);

template <class Message>
std::int32_t duplicate_imported(void* destination, const void* source, const Allocator& allocator) {
    return imported<Message>.duplicate(static_cast<Message*>(destination), static_cast<const Message*>(source),
                                       allocator.alloc, allocator.context);
}

// What the functions that all types share need to know of a nested type.
struct NestedDuplicator {
    std::size_t size;  // of the structure
    std::int32_t (*duplicate)(void* destination, const void* source, const Allocator& allocator);
};

template <class Message>
consteval NestedDuplicator make_duplicator() {
    if constexpr (is_imported<Message>) {
        return {sizeof(Message), duplicate_imported<Message>};
    } else {
        return {sizeof(Message), duplicate<Message>};
    }
}

template <class Message>
inline constexpr NestedDuplicator duplicator_of = make_duplicator<Message>();

// The code of a nested message counts only if nothing failed before it.
inline std::int32_t first_code(std::int32_t recorded, std::int32_t nested) {
    return recorded != VESK_OK ? recorded : nested;
}

// Each of these makes an owned copy of what a field of the source holds and returns true, or leaves the destination's
// members null and 0 and returns false if the block could not be had. The source is not empty.
bool duplicate_string(char** destination, const char* source, const Allocator& allocator);
bool duplicate_bytes(std::uint8_t** destination, std::uint64_t* destination_length, const std::uint8_t* source,
                     std::uint64_t length, const Allocator& allocator);
// `destination_member` is the address of the array member. `*code` takes up the first code of an element.
bool duplicate_list(void* destination_member, std::uint32_t* destination_count, const void* source, std::uint32_t count,
                    const NestedDuplicator& duplicator, const Allocator& allocator, std::int32_t* code);

// The same for repeated fields of others' messages: of scalars, of strings, of bytes.
template <class Element>
bool duplicate_elements(Element** destination, std::uint32_t* destination_count, const Element* source,
                        std::uint32_t count, const Allocator& allocator, std::int32_t*) {
    *destination_count = 0;
    void* const block = allocate(allocator, std::uint64_t{count} * sizeof *source);
    if (block == nullptr) return false;
    std::memcpy(block, source, std::size_t{count} * sizeof *source);
    *destination = static_cast<Element*>(block);
    *destination_count = count;
    return true;
}
bool duplicate_elements(char*** destination, std::uint32_t* destination_count, char* const* source, std::uint32_t count,
                        const Allocator& allocator, std::int32_t* code);
bool duplicate_elements(vesk_bytes** destination, std::uint32_t* destination_count, const vesk_bytes* source,
                        std::uint32_t count, const Allocator& allocator, std::int32_t* code);

// ---- The structure -------------------------------------------------------------------------------------------------

// Copies a structure but for the nested messages that are not plain: their own functions copy those. A structure may be
// copied onto itself: compilers make memcpy of an assignment, and so hold it to be good for that.
template <std::size_t Index, class Message>
VESK_INLINE void copy_structure(Message& destination, const Message& source, std::size_t done) {
    char* const to = reinterpret_cast<char*>(&destination);
    const char* const from = reinterpret_cast<const char*>(&source);
    if constexpr (Index == field_count<Message>) {
        std::memcpy(to + done, from + done, sizeof source - done);
    } else {
        if constexpr (kind_of<Message, Index> == Kind::message) {
            if constexpr (!is_plain<NestedOf<Message, Index>>()) {
                const auto& nested = source.*field_of<Message, Index>.member;
                const std::size_t offset = static_cast<std::size_t>(reinterpret_cast<const char*>(&nested) - from);
                std::memcpy(to + done, from + done, offset - done);
                done = offset + sizeof nested;
            }
        }
        copy_structure<Index + 1>(destination, source, done);
    }
}

// Runs `copy`, which overwrites the destination; the spare bits of its presence bytes, and of those of the plain
// messages in it, stay as they were.
template <std::size_t Index, class Message, class Copy>
VESK_INLINE void keep_spare_bits(Message& destination, const Copy& copy) {
    if constexpr (Index < field_count<Message>) {
        if constexpr (kind_of<Message, Index> == Kind::message) {
            if constexpr (is_plain<NestedOf<Message, Index>>()) {
                keep_spare_bits<0>(destination.*field_of<Message, Index>.member,
                                   [&] { keep_spare_bits<Index + 1>(destination, copy); });
                return;
            }
        }
        keep_spare_bits<Index + 1>(destination, copy);
    } else {
        std::uint8_t& last = destination.present[sizeof destination.present - 1];
        constexpr std::uint8_t spare =
            static_cast<std::uint8_t>(0xFFu << (field_count<Message> - 8 * (sizeof destination.present - 1)));
        const std::uint8_t kept = last & spare;
        copy();
        last = static_cast<std::uint8_t>((last & static_cast<std::uint8_t>(~spare)) | kept);
    }
}

// ---- What a message owns -------------------------------------------------------------------------------------------

// Replaces what field Index shares with the source by a copy of its own; its presence bit is cleared if that could not
// be had. Returns `code`, the code recorded so far, joined with the field's own.
template <class Message, std::size_t Index>
VESK_INLINE std::int32_t duplicate_field(Message& destination, const Message& source, const Allocator& allocator,
                                         std::int32_t code) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    bool copied = true;
    if constexpr (kind == Kind::message) {
        using Nested = NestedOf<Message, Index>;
        if constexpr (!is_plain<Nested>()) {
            return first_code(code, duplicator_of<Nested>.duplicate(&(destination.*field.member),
                                                                    &(source.*field.member), allocator));
        }
    } else if constexpr (kind == Kind::list) {
        const void* const array = source.*field.array;  // read first: the source may be the destination
        destination.*field.array = nullptr;
        if (source.*field.count != 0) {
            copied = duplicate_list(&(destination.*field.array), &(destination.*field.count), array,
                                    source.*field.count, duplicator_of<NestedOf<Message, Index>>, allocator, &code);
        }
    } else if constexpr (kind == Kind::repeated || kind == Kind::strings || kind == Kind::blobs) {
        auto* const array = source.*field.array;
        destination.*field.array = nullptr;
        if (source.*field.count != 0) {
            copied = duplicate_elements(&(destination.*field.array), &(destination.*field.count), array,
                                        source.*field.count, allocator, &code);
        }
    } else if constexpr (kind == Kind::string) {
        if (source.*field.member != nullptr) {
            copied = duplicate_string(&(destination.*field.member), source.*field.member, allocator);
        }
    } else if constexpr (kind == Kind::bytes) {
        copied = duplicate_bytes(&(destination.*field.data), &(destination.*field.length), source.*field.data,
                                 source.*field.length, allocator);
    }
    if (copied) [[likely]]
        return code;
    mark_absent<Message, Index>(destination);
    return VESK_NO_MEMORY;
}

template <class Message, std::size_t Index>
VESK_INLINE std::int32_t duplicate_fields(Message& destination, const Message& source, const Allocator& allocator,
                                          std::int32_t code) {
    if constexpr (Index == field_count<Message>) {
        return code;
    } else {
        code = duplicate_field<Message, Index>(destination, source, allocator, code);
        return duplicate_fields<Message, Index + 1>(destination, source, allocator, code);
    }
}

template <class Message>
[[gnu::noinline]] std::int32_t duplicate(void* destination, const void* source, const Allocator& allocator) {
    Message& to = *static_cast<Message*>(destination);
    const Message& from = *static_cast<const Message*>(source);
    keep_spare_bits<0>(to, [&] { copy_structure<0>(to, from, 0); });
    return duplicate_fields<Message, 0>(to, from, allocator, VESK_OK);
}

}  // namespace vesk
