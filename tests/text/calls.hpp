// The calls of libvesk_text as a test wants to write them.
#pragma once

#include <vesk/vesk_text.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/ledger.hpp"
#include "tests/support/type_info.hpp"

namespace vesk::test {

enum class Format { json, text };

const char* name_of(Format format);

inline constexpr Format all_formats[] = {Format::json, Format::text};

// The facts of a type.
const vesk_type* facts_of(const TypeInfo& type);

vesk_text_options with_flags(std::uint32_t flags);

// What a call of the library came to.
struct Printed {
    std::int32_t code;
    std::string text;
    std::string path;
    std::string reason;
};

Printed print(Format format, const vesk_type* type, const void* message, std::uint32_t flags = 0);
Printed print_encoded(Format format, const vesk_type* type, const Bytes& input, std::uint32_t flags = 0);

// A message that was parsed, with the ledger that owns its blocks; freed at the end of its scope. The text is parsed
// from a block of exactly its length.
struct Parsed {
    Parsed(Format format, const TypeInfo& type, std::string_view text, std::uint32_t flags = 0);
    Parsed(Format format, const TypeInfo& type, std::string_view text, const vesk_text_options& options,
           std::uint64_t failing_request = 0);
    ~Parsed() { type.free(message.get(), Ledger::release, &ledger, 0); }
    Parsed(const Parsed&) = delete;
    Parsed& operator=(const Parsed&) = delete;

    // "-203 f3 1:9", or "0" without an error.
    std::string verdict() const;

    const TypeInfo& type;
    Ledger ledger;
    Storage message;
    vesk_text_report report;
    std::int32_t code;
};

// A text, and the message that it gives, printed in one line, or the code, path, line and column of the error.
struct Row {
    const char* type;
    std::string text;
    std::string expected;
};

// What parsing a row's text comes to, in the words of `expected`; a bad text must ask for no block.
std::string outcome(Format format, const Row& row, std::uint32_t flags = 0);
void expect_outcomes(Format format, const std::vector<Row>& rows, std::uint32_t flags = 0);

// For tests of one type: the type by its name, or an exception.
const TypeInfo& type_named(const std::string& name);

}  // namespace vesk::test
