// The values of single fields, as words of a line.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <string>
#include <string_view>

#include "tools/vesk/output.hpp"

namespace vesk::tool {

// "5 bytes: 0102030405"; of more than 32 the first ones.
std::string bytes_in_words(std::string_view bytes);

// A scalar's number (toolkit/kinds.hpp): "-1", "1.5", "true".
std::string number_in_words(std::uint16_t kind, std::uint64_t number);

// `of_message` says that the value stands in a structure, not in encoded bytes: a flag there is any byte.
std::string value_in_words(const vesk_value& value, bool of_message);

// Of a path in which two structures differ, "f3: 1 | absent" and a line's end, in the colours of the output. The
// arguments are those of a vesk_on_difference.
std::string difference_in_words(const Output& output, const char* path, const vesk_value* left,
                                const vesk_value* right);

}  // namespace vesk::tool
