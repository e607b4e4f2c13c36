// Measuring: the length of a message's encoding, in one pass that stores nothing.
#pragma once

#include <cstring>

#include "runtime/repeated.hpp"
#include "runtime/run.hpp"
#include "runtime/walk.hpp"

namespace vesk {

template <class Message>
std::uint64_t measure(const void* message, std::uint32_t flags);
template <class Message>
std::uint64_t measure_in_place(const Message& message, std::uint32_t flags);

template <class Message>
inline constexpr bool is_measured_in_place = is_imported<Message> || is_small<Message>;

template <class Message>
VESK_INLINE std::uint64_t measure_nested(const Message& nested, std::uint32_t flags) {
    if constexpr (is_measured_in_place<Message>) {
        return measure_in_place(nested, flags);
    } else {
        return measure<Message>(&nested, flags);
    }
}

// The data of a bytes field that the buffer holds. A length so large that the position would wrap adds nothing; the
// caller's lengths are trusted, so this only keeps measuring and writing of one mind.
inline std::uint64_t measure_bytes(std::uint64_t length, std::uint64_t position, std::uint32_t flags) {
    const bool wraps = length > UINT64_MAX - position;
    return wraps || (flags & VESK_BYTES_BY_REFERENCE) != 0 ? 0 : length;
}

struct Measuring {
    static constexpr bool backwards = false;

    VESK_INLINE void run(auto run, const auto& message, std::uint64_t presence) {
        size += measure_run<run.first, run.last>(message, presence, lanes);
    }
    VESK_INLINE void string(auto field, const char* characters) { add(field, std::strlen(characters)); }
    VESK_INLINE void bytes(auto field, const std::uint8_t*, std::uint64_t length) {
        add(field, 0);
        size += measure_length(length) - 1;
        size += measure_bytes(length, sum(), flags);
    }
    VESK_INLINE std::uint64_t size_of(const auto& nested) { return measure_nested(nested, flags); }
    VESK_INLINE void nested(auto field, const auto&, std::uint64_t length) { add(field, length); }
    VESK_INLINE void list(auto field, const auto* array, std::uint32_t count) {
        for (; count != 0; --count, ++array) add(field, measure_nested(*array, flags));
    }
    VESK_INLINE void repeated(auto field, const auto* array, std::uint32_t count) {
        using Scalar = typename decltype(field)::Scalar;
        if constexpr (!field.is_packed) {
            size += count * measure_varint(field.tag) + measure_values<Scalar>(array, count);
        } else if (count != 0) {
            add(field, measure_values<Scalar>(array, count));
        }
    }
    VESK_INLINE void strings(auto field, const char* const* array, std::uint32_t count) {
        for (; count != 0; --count, ++array) add(field, *array != nullptr ? std::strlen(*array) : 0);
    }
    VESK_INLINE void blobs(auto field, const vesk_bytes* array, std::uint32_t count) {
        for (; count != 0; --count, ++array) bytes(field, array->data, array->length);
    }

    VESK_INLINE void add(auto field, std::uint64_t length) {
        size += measure_length(length, measure_varint(field.tag)) + length;
    }
    VESK_INLINE std::uint64_t sum() const { return size + sum_of_lanes(lanes); }

    std::uint32_t flags;
    std::uint64_t size = 0;
    Lanes lanes{};
};

template <class Message>
VESK_INLINE std::uint64_t measure_in_place(const Message& message, std::uint32_t flags) {
    if constexpr (is_imported<Message>) {
        return imported<Message>.encode(&message, nullptr, 0, nullptr, nullptr, flags);
    } else {
        return walk(message, Measuring{flags}).sum();
    }
}

template <class Message>
[[gnu::noinline]] std::uint64_t measure(const void* message, std::uint32_t flags) {
    return measure_in_place(*static_cast<const Message*>(message), flags);
}

}  // namespace vesk
