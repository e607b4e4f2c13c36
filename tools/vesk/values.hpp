// The values of single fields, as words of a line.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <string>
#include <string_view>

namespace vesk::tool {

// "5 bytes: 0102030405"; of more than 32 the first ones.
std::string bytes_in_words(std::string_view bytes);

// `of_message` says that the value stands in a structure, not in encoded bytes: a flag there is any byte.
std::string value_in_words(const vesk_value& value, bool of_message);

}  // namespace vesk::tool
