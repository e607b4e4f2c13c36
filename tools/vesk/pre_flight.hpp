// What decoding an input would come to, and the verdict and the cost in words.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>
#include <string>

namespace vesk::tool {

vesk_report check(const vesk_type* type, const std::uint8_t* input, std::uint64_t length);
std::string verdict(const vesk_report& report);
std::string cost(const vesk_report& report);

}  // namespace vesk::tool
