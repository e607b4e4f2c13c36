// page.html, as a part of the program.
#pragma once

#include <string_view>

namespace vesk::tool {

extern const std::string_view page_text;

}  // namespace vesk::tool
