// The byte map as one page for a browser, which needs nothing from outside.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>
#include <string>

#include "tools/vesk/output.hpp"

namespace vesk::tool {

void write_page(const vesk_type* type, const std::string& name, const std::uint8_t* input, std::uint64_t length,
                Output& output);

}  // namespace vesk::tool
