// Runs: scalars one after another in the list of fields, measured and put together. Which of them are present, and how
// long they are, often differs from message to message, and a branch that is guessed wrong costs more than the work of
// a whole scalar: so there are few branches here, and those that there are ask about several scalars at once.
#pragma once

#include "runtime/schema.hpp"

namespace vesk {

// A scalar that goes into chunks: a varint of at most 32 bits, whose tag takes at most two bytes.
template <class Message>
consteval bool is_chunked(std::size_t index) {
    const FieldFacts& field = facts_of<Message>.of_field[index];
    return wire_type_of_tag(field.tag) == varint_type && field.longest <= measure_varint(field.tag) + 5 &&
           field.tag < 1 << 14;
}

// One past the last of the scalars from `first` on, at most four, that go into a chunk and have tags of one size.
template <class Message>
consteval std::size_t end_of_chunk(std::size_t first, std::size_t last) {
    const auto& fields = facts_of<Message>.of_field;
    std::size_t end = first;
    while (end < last && end < first + 4 && is_chunked<Message>(end) &&
           measure_varint(fields[end].tag) == measure_varint(fields[first].tag)) {
        ++end;
    }
    return end;
}

// ---- Measuring -----------------------------------------------------------------------------------------------------

// Four sizes at once, of which the sum counts. Compilers make of it what the processor has.
// Never by value: how a vector is handed over depends on the processor's options.
using Lanes = std::uint32_t __attribute__((vector_size(16)));

VESK_INLINE std::uint64_t sum_of_lanes(const Lanes& lanes) {
    std::uint64_t pairs[2];
    __builtin_memcpy(pairs, &lanes, sizeof lanes);
    const std::uint64_t pair = pairs[0] + pairs[1];
    return (pair & 0xFFFFFFFF) + (pair >> 32);
}

// True if the fields First to Last - 1 begin with three or four members that are 32-bit numbers, which lie in a row.
template <class Message, std::size_t First>
consteval bool is_quad(std::size_t last) {
    const auto& fields = facts_of<Message>.of_field;
    for (std::size_t index = First; index < last; ++index) {
        if (fields[index].kind != Kind::uint32) return false;
    }
    return last - First >= 3;
}

// Where there are but three, the fourth lane is of whatever follows them in the structure, and does not count.
template <std::size_t First, std::size_t Last, class Message>
VESK_INLINE void measure_quad(const Message& message, std::uint64_t presence, Lanes& lanes) {
    constexpr Lanes bits{1, 2, 4, 8};
    constexpr std::uint32_t longest = measure_varint(tag_of<Message, First>) + 5;
    Lanes values;
    __builtin_memcpy(&values, &(message.*field_of<Message, First>.member), sizeof values);
    const std::uint32_t chunk = static_cast<std::uint32_t>(presence >> First) & ((1u << (Last - First)) - 1);
    const auto present = (Lanes{chunk, chunk, chunk, chunk} & bits) == bits;
    // A comparison gives -1 where it holds: for each group of 7 bits that a value does not need.
    const auto unneeded = (values >> 7 == 0) + (values >> 14 == 0) + (values >> 21 == 0) + (values >> 28 == 0);
    lanes += reinterpret_cast<Lanes>(present) & (longest + reinterpret_cast<Lanes>(unneeded));
}

// The bytes that the scalars First to Last - 1 take, those that are present; of some of them in `lanes`.
template <std::size_t First, std::size_t Last, class Message>
VESK_INLINE std::uint64_t measure_run(const Message& message, std::uint64_t presence, Lanes& lanes) {
    if constexpr (First == Last) {
        return 0;
    } else if constexpr (constexpr std::size_t end = end_of_chunk<Message>(First, Last); is_quad<Message, First>(end)) {
        measure_quad<First, end>(message, presence, lanes);
        return measure_run<end, Last>(message, presence, lanes);
    } else if constexpr (ScalarOf<Message, First>::wire_type != varint_type) {
        constexpr std::uint64_t size = facts_of<Message>.of_field[First].longest;
        return (has_bit<First>(presence) ? size : 0) + measure_run<First + 1, Last>(message, presence, lanes);
    } else {
        const auto value = wire_value<Message, First>(message);
        const bool is_short = ScalarOf<Message, First>::longest == 2;
        const std::uint64_t size =
            measure_varint(tag_of<Message, First>) + (is_short ? 1 + (value > 0x7F) : measure_varint(value));
        return choose<std::uint64_t>(has_bit<First>(presence), size, 0) +
               measure_run<First + 1, Last>(message, presence, lanes);
    }
}

// ---- Putting backwards ---------------------------------------------------------------------------------------------

// Puts scalars before `at`, each value with `put_value`. `tags` and `presence` have those of the first one lowest.
template <std::size_t TagSize, class PutValue, class... Values>
VESK_INLINE std::uint8_t* put_scalars_before(std::uint8_t* at, std::uint64_t presence, std::uint64_t tags,
                                             PutValue put_value, std::uint32_t first, Values... others) {
    if constexpr (sizeof...(others) > 0) {
        at = put_scalars_before<TagSize>(at, presence >> 1, tags >> 16, put_value, others...);
    }
    return choose((presence & 1) != 0, put_tag_before<TagSize>(put_value(at, first), tags), at);
}

// The same for a chunk of up to four scalars, not all of which are below 128. One copy for all messages: of each chunk
// there is little else in them.
template <std::size_t TagSize, class... Values>
[[gnu::noinline]] std::uint8_t* put_wide_chunk_before(std::uint8_t* at, std::uint64_t presence, std::uint64_t tags,
                                                      Values... values) {
    if ((values | ...) < 1 << 14) {
        const auto put_value = [](std::uint8_t* end, std::uint32_t value) {
            return put_short_varint_before(end, value);
        };
        return put_scalars_before<TagSize>(at, presence, tags, put_value, values...);
    }
    const auto put_value = [](std::uint8_t* end, std::uint32_t value) { return put_varint_before(end, value); };
    return put_scalars_before<TagSize>(at, presence, tags, put_value, values...);
}

template <std::size_t First, class Message, std::size_t... Offsets>
VESK_INLINE std::uint8_t* put_chunk_before(std::uint8_t* at, const Message& message, std::uint64_t presence,
                                           std::index_sequence<Offsets...>) {
    constexpr std::size_t last = First + sizeof...(Offsets) - 1;
    if ((wire_value<Message, First + Offsets>(message) | ...) < 0x80) [[likely]] {
        ((at = put_narrow_before<tag_of<Message, last - Offsets>>(at, wire_value<Message, last - Offsets>(message),
                                                                  has_bit<last - Offsets>(presence))),
         ...);
        return at;
    }
    constexpr std::uint64_t tags = (... | (right_aligned(tag_of<Message, First + Offsets>) << 16 * Offsets));
    return put_wide_chunk_before<measure_varint(tag_of<Message, First>)>(
        at, presence >> First, tags, wire_value<Message, First + Offsets>(message)...);
}

// Puts a scalar with its tag before `at` if it is present. It is stored in any case, and the position chosen without a
// branch.
template <class Message, std::size_t Index>
VESK_INLINE std::uint8_t* put_scalar_before(std::uint8_t* at, const Message& message, bool present) {
    constexpr std::uint32_t tag = tag_of<Message, Index>;
    std::uint8_t* const before =
        put_value_before<ScalarOf<Message, Index>>(at, wire_value<Message, Index>(message)) - measure_varint(tag);
    put_tag<tag>(before);
    return choose(present, before, at);
}

// Puts the scalars First to Last - 1 before `at`, those that are present. In the messages of every day most values are
// below 128, and a chunk of such values alone takes a few steps.
template <std::size_t First, std::size_t Last, class Message>
VESK_INLINE std::uint8_t* put_run_before(std::uint8_t* at, const Message& message, std::uint64_t presence) {
    if constexpr (First == Last) {
        return at;
    } else if constexpr (!is_chunked<Message>(First)) {
        at = put_run_before<First + 1, Last>(at, message, presence);
        return put_scalar_before<Message, First>(at, message, has_bit<First>(presence));
    } else {
        constexpr std::size_t end = end_of_chunk<Message>(First, Last);
        at = put_run_before<end, Last>(at, message, presence);
        return put_chunk_before<First>(at, message, presence, std::make_index_sequence<end - First>{});
    }
}

// ---- Putting with a branch for each --------------------------------------------------------------------------------

// Spoils nothing, and takes less time for a few scalars.
template <std::size_t First, std::size_t Last, class Message>
VESK_INLINE std::uint8_t* put_run(std::uint8_t* at, const Message& message, std::uint64_t presence) {
    if constexpr (First == Last) {
        return at;
    } else {
        if (has_bit<First>(presence)) {
            if constexpr (ScalarOf<Message, First>::wire_type == varint_type) {
                at = put_varint(put_tag<tag_of<Message, First>>(at), wire_value<Message, First>(message));
            } else {
                at = put_fixed(put_tag<tag_of<Message, First>>(at), wire_value<Message, First>(message));
            }
        }
        return put_run<First + 1, Last>(at, message, presence);
    }
}

}  // namespace vesk
