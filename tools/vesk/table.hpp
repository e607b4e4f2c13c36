// A message as aligned columns, lists as tables.
#pragma once

#include <string>

namespace vesk::tool {

// `json` is what the text library prints.
std::string print_table(const std::string& json);

}  // namespace vesk::tool
