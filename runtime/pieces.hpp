// The unchecked way of encoding: a message goes in pieces, each of which is measured, held to what is left of the
// buffer and then written. A piece is what stands between two lists, or one element of a list.
#pragma once

#include "runtime/write.hpp"

namespace vesk {

// True if a measured piece fits. Lengths of 2 GiB and more, whose sum could wrap, go the checked way.
inline bool fits(Measured piece, const std::uint8_t* at, const Target& target) {
    constexpr std::uint64_t longest = 0x7FFFFFFF;
    return piece.lengths <= longest && piece.size <= static_cast<std::uint64_t>(target.end - at);
}

inline constexpr Written does_not_fit{nullptr, 0};

template <std::uint32_t Tag, class Element>
inline Written write_small_elements(const Element* element, std::uint32_t count, Written so_far, const Target& target) {
    constexpr std::uint64_t longest = varint_size(Tag) + 1 + longest_numbers<Element, 0, field_count<Element>>();
    for (; count != 0; --count, ++element) {
        if (static_cast<std::uint64_t>(target.end - so_far.at) < longest &&
            !fits(measure_element(*element, varint_size(Tag), target.flags), so_far.at, target)) {
            return does_not_fit;
        }
        std::uint8_t* const body = put_tag<Tag>(so_far.at) + 1;
        std::uint8_t* const end =
            write_few_numbers<Element, 0, field_count<Element>>(*element, load_presence(*element), body);
        body[-1] = static_cast<std::uint8_t>(end - body);
        so_far = {end, so_far.segments + (end != body)};
    }
    return so_far;
}

template <std::uint32_t Tag, class Element>
inline Written write_imported_elements(const Element* element, std::uint32_t count, Written so_far,
                                       const Target& target) {
    for (; count != 0; --count, ++element) {
        const std::uint64_t size = measure_imported(*element, target.flags);
        if (!fits({length_size(size, varint_size(Tag)) + size, size}, so_far.at, target)) return does_not_fit;
        so_far.at = put_length(put_tag<Tag>(so_far.at), size);
        so_far = write_imported(*element, size, so_far, target);
    }
    return so_far;
}

// An element that has been measured and fits; its encoding will end at `end`.
template <class Element>
struct MeasuredElement {
    Sizes<Element> sizes;
    std::uint64_t size;
    std::uint8_t* end;
};

// Measures an element that will begin at `at`. Returns false if it does not fit.
template <std::uint32_t Tag, class Element>
inline bool measure_ahead(const Element& element, std::uint8_t* at, const Target& target,
                          MeasuredElement<Element>& ahead) {
    const Measured measured = measure(element, ahead.sizes, target.flags);
    ahead.size = measured.size;
    const std::uint64_t total = length_size(measured.size, varint_size(Tag)) + measured.size;
    if (!fits({total, measured.lengths}, at, target)) return false;
    ahead.end = at + total;
    return true;
}

// Writes an element of which the encoding has `room` measured bytes behind it, so that its last numbers need not go
// aside. Bytes that an imported message there may leave as they were are put back.
template <class Element>
inline Written write_with_room(const Element& element, const MeasuredElement<Element>& measured, std::uint64_t room,
                               Written so_far, Target& target) {
    if constexpr (has_imported<Element>()) {
        struct {
            std::uint8_t bytes[32];
        } kept;
        if (room >= sizeof kept) {
            __builtin_memcpy(&kept, measured.end, sizeof kept);
            target.measured_end = measured.end + sizeof kept;
            so_far = write(element, measured.sizes, so_far, target);
            __builtin_memcpy(measured.end, &kept, sizeof kept);
            return so_far;
        }
        target.measured_end = measured.end;
    } else {
        target.measured_end = measured.end + room;
    }
    return write(element, measured.sizes, so_far, target);
}

// Each element is measured before the one in front of it is written, which then has room behind it.
template <std::uint32_t Tag, class Element>
inline Written write_elements(const Element* element, std::uint32_t count, Written so_far, Target& target) {
    if (count == 0) return so_far;
    MeasuredElement<Element> ahead[2];
    if (!measure_ahead<Tag>(*element, so_far.at, target, ahead[0])) return does_not_fit;
    for (unsigned current = 0; count != 0; --count, ++element, current ^= 1) {
        const MeasuredElement<Element>& measured = ahead[current];
        std::uint64_t room = 0;
        if (count > 1) {
            MeasuredElement<Element>& next = ahead[current ^ 1];
            if (!measure_ahead<Tag>(element[1], measured.end, target, next)) return does_not_fit;
            room = static_cast<std::uint64_t>(next.end - measured.end);
        }
        so_far.at = put_length(put_tag<Tag>(so_far.at), measured.size);
        if (measured.size != 0) {
            ++so_far.segments;
            so_far = write_with_room(*element, measured, room, so_far, target);
        }
    }
    return so_far;
}

template <std::uint32_t Tag, class Element>
[[gnu::noinline]] Written write_list(const Element* array, std::uint32_t count, Written so_far, Target& target) {
    if constexpr (is_small<Element>()) {
        return write_small_elements<Tag>(array, count, so_far, target);
    } else if constexpr (is_imported<Element>) {
        return write_imported_elements<Tag>(array, count, so_far, target);
    } else {
        return write_elements<Tag>(array, count, so_far, target);
    }
}

// Writes the message from field Index on.
template <class Message, std::size_t Index>
[[gnu::always_inline]] inline Written write_pieces_from(const Message& message, Written so_far, Target& target) {
    if constexpr (Index == field_count<Message>) {
        return so_far;
    } else if constexpr (kind_of<Message, Index> == Kind::list) {
        constexpr auto field = field_of<Message, Index>;
        if (is_present<Message, Index>(message)) {
            so_far = write_list<tag_of<Message, Index>>(message.*field.array, message.*field.count, so_far, target);
            if (so_far.at == nullptr) return does_not_fit;
        }
        return write_pieces_from<Message, Index + 1>(message, so_far, target);
    } else {
        constexpr std::size_t end = end_of_plain_fields<Message, Index>();
        constexpr std::uint64_t longest = longest_numbers<Message, Index, end>();
        if constexpr (longest != 0) {
            const std::uint64_t presence = load_presence(message);
            // Numbers that fit at their longest need no measuring.
            if (static_cast<std::uint64_t>(target.end - so_far.at) < longest &&
                !fits({measure_numbers<Message, Index, end>(message, presence), 0}, so_far.at, target)) {
                return does_not_fit;
            }
            so_far.at = write_run<Message, Index, end>(message, presence, so_far.at, so_far.at);
        } else {
            Sizes<Message> sizes;
            const Measured measured = measure<Message, Index, end>(message, sizes, target.flags);
            if (!fits(measured, so_far.at, target)) return does_not_fit;
            target.measured_end = so_far.at + measured.size;
            so_far = write<Message, Index, end>(message, sizes, so_far, target);
        }
        return write_pieces_from<Message, end>(message, so_far, target);
    }
}

// Writes a Message from the start of the target on. Returns a null position if it does not fit; what was written by
// then is the beginning of its encoding.
template <class Message>
Written write_pieces(const void* message, Target& target) {
    return write_pieces_from<Message, 0>(*static_cast<const Message*>(message), {target.begin, 0}, target);
}

}  // namespace vesk
