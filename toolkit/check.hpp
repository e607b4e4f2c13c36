// The pre-flight's two looks at an input.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>

#include "toolkit/arena.hpp"

namespace vesk {

// What both add up.
struct Sums {
    vesk_cost cost;             // what decode asks for
    std::uint64_t arena_bytes;  // these requests as an arena rounds them
    std::uint64_t unknown_bytes;
};

inline void ask_for(Sums& sums, std::uint64_t size) {
    sums.cost.bytes += size;
    sums.cost.blocks += 1;
    if (size > sums.cost.largest) sums.cost.largest = size;
    sums.arena_bytes += arena_bytes_for(size);
}

// The look at what encode writes: each field at most once, in the order of the declaration. False if decode would
// answer with an error, or if the input or the types take the closer look; then the sums say nothing.
bool check_in_order(const vesk_type* type, const std::uint8_t* input, std::uint64_t length, std::uint32_t flags,
                    Sums& sums);

// The closer look, at any input. The report is one of this version.
std::int32_t check_closely(const vesk_type* type, const void* input, std::uint64_t length, std::uint32_t flags,
                           vesk_report& report, const vesk_options& options);

}  // namespace vesk
