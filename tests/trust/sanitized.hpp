// A sanitizer looks at each access by itself, and makes the loops over every length of the longest messages five to ten
// times slower. They then leave lengths out.
#pragma once

#include <cstddef>
#include <vector>

namespace vesk::test {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
constexpr bool sanitized = __has_feature(address_sanitizer);
#else
constexpr bool sanitized = false;
#endif

// The numbers from 0 to `end` that are tried: all of them, or about a hundred with the last ones.
inline std::vector<std::size_t> numbers_to(std::size_t end) {
    const std::size_t step = sanitized ? 1 + end / 100 : 1;
    std::vector<std::size_t> numbers;
    for (std::size_t number = 0; number + 2 < end; number += step) numbers.push_back(number);
    for (std::size_t number = end < 2 ? 0 : end - 2; number <= end; ++number) numbers.push_back(number);
    return numbers;
}

}  // namespace vesk::test
