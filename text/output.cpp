#include "text/output.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "runtime/wire.hpp"
#include "text/decimal.hpp"
#include "toolkit/kinds.hpp"

namespace vesk {

void Output::flush() {
    if (at_ != buffer_ && !stopped_) {
        stopped_ = write_(buffer_, static_cast<std::size_t>(at_ - buffer_), context_) != 0;
    }
    at_ = buffer_;
}

void Output::put_in_parts(const char* text, std::size_t length) {
    while (length != 0) {
        if (room() == 0) flush();
        const std::size_t part = length < room() ? length : room();
        std::memcpy(at_, text, part);
        at_ += part;
        text += part;
        length -= part;
    }
}

namespace {

constexpr std::uint32_t eight_digits = 100000000;

// The digits of a number below 10^8 as bytes from 0 to 9, the first digit in the lowest. Each step splits every part of
// the word in two, at once, by a product and a shift that divide exactly enough:
//
//     ....................12345678     value
//     ........5678........1234         % 10^4, / 10^4
//     ..78..56..34..12                 each % 100, / 100
//     8 7 6 5 4 3 2 1                  each % 10, / 10
//
// A division for each two digits, and a branch for each length, took a fifth of the time of printing.
std::uint64_t split_digits(std::uint32_t value) {
    const std::uint64_t fours = value / 10000 | std::uint64_t{value % 10000} << 32;
    const std::uint64_t hundreds = (fours * 10486 >> 20) & 0x7F0000007F;
    const std::uint64_t twos = hundreds | (fours - hundreds * 100) << 16;
    const std::uint64_t tens = (twos * 103 >> 10) & 0x000F000F000F000F;
    return tens | (twos - tens * 10) << 8;
}

constexpr std::uint64_t zeros_of_ascii = 0x3030303030303030;

std::uint8_t* put_eight(std::uint8_t* at, std::uint32_t value) {
    store_word(at, split_digits(value) + zeros_of_ascii);
    return at + 8;
}

// Without zeros in front. Up to 8 bytes are stored.
std::uint8_t* put_up_to_eight(std::uint8_t* at, std::uint32_t value) {
    const std::uint64_t digits = split_digits(value);
    const unsigned unused = static_cast<unsigned>(__builtin_ctzll(digits | std::uint64_t{1} << 56)) & 56;  // bits
    store_word(at, (digits + zeros_of_ascii) >> unused);
    return at + 8 - unused / 8;
}

}  // namespace

void Output::put_decimal(std::uint64_t value) {
    std::uint8_t* at = reinterpret_cast<std::uint8_t*>(reserve(24));
    if (value < eight_digits) {
        at = put_up_to_eight(at, static_cast<std::uint32_t>(value));
    } else {
        const std::uint64_t high = value / eight_digits;
        if (high < eight_digits) {
            at = put_up_to_eight(at, static_cast<std::uint32_t>(high));
        } else {
            at = put_up_to_eight(at, static_cast<std::uint32_t>(high / eight_digits));
            at = put_eight(at, static_cast<std::uint32_t>(high % eight_digits));
        }
        at = put_eight(at, static_cast<std::uint32_t>(value % eight_digits));
    }
    commit(reinterpret_cast<char*>(at));
}

namespace {

// With an exponent where there would be more digits in front of the point than the type can tell apart, or four zeros
// after it.
template <class Real, class Bits>
char* put_real(char* at, std::uint64_t bits, const NotFinite& not_finite) {
    constexpr std::size_t longest = 40;
    Real real;
    const Bits copy = static_cast<Bits>(bits);
    std::memcpy(&real, &copy, sizeof real);
    if (!std::isfinite(real)) {
        const char* const word = std::isnan(real) ? not_finite.nan
                                 : real < 0       ? not_finite.minus_infinity
                                                  : not_finite.infinity;
        return std::copy(word, word + std::strlen(word), at);
    }
    const Real size = std::fabs(real);
    constexpr Real too_many_digits = sizeof(Real) == sizeof(float) ? Real(1e7) : Real(1e15);
    const bool plain = real == 0 || (size >= Real(1e-4) && size < too_many_digits);
    return std::to_chars(at, at + longest, real, plain ? std::chars_format::fixed : std::chars_format::scientific).ptr;
}

}  // namespace

void Output::put_number(std::uint16_t kind, std::uint64_t number, const NotFinite& not_finite) {
    switch (kind) {
        case VESK_KIND_FLOAT: return commit(put_real<float, std::uint32_t>(reserve(64), number, not_finite));
        case VESK_KIND_DOUBLE: return commit(put_real<double, std::uint64_t>(reserve(64), number, not_finite));
        case VESK_KIND_UINT32:
        case VESK_KIND_UINT64:
        case VESK_KIND_FIXED32:
        case VESK_KIND_FIXED64: return put_decimal(number);
        default: break;
    }
    if (number >> 63 == 0) return put_decimal(number);
    put('-');
    put_decimal(negate(number));
}

}  // namespace vesk
