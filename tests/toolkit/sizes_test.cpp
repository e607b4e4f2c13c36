// The numbers of vesk_sizes.h, compared with what encode writes and what the pre-flight says that decode asks for.
#include <gtest/gtest.h>
#include <vesk/vesk_sizes.h>
#include <vesk/vesk_toolkit.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <fstream>
#include <map>
#include <regex>

#include "tests/support/random_message.hpp"

static_assert(VESK_PEM_DATA_STRUCTURE_SIZE == 320 || sizeof(void*) != 8);
#if VESK_RESP_ADMIN_MEMORY_DATA_LONGEST_ENCODING > 100 || VESK_RESP_INV_DATA_MEMORY_PER_BYTE < 100
#error "sizes are usable in #if"
#endif

namespace vesk::test {
namespace {

// {type: {what: value}}, of the values that are numbers.
std::map<std::string, std::map<std::string, std::uint64_t>> read_sizes() {
    std::map<std::string, std::map<std::string, std::uint64_t>> sizes;
    std::ifstream header(VESK_TEST_SOURCE_DIR "/toolkit/vesk_sizes.h");
    const std::regex line(
        R"(#define VESK_(\w+)_(LONGEST_ENCODING|MEMORY_PER_BYTE) (?:VESK_BY_POINTERS\()?(\d+)(?:, (\d+))?.*)");
    std::string text;
    while (std::getline(header, text)) {
        std::smatch match;
        if (!std::regex_match(text, match, line)) continue;
        std::string type = match[1];
        std::transform(type.begin(), type.end(), type.begin(), [](unsigned char c) { return std::tolower(c); });
        const bool other = sizeof(void*) < 8 && match[4].matched;
        sizes[type][match[2]] = std::stoull(match[other ? 4 : 3]);
    }
    return sizes;
}

// Fills every byte of the numbers, and marks every field: nothing is longer. False if the type has something without a
// longest encoding.
bool fill_with_the_longest(const TypeInfo& type, void* message) {
    for (const FieldInfo& field : type.fields) {
        if (field.kind == Kind::uint32) store<std::uint32_t>(message, field.offset, UINT32_MAX);
        if (field.kind == Kind::uint64) store<std::uint64_t>(message, field.offset, UINT64_MAX);
        if (field.kind == Kind::boolean) store<std::uint8_t>(message, field.offset, 0xFF);
        if (field.kind == Kind::string || field.kind == Kind::bytes || field.kind == Kind::list) return false;
        if (field.kind == Kind::message) {
            auto* const nested = static_cast<std::uint8_t*>(message) + field.offset;
            if (field.nested->name == "drin_eid_st" || !fill_with_the_longest(*field.nested, nested)) return false;
        }
    }
    std::memset(static_cast<std::uint8_t*>(message) + type.presence_offset, 0xFF, type.presence_size);
    return true;
}

TEST(sizes, longest_encoding_is_that_of_the_longest_values_and_missing_where_there_is_none) {
    const auto sizes = read_sizes();
    for (const TypeInfo* type : all_types()) {
        SCOPED_TRACE(type->name);
        ASSERT_TRUE(sizes.contains(type->name));
        const auto& of_type = sizes.at(type->name);
        Storage message(*type, 0);
        const bool has_longest = fill_with_the_longest(*type, message.get());
        ASSERT_EQ(of_type.contains("LONGEST_ENCODING"), has_longest);
        if (!has_longest) continue;
        EXPECT_EQ(type->encode(message.get(), nullptr, 0, nullptr, nullptr, 0), of_type.at("LONGEST_ENCODING"));
    }
}

// Bytes asked for, for each byte of a long run of one field, its content being the worst of its own.
double worst_ratio(const vesk_type* type, const vesk_field* field) {
    if (field->kind < VESK_KIND_STRING) return 0;
    const Bytes tag = varint(field->tag);
    if (field->kind == VESK_KIND_STRING || field->kind == VESK_KIND_BYTES) return 1e-9;  // below 1, above 0
    const vesk_type* const nested = vesk_field_nested(field);
    double worst = 0;
    const vesk_type* const inner =
        (nested->flags & VESK_TYPE_ELSEWHERE) != 0 ? vesk_type_named(vesk_type_name(nested)) : nested;
    for (std::uint32_t place = 0; place < inner->field_count; ++place) {
        worst = std::max(worst, worst_ratio(inner, vesk_type_field(inner, place)));
    }
    if (field->kind != VESK_KIND_LIST) return worst;
    Bytes input;
    for (int i = 0; i < 1000; ++i) input.insert(input.end(), tag.begin(), tag.end()), input.push_back(0);
    vesk_report report;
    report.size = sizeof report;
    EXPECT_EQ(vesk_check(type, input.data(), input.size(), 0, &report, nullptr), VESK_OK);
    return std::max(worst, static_cast<double>(report.cost.bytes) / static_cast<double>(input.size()));
}

TEST(sizes, memory_per_byte_is_what_the_worst_list_asks_for) {
    const auto sizes = read_sizes();
    for (const TypeInfo* type : all_types()) {
        const vesk_type* const facts = vesk_type_named(type->name.c_str());
        double worst = 0;
        for (std::uint32_t place = 0; place < facts->field_count; ++place) {
            worst = std::max(worst, worst_ratio(facts, vesk_type_field(facts, place)));
        }
        const std::uint64_t promised = sizes.at(type->name).at("MEMORY_PER_BYTE");
        if (sizeof(void*) == 8) {
            EXPECT_EQ(promised, static_cast<std::uint64_t>(std::ceil(worst))) << type->name;
        } else {  // where some machines align numbers of 64 bits to 4 bytes, and the header is for all
            EXPECT_GE(static_cast<double>(promised), worst) << type->name;
        }
    }
}

}  // namespace
}  // namespace vesk::test
