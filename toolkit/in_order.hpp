// The pre-flight of what encode writes: each field at most once, in the order of the declaration.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>

namespace vesk {

struct InOrder {
    vesk_cost cost;
    std::uint64_t arena_bytes;  // the requests as an arena rounds them
    std::uint64_t unknown_bytes;
};

// What decode would ask for. False if it would answer with an error, or if the input, or the types, take a closer look:
// then the sums say nothing.
bool check_in_order(const vesk_type* type, const std::uint8_t* input, std::uint64_t length, std::uint32_t flags,
                    InOrder& sums);

}  // namespace vesk
