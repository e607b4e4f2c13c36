// Measuring: the length of a message's encoding, in one pass that writes nothing.
#pragma once

#include <cstring>

#include "runtime/schema.hpp"

namespace vesk {

// ---- What measuring finds out and writing needs again --------------------------------------------------------------

struct Nothing {};

template <class Message, std::size_t Index>
consteval auto note_of_field();

template <class Message, class Indices>
struct Notes;

template <class Message, std::size_t... Indices>
struct Notes<Message, std::index_sequence<Indices...>> : Slot<Indices, decltype(note_of_field<Message, Indices>())>... {
};

// The lengths of a message's strings and the sizes of its nested messages. It takes the same little room for every
// message of a type, since the elements of lists are left out: each of them is measured when its turn comes.
template <class Message>
struct Sizes : Notes<Message, std::make_index_sequence<field_count<Message>>> {};

template <class Nested>
struct NestedSizes {
    std::uint64_t size;
    Sizes<Nested> inner;
};

template <class Message, std::size_t Index>
consteval auto note_of_field() {
    constexpr Kind kind = kind_of<Message, Index>;
    if constexpr (kind == Kind::string) {
        return std::uint64_t{};
    } else if constexpr (kind == Kind::message) {
        using Nested = NestedOf<Message, Index>;
        if constexpr (is_small<Nested>()) {
            return Nothing{};  // its length takes one byte, which is filled in when it has been written
        } else if constexpr (is_imported<Nested>) {
            return std::uint64_t{};
        } else {
            return NestedSizes<Nested>{};
        }
    } else {
        return Nothing{};
    }
}

// ---- Measuring -----------------------------------------------------------------------------------------------------

struct Measured {
    std::uint64_t size;
    // Every length that came from a bytes field or an imported function, joined with OR. A sum of sizes may wrap, and
    // then says nothing about what fits; it cannot while this is small.
    std::uint64_t lengths;
};

// Measures the fields First to Last - 1; all of them if nothing is said.
template <class Message, std::size_t First = 0, std::size_t Last = field_count<Message>>
Measured measure(const Message& message, Sizes<Message>& sizes, std::uint32_t flags);

template <class Message>
inline std::uint64_t measure_imported(const Message& message, std::uint32_t flags) {
    return imported<Message>.encode(&message, nullptr, 0, nullptr, nullptr, flags);
}

// The data of a bytes field that the buffer holds. A length so large that the position would wrap adds nothing; the
// caller's lengths are trusted, so this only keeps measuring and writing of one mind.
inline std::uint64_t bytes_size(std::uint64_t length, std::uint64_t position, std::uint32_t flags) {
    const bool wraps = length > UINT64_MAX - position;
    return wraps || (flags & VESK_BYTES_BY_REFERENCE) != 0 ? 0 : length;
}

// A small message: at most 127 bytes.
template <class Message>
std::uint64_t measure_small(const Message& message);

// An element of a list, which is written also if it is empty.
template <class Element>
inline Measured measure_element(const Element& element, unsigned tag_size, std::uint32_t flags) {
    if constexpr (is_small<Element>()) {
        return {tag_size + 1 + measure_small(element), 0};
    } else {
        Measured measured;
        if constexpr (is_imported<Element>) {
            measured.size = measured.lengths = measure_imported(element, flags);
        } else {
            Sizes<Element> sizes;
            measured = measure(element, sizes, flags);
        }
        return {length_size(measured.size, tag_size) + measured.size, measured.lengths};
    }
}

// Returns `so_far` advanced by what the field adds to the encoding.
template <class Message, std::size_t Index>
[[gnu::always_inline]] inline Measured measure_field(const Message& message, std::uint64_t presence, Measured so_far,
                                                     Sizes<Message>& sizes, std::uint32_t flags) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    constexpr unsigned tag_size = static_cast<unsigned>(varint_size(tag_of<Message, Index>));
    const bool present = has_bit<Index>(presence);
    if constexpr (kind == Kind::message) {
        // A nested message with content counts even if its bit is clear.
        using Nested = NestedOf<Message, Index>;
        const Nested& nested = message.*field.member;
        if constexpr (is_small<Nested>()) {
            if (!is_empty(nested)) {
                so_far.size += tag_size + 1 + measure_small(nested);
            } else if (present) {
                so_far.size += tag_size + 1;
            }
        } else {
            std::uint64_t size;
            if constexpr (is_imported<Nested>) {
                size = get_slot<Index>(sizes) = measure_imported(nested, flags);
                so_far.lengths |= size;
            } else {
                NestedSizes<Nested>& note = get_slot<Index>(sizes);
                const Measured measured = measure(nested, note.inner, flags);
                size = note.size = measured.size;
                so_far.lengths |= measured.lengths;
            }
            if (size != 0 || present) so_far.size += length_size(size, tag_size) + size;
        }
    } else if constexpr (kind == Kind::list) {
        if (!present) return so_far;
        const auto* element = message.*field.array;
        for (std::uint32_t left = message.*field.count; left != 0; --left, ++element) {
            const Measured measured = measure_element(*element, tag_size, flags);
            so_far.size += measured.size;
            so_far.lengths |= measured.lengths;
        }
    } else if constexpr (kind == Kind::string) {
        if (!present || message.*field.member == nullptr) return so_far;
        const std::uint64_t length = std::strlen(message.*field.member);
        get_slot<Index>(sizes) = length;
        so_far.size += length_size(length, tag_size) + length;
    } else if constexpr (kind == Kind::bytes) {
        if (!present) return so_far;
        const std::uint64_t length = message.*field.length;
        so_far.size += length_size(length, tag_size);
        so_far.size += bytes_size(length, so_far.size, flags);
        if ((flags & VESK_BYTES_BY_REFERENCE) == 0) so_far.lengths |= length;
    } else {
        static_assert(is_number<Message, Index>);
        // Without a branch: which fields are present differs from message to message.
        so_far.size += only_if(present, varint_size(message.*field.member, tag_size));
    }
    return so_far;
}

// The numbers and flags First to Last - 1.
template <class Message, std::size_t First, std::size_t Last>
[[gnu::always_inline]] inline std::uint64_t measure_numbers(const Message& message, std::uint64_t presence) {
    if constexpr (First == Last) {
        return 0;
    } else {
        Sizes<Message> nothing;
        return measure_field<Message, First>(message, presence, {0, 0}, nothing, 0).size +
               measure_numbers<Message, First + 1, Last>(message, presence);
    }
}

template <class Message, std::size_t First, std::size_t Last>
[[gnu::always_inline]] inline Measured measure_fields(const Message& message, std::uint64_t presence, Measured so_far,
                                                      Sizes<Message>& sizes, std::uint32_t flags) {
    if constexpr (First == Last) {
        return so_far;
    } else if constexpr (is_number<Message, First>) {
        constexpr std::size_t end = end_of_numbers<Message, First>();
        if ((presence & presence_bits<First, end>) != 0) {
            so_far.size += measure_numbers<Message, First, end>(message, presence);
        }
        return measure_fields<Message, end, Last>(message, presence, so_far, sizes, flags);
    } else {
        so_far = measure_field<Message, First>(message, presence, so_far, sizes, flags);
        return measure_fields<Message, First + 1, Last>(message, presence, so_far, sizes, flags);
    }
}

template <class Message>
inline std::uint64_t measure_small(const Message& message) {
    Sizes<Message> nothing;
    return measure_fields<Message, 0, field_count<Message>>(message, load_presence(message), {0, 0}, nothing, 0).size;
}

template <class Message, std::size_t First, std::size_t Last>
[[gnu::noinline]] Measured measure(const Message& message, Sizes<Message>& sizes, std::uint32_t flags) {
    return measure_fields<Message, First, Last>(message, load_presence(message), {0, 0}, sizes, flags);
}

}  // namespace vesk
