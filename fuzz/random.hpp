// Small random numbers, the same for the same seed.
#pragma once

#include <cstdint>

namespace vesk::fuzz {

class Random {
public:
    explicit Random(std::uint32_t seed) : state_(seed * 0x9E3779B97F4A7C15 | 1) {}

    std::uint64_t next() {  // xorshift64*
        state_ ^= state_ >> 12;
        state_ ^= state_ << 25;
        state_ ^= state_ >> 27;
        return state_ * 0x2545F4914F6CDD1D;
    }
    // From 0 to limit - 1; limit is not 0.
    std::uint64_t below(std::uint64_t limit) { return (next() >> 16) % limit; }
    // Of any width, the narrow ones as often as the wide ones; now and then all ones.
    std::uint64_t number() { return below(16) == 0 ? ~std::uint64_t{0} : next() >> below(64); }

private:
    std::uint64_t state_;
};

}  // namespace vesk::fuzz
