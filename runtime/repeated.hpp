// Repeated scalars, strings and bytes, which messages of others have. What is here and in repeated.cpp is of no library
// whose messages have none.
#pragma once

#include "runtime/kinds.hpp"

namespace vesk {

// The bytes that the values of a repeated field take, without tags.
template <class Scalar>
[[gnu::noinline]] std::uint64_t measure_values(const typename Scalar::Member* array, std::uint32_t count) {
    std::uint64_t size = 0;
    for (; count != 0; --count, ++array) size += measure_value<Scalar>(wire_word<Scalar>(*array));
    return size;
}

// Of a scalar that is no varint.
constexpr std::uint64_t width_of(WireType wire_type) { return wire_type == fixed32_type ? 4 : 8; }

// Counts the values between `at` and `end`, the content of a packed field. False if the last one is cut short.
inline bool count_packed(std::uint64_t* count, WireType wire_type, const std::uint8_t* at, const std::uint8_t* end) {
    if (wire_type != varint_type) {
        const std::uint64_t length = static_cast<std::uint64_t>(end - at);
        *count += length / width_of(wire_type);
        return length % width_of(wire_type) == 0;
    }
    bool ended = true;
    for (; at != end; ++at) {
        ended = *at < 0x80;
        *count += ended;
    }
    return ended;
}

}  // namespace vesk
