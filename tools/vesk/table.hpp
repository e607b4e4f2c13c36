// A message as aligned columns, lists as tables.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>
#include <string>

namespace vesk::tool {

// Throws Failure: "NAME: why".
std::string print_table(const vesk_type* type, const std::string& name, const void* bytes, std::uint64_t length);

}  // namespace vesk::tool
