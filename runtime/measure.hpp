// Measuring: the length of a message's encoding, in one pass that writes nothing.
#pragma once

#include <cstring>
#include <type_traits>

#include "runtime/schema.hpp"

namespace vesk {

template <class Message>
std::uint64_t measure(const Message& message, std::uint32_t flags);

// `measure` for the functions that all types share, which do not know the nested type.
using MeasureNested = std::uint64_t (*)(const void* nested, std::uint32_t flags);

template <class Nested>
std::uint64_t measure_any(const void* nested, std::uint32_t flags) {
    return measure(*static_cast<const Nested*>(nested), flags);
}

// The bytes of all elements with their lengths and tags, a tag taking `tag_size` bytes.
std::uint64_t measure_list(const void* array, std::uint32_t count, std::size_t element_size, std::uint64_t tag_size,
                           MeasureNested measure_one, std::uint32_t flags);

// The data of a bytes field that the buffer holds. A length so large that the position would wrap adds nothing; the
// caller's lengths are trusted, so this only keeps measuring and writing of one mind.
inline std::uint64_t bytes_size(std::uint64_t length, std::uint64_t position, std::uint32_t flags) {
    const bool wraps = position + length < position;
    return wraps || (flags & VESK_BYTES_BY_REFERENCE) != 0 ? 0 : length;
}

// Returns `position` advanced by what the field adds to the encoding.
template <class Message, std::size_t Index>
inline std::uint64_t measure_field(const Message& message, std::uint64_t position, std::uint32_t flags) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    constexpr std::uint64_t tag_size = varint_size(tag_of<Message, Index>);
    const bool present = is_present<Message, Index>(message);
    if constexpr (kind == Kind::message) {
        const std::uint64_t size = measure(message.*field.member, flags);
        if (size != 0 || present) position += tag_size + length_size(size) + size;
    } else if constexpr (kind == Kind::list) {
        if (present) {
            using Element = std::remove_cvref_t<decltype(*(message.*field.array))>;
            position += measure_list(message.*field.array, message.*field.count, sizeof(Element), tag_size,
                                     measure_any<Element>, flags);
        }
    } else if constexpr (kind == Kind::string) {
        if (present && message.*field.member != nullptr) {
            const std::uint64_t length = std::strlen(message.*field.member);
            position += tag_size + length_size(length) + length;
        }
    } else if constexpr (kind == Kind::bytes) {
        if (present) {
            position += tag_size + length_size(message.*field.length);
            position += bytes_size(message.*field.length, position, flags);
        }
    } else {
        if (present) position += tag_size + varint_size(message.*field.member);
    }
    return position;
}

template <class Message, std::size_t Index = 0>
[[gnu::always_inline]] inline std::uint64_t measure_fields(const Message& message, std::uint64_t position,
                                                           std::uint32_t flags) {
    if constexpr (Index == field_count<Message>) {
        return position;
    } else {
        return measure_fields<Message, Index + 1>(message, measure_field<Message, Index>(message, position, flags),
                                                  flags);
    }
}

template <class Message>
[[gnu::noinline]] std::uint64_t measure(const Message& message, std::uint32_t flags) {
    if constexpr (is_imported<Message>) {
        return imported<Message>.encode(&message, nullptr, 0, nullptr, nullptr, flags);
    } else {
        return measure_fields<Message>(message, 0, flags);
    }
}

}  // namespace vesk
