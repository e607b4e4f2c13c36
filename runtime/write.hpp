// Writing a message that has been measured into a buffer that holds all of it: nothing is checked and little is
// measured again, for the sizes are known.
#pragma once

#include "runtime/measure.hpp"

namespace vesk {

// Where messages go.
struct Target {
    std::uint8_t* begin;
    std::uint8_t* end;  // of the caller's buffer
    // Up to here this library will write all bytes; numbers may be stored less tidily before it. It moves from piece to
    // piece. It does not lie behind an imported message that is still to be written: what bytes such a one leaves out
    // is its own affair.
    const std::uint8_t* measured_end;
    std::uint32_t flags;
};

inline Target ending_at(const std::uint8_t* measured_end, const Target& target) {
    return {target.begin, target.end, measured_end, target.flags};
}

// How far the writing has come, and how many segments a list of them would need so far: one for each message that is
// not empty, and what imported functions count.
struct Written {
    std::uint8_t* at;
    std::uint64_t segments;
};

// ---- Numbers and flags ---------------------------------------------------------------------------------------------

// Writes the numbers and flags First to Last - 1 of a message, those that are present, and returns the position behind
// them. It may store up to `number_overhang` bytes more.
template <class Message, std::size_t First, std::size_t Last>
std::uint8_t* write_numbers(const void* message, std::uint64_t presence, std::uint8_t* at);

// `write_numbers` for the functions that all types share.
using WriteNumbers = std::uint8_t* (*)(const void* message, std::uint64_t presence, std::uint8_t* at);

// The most that any message's numbers take.
inline constexpr std::size_t longest_of_all_numbers = 256;

template <class Message, std::size_t First, std::size_t Last>
[[gnu::always_inline]] inline std::uint8_t* write_each_number(const Message& message, std::uint64_t presence,
                                                              std::uint8_t* at) {
    if constexpr (First == Last) {
        return at;
    } else {
        at = put_number<tag_of<Message, First>>(at, message.*field_of<Message, First>.member, has_bit<First>(presence));
        return write_each_number<Message, First + 1, Last>(message, presence, at);
    }
}

template <class Message, std::size_t First, std::size_t Last>
[[gnu::noinline]] std::uint8_t* write_numbers(const void* message, std::uint64_t presence, std::uint8_t* at) {
    static_assert(longest_numbers<Message, First, Last>() + number_overhang <= longest_of_all_numbers);
    return write_each_number<Message, First, Last>(*static_cast<const Message*>(message), presence, at);
}

// Writes the numbers First to Last - 1 with a branch for each: nothing is stored behind them, and a few are done sooner
// than they would be aside.
template <class Message, std::size_t First, std::size_t Last>
[[gnu::always_inline]] inline std::uint8_t* write_few_numbers(const Message& message, std::uint64_t presence,
                                                              std::uint8_t* at) {
    if constexpr (First == Last) {
        return at;
    } else {
        if (has_bit<First>(presence)) {
            at = put_varint(put_tag<tag_of<Message, First>>(at), message.*field_of<Message, First>.member);
        }
        return write_few_numbers<Message, First + 1, Last>(message, presence, at);
    }
}

// ---- Messages ------------------------------------------------------------------------------------------------------

// Writes the fields First to Last - 1, which `sizes` must know; all of them if nothing is said.
template <class Message, std::size_t First = 0, std::size_t Last = field_count<Message>>
Written write(const Message& message, const Sizes<Message>& sizes, Written so_far, const Target& target);

// Writes an imported message into what is left of the buffer. It takes its measured size whatever the call says: an
// imported type that measures one length and writes another cannot move the fields behind it.
template <class Message>
inline Written write_imported(const Message& message, std::uint64_t size, Written so_far, const Target& target) {
    const std::uint64_t room = static_cast<std::uint64_t>(target.end - so_far.at);
    std::uint32_t segments = 0;
    imported<Message>.encode(&message, room != 0 ? so_far.at : nullptr, room, nullptr, &segments, target.flags);
    return {so_far.at + size, so_far.segments + segments};
}

// Writes numbers where nothing may be stored behind them: aside, then over.
template <class Message, std::size_t First, std::size_t Last>
[[gnu::noinline]] std::uint8_t* write_numbers_exactly(const Message& message, std::uint64_t presence,
                                                      std::uint8_t* at) {
    std::uint8_t aside[longest_numbers<Message, First, Last>() + number_overhang];
    const std::uint8_t* const end = write_numbers<Message, First, Last>(&message, presence, aside);
    return put_bytes(at, aside, static_cast<std::uint64_t>(end - aside));
}

// The numbers and flags First to Last - 1.
template <class Message, std::size_t First, std::size_t Last>
inline std::uint8_t* write_run(const Message& message, std::uint64_t presence, std::uint8_t* at,
                               const std::uint8_t* measured_end) {
    constexpr std::ptrdiff_t room = longest_numbers<Message, First, Last>() + number_overhang;
    if (measured_end - at >= room) return write_numbers<Message, First, Last>(&message, presence, at);
    return write_numbers_exactly<Message, First, Last>(message, presence, at);
}

// A small message with its tag: its length takes one byte, which is filled in last.
template <std::uint32_t Tag, class Nested>
inline Written write_small(const Nested& nested, bool present, Written so_far, const std::uint8_t* measured_end) {
    const std::uint64_t presence = load_presence(nested);
    const bool empty = (presence & presence_bits<0, field_count<Nested>>) == 0;
    if (empty && !present) return so_far;
    std::uint8_t* const body = put_tag<Tag>(so_far.at) + 1;
    std::uint8_t* end = body;
    if (!empty) end = write_run<Nested, 0, field_count<Nested>>(nested, presence, body, measured_end);
    body[-1] = static_cast<std::uint8_t>(end - body);
    return {end, so_far.segments + !empty};
}

template <std::uint32_t Tag, class Element>
inline Written write_element(const Element& element, Written so_far, const Target& target) {
    if constexpr (is_small<Element>()) {
        return write_small<Tag>(element, true, so_far, so_far.at);
    } else {
        so_far.at = put_tag<Tag>(so_far.at);
        if constexpr (is_imported<Element>) {
            const std::uint64_t size = measure_imported(element, target.flags);
            so_far.at = put_length(so_far.at, size);
            return write_imported(element, size, so_far, target);
        } else {
            Sizes<Element> sizes;
            const std::uint64_t size = measure(element, sizes, target.flags).size;
            so_far.at = put_length(so_far.at, size);
            if (size == 0) return so_far;
            ++so_far.segments;
            return write(element, sizes, so_far, ending_at(so_far.at + size, target));
        }
    }
}

template <class Message, std::size_t Index>
[[gnu::always_inline]] inline Written write_field(const Message& message, std::uint64_t presence,
                                                  const Sizes<Message>& sizes, Written so_far, const Target& target) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    constexpr std::uint32_t tag = tag_of<Message, Index>;
    const bool present = has_bit<Index>(presence);
    if constexpr (kind == Kind::message) {
        using Nested = NestedOf<Message, Index>;
        constexpr bool imported_ahead = has_imported<Message, Index + 1>();
        if constexpr (is_small<Nested>()) {
            return write_small<tag>(message.*field.member, present, so_far,
                                    imported_ahead ? so_far.at : target.measured_end);
        } else if constexpr (is_imported<Nested>) {
            const std::uint64_t size = get_slot<Index>(sizes);
            if (size == 0 && !present) return so_far;
            so_far.at = put_length(put_tag<tag>(so_far.at), size);
            return write_imported(message.*field.member, size, so_far, target);
        } else {
            const NestedSizes<Nested>& note = get_slot<Index>(sizes);
            if (note.size == 0 && !present) return so_far;
            so_far.at = put_length(put_tag<tag>(so_far.at), note.size);
            if (note.size == 0) return so_far;
            ++so_far.segments;
            if constexpr (imported_ahead) {
                return write(message.*field.member, note.inner, so_far, ending_at(so_far.at + note.size, target));
            } else {
                return write(message.*field.member, note.inner, so_far, target);
            }
        }
    } else if constexpr (kind == Kind::list) {
        if (!present) return so_far;
        const auto* element = message.*field.array;
        for (std::uint32_t left = message.*field.count; left != 0; --left, ++element) {
            so_far = write_element<tag>(*element, so_far, target);
        }
    } else if constexpr (kind == Kind::string) {
        if (!present || message.*field.member == nullptr) return so_far;
        const std::uint64_t length = get_slot<Index>(sizes);
        so_far.at = put_data(put_tag<tag>(so_far.at), message.*field.member, length);
    } else {
        static_assert(kind == Kind::bytes);
        if (!present) return so_far;
        const std::uint64_t length = message.*field.length;
        so_far.at = put_tag<tag>(so_far.at);
        const bool by_reference = (target.flags & VESK_BYTES_BY_REFERENCE) != 0;
        so_far.at = by_reference ? put_length(so_far.at, length) : put_data(so_far.at, message.*field.data, length);
    }
    return so_far;
}

template <class Message, std::size_t First, std::size_t Last>
[[gnu::always_inline]] inline Written write_fields(const Message& message, std::uint64_t presence,
                                                   const Sizes<Message>& sizes, Written so_far, const Target& target) {
    if constexpr (First == Last) {
        return so_far;
    } else if constexpr (is_number<Message, First>) {
        constexpr std::size_t end = end_of_numbers<Message, First>();
        if ((presence & presence_bits<First, end>) != 0) {
            so_far.at = write_run<Message, First, end>(message, presence, so_far.at,
                                                       has_imported<Message, end>() ? so_far.at : target.measured_end);
        }
        return write_fields<Message, end, Last>(message, presence, sizes, so_far, target);
    } else {
        so_far = write_field<Message, First>(message, presence, sizes, so_far, target);
        return write_fields<Message, First + 1, Last>(message, presence, sizes, so_far, target);
    }
}

template <class Message, std::size_t First, std::size_t Last>
[[gnu::noinline]] Written write(const Message& message, const Sizes<Message>& sizes, Written so_far,
                                const Target& target) {
    return write_fields<Message, First, Last>(message, load_presence(message), sizes, so_far, target);
}

}  // namespace vesk
