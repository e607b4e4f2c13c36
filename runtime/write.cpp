#include "runtime/write.hpp"

namespace vesk {

std::uint8_t* write_numbers_exactly(const void* message, std::uint64_t presence, std::uint8_t* at, WriteNumbers write) {
    std::uint8_t aside[longest_of_all_numbers];
    const std::uint8_t* const end = write(message, presence, aside);
    return put_bytes(at, aside, static_cast<std::uint64_t>(end - aside));
}

}  // namespace vesk
