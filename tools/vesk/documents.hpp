// Messages as JSON and in the text format.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/vesk/output.hpp"

namespace vesk::tool {

enum class Format { json, text };

// Prints an encoded message, with a line feed at the end. Throws Failure: "NAME: why", before it has written anything.
void print_document(const vesk_type* type, const std::string& name, const void* bytes, std::uint64_t length,
                    Format format, Output& output);

// The bytes of a message that is written in a format. Throws Failure: "NAME:line:column: why".
std::string encode_document(const vesk_type* type, const std::string& name, std::string_view text, Format format);

}  // namespace vesk::tool
