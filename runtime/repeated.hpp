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

}  // namespace vesk
