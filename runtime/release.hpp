// Releasing: every block that a message owns goes back through the caller's callback. Presence bits and the lengths of
// bytes fields stay as they were.
#pragma once

#include <type_traits>

#include "runtime/memory.hpp"
#include "runtime/schema.hpp"

namespace vesk {

template <class Message>
void release(Message& message, Releaser releaser, std::uint32_t flags);

// `release` for the functions that all types share, which do not know the nested type.
using ReleaseNested = void (*)(void* nested, Releaser releaser, std::uint32_t flags);

template <class Nested>
void release_any(void* nested, Releaser releaser, std::uint32_t flags) {
    release(*static_cast<Nested*>(nested), releaser, flags);
}

void release_string(char** member, Releaser releaser);
void release_bytes(std::uint8_t** data, Releaser releaser, std::uint32_t flags);

// `array` is what the member holds, `array_member` its address.
void release_list(void* array, void* array_member, std::uint32_t* count, std::size_t element_size,
                  ReleaseNested release_one, Releaser releaser, std::uint32_t flags);

template <class Message, std::size_t Index>
inline void release_field(Message& message, Releaser releaser, std::uint32_t flags) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    if constexpr (kind == Kind::message) {
        release(message.*field.member, releaser, flags);
    } else if constexpr (kind == Kind::list) {
        using Element = std::remove_cvref_t<decltype(*(message.*field.array))>;
        release_list(message.*field.array, &(message.*field.array), &(message.*field.count), sizeof(Element),
                     release_any<Element>, releaser, flags);
    } else if constexpr (kind == Kind::string) {
        release_string(&(message.*field.member), releaser);
    } else if constexpr (kind == Kind::bytes) {
        release_bytes(&(message.*field.data), releaser, flags);
    }
}

template <class Message, std::size_t Index = 0>
[[gnu::always_inline]] inline void release_fields(Message& message, Releaser releaser, std::uint32_t flags) {
    if constexpr (Index < field_count<Message>) {
        release_field<Message, Index>(message, releaser, flags);
        release_fields<Message, Index + 1>(message, releaser, flags);
    }
}

template <class Message>
[[gnu::noinline]] void release(Message& message, Releaser releaser, std::uint32_t flags) {
    if constexpr (is_imported<Message>) {
        imported<Message>.release(&message, releaser.release, releaser.context, flags);
    } else {
        release_fields<Message>(message, releaser, flags);
    }
}

}  // namespace vesk
