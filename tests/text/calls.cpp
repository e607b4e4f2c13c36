#include "tests/text/calls.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace vesk::test {
namespace {

std::int32_t append(const char* text, std::size_t length, void* context) {
    static_cast<std::string*>(context)->append(text, length);
    return 0;
}

vesk_text_report new_report() {
    vesk_text_report report;
    std::memset(&report, 0x5A, sizeof report);
    report.size = sizeof report;
    return report;
}

}  // namespace

const char* name_of(Format format) { return format == Format::json ? "JSON" : "text format"; }

const vesk_type* facts_of(const TypeInfo& type) { return vesk_type_named(type.name.c_str()); }

vesk_text_options with_flags(std::uint32_t flags) {
    vesk_text_options options = vesk_default_text_options();
    options.flags = flags;
    return options;
}

Printed print(Format format, const vesk_type* type, const void* message, std::uint32_t flags) {
    Printed printed;
    vesk_text_report report = new_report();
    const vesk_text_options options = with_flags(flags);
    const auto call = format == Format::json ? vesk_json_print : vesk_text_print;
    printed.code = call(type, message, append, &printed.text, &report, &options);
    printed.path = report.path;
    printed.reason = report.reason;
    return printed;
}

Printed print_encoded(Format format, const vesk_type* type, const Bytes& input, std::uint32_t flags) {
    Printed printed;
    vesk_text_report report = new_report();
    const vesk_text_options options = with_flags(flags);
    const std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[input.size()]);
    std::copy(input.begin(), input.end(), copy.get());
    const auto call = format == Format::json ? vesk_json_print_encoded : vesk_text_print_encoded;
    printed.code = call(type, copy.get(), input.size(), append, &printed.text, &report, &options);
    printed.path = report.path;
    printed.reason = report.reason;
    return printed;
}

Parsed::Parsed(Format format, const TypeInfo& type, std::string_view text, std::uint32_t flags)
    : Parsed(format, type, text, with_flags(flags)) {}

Parsed::Parsed(Format format, const TypeInfo& type, std::string_view text, const vesk_text_options& options,
               std::uint64_t failing_request)
    : type(type), message(type), report(new_report()) {
    const std::unique_ptr<char[]> copy(new char[text.size()]);
    std::copy(text.begin(), text.end(), copy.get());
    if (failing_request != 0) ledger.fail_request(failing_request);
    const auto call = format == Format::json ? vesk_json_parse : vesk_text_parse;
    code = call(facts_of(type), message.get(), copy.get(), text.size(), Ledger::alloc, &ledger, &report, &options);
}

std::string Parsed::verdict() const {
    if (code == VESK_OK) return "0";
    return std::to_string(code) + " " + report.path + " " + std::to_string(report.line) + ":" +
           std::to_string(report.column);
}

const TypeInfo& type_named(const std::string& name) {
    const TypeInfo* const type = find_type(name);
    if (type == nullptr) throw std::out_of_range("no type " + name);
    return *type;
}

std::string outcome(Format format, const Row& row, std::uint32_t flags) {
    const Parsed parsed(format, type_named(row.type), row.text, flags);
    if (parsed.code != VESK_OK) {
        EXPECT_NE(std::string(parsed.report.reason), "");
        EXPECT_EQ(parsed.ledger.requests_made(), 0u) << "a bad text asks for a block: " << row.text;
        EXPECT_TRUE(is_clear(parsed.type, parsed.message.get())) << row.text;
        return vesk_text_result_name(parsed.code) + parsed.verdict().substr(std::to_string(parsed.code).size());
    }
    EXPECT_EQ(std::string(parsed.report.reason), "");
    return print(format, facts_of(parsed.type), parsed.message.get(), flags | VESK_TEXT_ONE_LINE).text;
}

void expect_outcomes(Format format, const std::vector<Row>& rows, std::uint32_t flags) {
    for (const Row& row : rows) EXPECT_EQ(outcome(format, row, flags), row.expected) << row.type << ": " << row.text;
}

}  // namespace vesk::test
