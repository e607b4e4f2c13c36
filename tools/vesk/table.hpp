// A message as aligned columns, lists as tables.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vesk::tool {

// Throws Failure: "NAME: why".
std::string print_table(const vesk_type* type, const std::string& name, const void* bytes, std::uint64_t length);

// Rows of one length as lines, each column as wide as its widest cell and two blanks. There is a row.
std::string print_columns(const std::vector<std::vector<std::string>>& rows, const std::string& indent);

}  // namespace vesk::tool
