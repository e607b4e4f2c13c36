#include "text/decimal.hpp"

#include <charconv>
#include <cstring>
#include <limits>

namespace vesk {
namespace {

bool is_digit(const char* at, const char* end) { return at != end && *at >= '0' && *at <= '9'; }

const char* skip_digits(const char* at, const char* end) {
    while (is_digit(at, end)) ++at;
    return at;
}

// value * 10 + digit; false if that takes more than 64 bits.
bool append_digit(std::uint64_t* value, unsigned digit) {
    return !__builtin_mul_overflow(*value, 10u, value) && !__builtin_add_overflow(*value, digit, value);
}

// The parts of a number: -whole.fraction e exponent.
struct Parts {
    bool is_negative;
    const char* whole;
    const char* whole_end;
    const char* fraction;
    const char* fraction_end;
    std::int64_t exponent;
};

// So far away from 0 that no digits make up for it, and the same for whoever adds lengths to it.
constexpr std::int64_t largest_exponent = std::int64_t{1} << 40;

// Reads what follows the e; null if there is no number.
const char* read_exponent(const char* at, const char* end, std::int64_t* exponent) {
    const bool is_negative = at != end && *at == '-';
    if (at != end && (*at == '-' || *at == '+')) ++at;
    if (!is_digit(at, end)) return nullptr;
    for (; is_digit(at, end); ++at) {
        if (*exponent < largest_exponent) *exponent = *exponent * 10 + (*at - '0');
    }
    if (is_negative) *exponent = -*exponent;
    return at;
}

bool read_parts(const char* at, const char* end, Parts* parts) {
    parts->is_negative = at != end && *at == '-';
    if (parts->is_negative) ++at;
    parts->whole = at;
    at = parts->whole_end = skip_digits(at, end);
    if (parts->whole == at || (*parts->whole == '0' && at - parts->whole > 1)) return false;
    parts->fraction = at;
    if (at != end && *at == '.') {
        parts->fraction = at + 1;
        at = skip_digits(at + 1, end);
        if (at == parts->fraction) return false;
    }
    parts->fraction_end = at;
    parts->exponent = 0;
    if (at != end && (*at == 'e' || *at == 'E')) at = read_exponent(at + 1, end, &parts->exponent);
    return at == end;
}

// The digits of a whole number, whatever its sign.
Decimal read_magnitude(const Parts& parts, std::uint64_t* value) {
    // Zeros at the end are left for the exponent: 1000e-3 is whole. Those of the whole count only if nothing follows.
    std::uint64_t result = 0;
    std::int64_t zeros = 0;
    const auto append = [&](const char* digit, const char* last) {
        for (; digit != last; ++digit) {
            if (*digit == '0') {
                if (result != 0) ++zeros;
                continue;
            }
            for (; zeros != 0; --zeros) {
                if (!append_digit(&result, 0)) return false;
            }
            if (!append_digit(&result, static_cast<unsigned>(*digit - '0'))) return false;
        }
        return true;
    };
    // Without a digit other than 0 there is nothing that an exponent could move.
    std::int64_t moved = parts.exponent - (parts.fraction_end - parts.fraction);
    if (!append(parts.whole, parts.whole_end) || !append(parts.fraction, parts.fraction_end)) {
        return Decimal::out_of_range;
    }
    if (result == 0) {
        *value = 0;
        return Decimal::good;
    }
    moved += zeros;
    if (moved < 0) return Decimal::out_of_range;
    for (; moved != 0; --moved) {
        if (!append_digit(&result, 0)) return Decimal::out_of_range;
    }
    *value = result;
    return Decimal::good;
}

template <class Real, class Bits>
Decimal read_as(const char* at, const char* end, std::uint64_t* bits) {
    Real real;
    const std::from_chars_result result = std::from_chars(at, end, real);
    if (result.ptr != end || result.ec == std::errc::invalid_argument) return Decimal::no_number;
    if (result.ec != std::errc()) return Decimal::out_of_range;
    Bits copy;
    std::memcpy(&copy, &real, sizeof copy);
    *bits = copy;
    return Decimal::good;
}

template <class Real, class Bits>
std::uint64_t bits_of(Real real) {
    Bits bits;
    std::memcpy(&bits, &real, sizeof bits);
    return bits;
}

}  // namespace

Decimal read_decimal(const char* at, const char* end, std::uint64_t* value) {
    Parts parts;
    if (!read_parts(at, end, &parts)) return Decimal::no_number;
    std::uint64_t magnitude = 0;
    const Decimal read = read_magnitude(parts, &magnitude);
    if (read != Decimal::good || (parts.is_negative && magnitude != 0)) return Decimal::out_of_range;
    *value = magnitude;
    return Decimal::good;
}

Decimal read_signed_decimal(const char* at, const char* end, std::uint64_t* value) {
    Parts parts;
    if (!read_parts(at, end, &parts)) return Decimal::no_number;
    std::uint64_t magnitude = 0;
    std::uint64_t number = 0;
    if (read_magnitude(parts, &magnitude) != Decimal::good) return Decimal::out_of_range;
    if (!apply_sign(parts.is_negative, magnitude, &number)) return Decimal::out_of_range;
    *value = number;
    return Decimal::good;
}

Decimal read_real(const char* at, const char* end, bool is_float, std::uint64_t* bits) {
    Parts parts;
    return read_parts(at, end, &parts) ? read_lenient_real(at, end, is_float, bits) : Decimal::no_number;
}

Decimal read_lenient_real(const char* at, const char* end, bool is_float, std::uint64_t* bits) {
    return is_float ? read_as<float, std::uint32_t>(at, end, bits) : read_as<double, std::uint64_t>(at, end, bits);
}

std::uint64_t infinity_bits(bool is_float, bool is_negative) {
    const double infinity = std::numeric_limits<double>::infinity();
    const double real = is_negative ? -infinity : infinity;
    return is_float ? bits_of<float, std::uint32_t>(static_cast<float>(real)) : bits_of<double, std::uint64_t>(real);
}

std::uint64_t nan_bits(bool is_float) {
    return is_float ? bits_of<float, std::uint32_t>(std::numeric_limits<float>::quiet_NaN())
                    : bits_of<double, std::uint64_t>(std::numeric_limits<double>::quiet_NaN());
}

}  // namespace vesk
