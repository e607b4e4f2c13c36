// docs/messages.md says how large a structure is and how long its encoding can become. The compiler and the encoder
// have the last word.
#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "tests/support/type_info.hpp"

namespace vesk::test {
namespace {

// The text behind `- LABEL: ` under each type's heading, by the type's name.
std::map<std::string, std::string> read_entries(const std::string& label) {
    std::map<std::string, std::string> entries;
    std::ifstream file(VESK_TEST_SOURCE_DIR "/docs/messages.md");
    const std::string heading = "### vesk_";
    const std::string start = "- " + label + ": ";
    std::string type;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(heading, 0) == 0) type = line.substr(heading.size());
        if (line.rfind(start, 0) == 0) entries[type] = line.substr(start.size());
    }
    return entries;
}

bool has_a_longest_encoding(const TypeInfo& type) {
    for (const FieldInfo& field : type.fields) {
        if (field.kind == Kind::message) {
            if (field.nested->name == "drin_eid_st" || !has_a_longest_encoding(*field.nested)) return false;
        } else if (field.kind == Kind::string || field.kind == Kind::bytes || field.kind == Kind::list) {
            return false;
        }
    }
    return true;
}

TEST(messages_document, longest_encoding_is_that_of_a_structure_full_of_ones) {
    const auto entries = read_entries("Longest encoding");
    std::size_t limited = 0;
    for (const TypeInfo* type : all_types()) {
        std::string expected = "unlimited";
        if (has_a_longest_encoding(*type)) {
            const Storage message(*type, 0xFF);
            expected = std::to_string(type->encode(message.get(), nullptr, 0, nullptr, nullptr, 0)) + " bytes";
            ++limited;
        }
        ASSERT_TRUE(entries.count(type->name)) << type->name;
        EXPECT_EQ(entries.at(type->name), expected) << type->name;
    }
    EXPECT_GT(limited, 0u);
}

TEST(messages_document, structure_has_the_size_that_it_states) {
    if (sizeof(void*) != 8) return;  // the document gives the sizes of 64-bit platforms
    const auto entries = read_entries("Structure");
    for (const TypeInfo* type : all_types()) {
        EXPECT_EQ(entries.at(type->name), std::to_string(type->size) + " bytes, " +
                                              std::to_string(type->presence_size) + " of them presence bits");
    }
}

}  // namespace
}  // namespace vesk::test
