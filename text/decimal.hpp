// A number as JSON writes it, 300, 3e2 or 300.0: a whole one of up to 64 bits, or a float or double.
#pragma once

#include <cstdint>

namespace vesk {

enum class Decimal { good, no_number, out_of_range };

// 0 less a number in two's complement, which is the same back again.
constexpr std::uint64_t negate(std::uint64_t magnitude) { return magnitude == 0 ? 0 : ~(magnitude - 1); }

// The two's complement of a magnitude with a sign. False if 64 bits do not hold it.
constexpr bool apply_sign(bool is_negative, std::uint64_t magnitude, std::uint64_t* value) {
    *value = is_negative ? negate(magnitude) : magnitude;
    constexpr std::uint64_t lowest = std::uint64_t{1} << 63;
    return is_negative ? magnitude <= lowest : magnitude < lowest;
}

// `*value` is written only on success. The second reads numbers below 0, too, and gives two's complement.
Decimal read_decimal(const char* at, const char* end, std::uint64_t* value);
Decimal read_signed_decimal(const char* at, const char* end, std::uint64_t* value);

// The nearest float or double, as its bits; one that is too large or, but for 0, too small is out of range.
Decimal read_real(const char* at, const char* end, bool is_float, std::uint64_t* bits);

// The same without a look at the form that JSON demands: 1. and .5 are numbers, too.
Decimal read_lenient_real(const char* at, const char* end, bool is_float, std::uint64_t* bits);

// Bits of a float or double that no decimal says.
std::uint64_t infinity_bits(bool is_float, bool is_negative);
std::uint64_t nan_bits(bool is_float);

}  // namespace vesk
