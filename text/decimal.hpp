// A number as JSON writes it, 300, 3e2 or 300.0, of which only whole ones of up to 64 bits are of use here.
#pragma once

#include <cstdint>

namespace vesk {

enum class Decimal { good, no_number, out_of_range };

// `*value` is written only on success.
Decimal read_decimal(const char* at, const char* end, std::uint64_t* value);

}  // namespace vesk
