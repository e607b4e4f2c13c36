// Releasing: every block that a message owns goes back through the caller's callback. Presence bits and the lengths of
// bytes fields stay as they were.
#pragma once

#include "runtime/memory.hpp"
#include "runtime/schema.hpp"

namespace vesk {

// Releases what a Message owns.
template <class Message>
void release(void* message, const Releaser& releaser);

template <class Message>
void release_imported(void* message, const Releaser& releaser) {
    imported<Message>.release(static_cast<Message*>(message), releaser.release, releaser.context, releaser.flags);
}

// What the functions that all types share need to know of a nested type.
struct NestedReleaser {
    std::size_t size;                                         // of the structure
    void (*release)(void* nested, const Releaser& releaser);  // null for a plain message
};

template <class Message>
consteval NestedReleaser make_releaser() {
    if constexpr (is_imported<Message>) {
        return {sizeof(Message), release_imported<Message>};
    } else if constexpr (is_plain<Message>()) {
        return {sizeof(Message), nullptr};
    } else {
        return {sizeof(Message), release<Message>};
    }
}

template <class Message>
inline constexpr NestedReleaser releaser_of = make_releaser<Message>();

void release_string(char** member, const Releaser& releaser);
void release_bytes(std::uint8_t** data, const Releaser& releaser);
// `array` is what the member holds, `array_member` its address.
void release_list(void* array, void* array_member, std::uint32_t* count, const NestedReleaser& nested_releaser,
                  const Releaser& releaser);

// The same for repeated fields of others' messages: of scalars, of strings, of bytes.
template <class Element>
void release_elements(Element** array, std::uint32_t* count, const Releaser& releaser) {
    releaser.release(*array, releaser.context);
    *array = nullptr;
    *count = 0;
}
void release_elements(char*** array, std::uint32_t* count, const Releaser& releaser);
void release_elements(vesk_bytes** array, std::uint32_t* count, const Releaser& releaser);

template <class Message, std::size_t Index>
VESK_INLINE void release_field(Message& message, const Releaser& releaser) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    if constexpr (kind == Kind::message) {
        using Nested = NestedOf<Message, Index>;
        if constexpr (!is_plain<Nested>()) releaser_of<Nested>.release(&(message.*field.member), releaser);
    } else if constexpr (kind == Kind::list) {
        if (message.*field.array == nullptr) return;
        release_list(message.*field.array, &(message.*field.array), &(message.*field.count),
                     releaser_of<NestedOf<Message, Index>>, releaser);
    } else if constexpr (kind == Kind::repeated || kind == Kind::strings || kind == Kind::blobs) {
        if (message.*field.array != nullptr) {
            release_elements(&(message.*field.array), &(message.*field.count), releaser);
        }
    } else if constexpr (kind == Kind::string) {
        if (message.*field.member != nullptr) release_string(&(message.*field.member), releaser);
    } else if constexpr (kind == Kind::bytes) {
        release_bytes(&(message.*field.data), releaser);
    }
}

template <class Message, std::size_t Index>
VESK_INLINE void release_fields(Message& message, const Releaser& releaser) {
    if constexpr (Index < field_count<Message>) {
        release_field<Message, Index>(message, releaser);
        release_fields<Message, Index + 1>(message, releaser);
    }
}

template <class Message>
[[gnu::noinline]] void release(void* message, const Releaser& releaser) {
    release_fields<Message, 0>(*static_cast<Message*>(message), releaser);
}

}  // namespace vesk
