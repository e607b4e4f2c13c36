// Messages as JSON and in the text format.
#pragma once

#include <vesk/vesk_text.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace vesk::tool {

enum class Format { json, text };

// Prints an encoded message, with a line feed at the end and without control characters, as long as `write` returns 0.
// Throws Failure: "NAME: why", before it has written anything.
void print_document(const vesk_type* type, const std::string& name, const void* bytes, std::uint64_t length,
                    Format format, vesk_text_write write, void* context);

// The bytes of a message that is written in a format. Throws Failure: "NAME:line:column: why".
std::string encode_document(const vesk_type* type, const std::string& name, std::string_view text, Format format);

}  // namespace vesk::tool
