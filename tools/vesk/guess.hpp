// Which of the types some bytes can be.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vesk::tool {

struct Guess {
    const vesk_type* type;
    std::string reason;
};

// The types that read the bytes, and at least one field of them as known; the likeliest first.
std::vector<Guess> guess(const std::uint8_t* input, std::uint64_t length);

}  // namespace vesk::tool
