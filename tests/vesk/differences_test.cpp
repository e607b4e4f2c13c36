// What `check --differences` names, held against protobuf itself: whenever the two read an input differently, a place
// is named, and where none is both read the same.
//
// A failure names the type and the seed. VESK_TEST_ROUNDS in the environment sets the rounds per type.
#include "tools/vesk/differences.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

#include "tests/interop/inputs_of_every_type.hpp"
#include "tests/interop/peers.hpp"
#include "tools/vesk/pre_flight.hpp"
#include "tools/vesk/spans.hpp"

namespace vesk::test {
namespace {

struct Named {
    std::uint64_t at;
    std::string path;
    std::string row;  // the name of its test

    bool operator==(const Named&) const = default;
};

void PrintTo(const Named& named, std::ostream* out) { *out << named.at << " " << named.path << " " << named.row; }

std::vector<Named> differences(const std::string& type_name, const Bytes& input) {
    const vesk_type* const type = vesk_type_named(type_name.c_str());
    const vesk_report report = tool::check(type, input.data(), input.size());
    std::vector<Named> found;
    tool::for_each_difference(type, input.data(), input.size(), report, [&](const tool::Difference& difference) {
        found.push_back({difference.at, std::string(difference.path),
                         std::string(difference.row->test).substr(std::string("differences.").size())});
    });
    return found;
}

// ---- The rows ----

TEST(difference_rows, stand_word_for_word_in_the_document) {
    std::ifstream file(VESK_TEST_SOURCE_DIR "/docs/differences.md");
    std::stringstream document;
    document << file.rdbuf();
    for (const tool::RowText& row : tool::all_rows()) {
        const std::string line =
            std::string("\n| ") + row.what + " | " + row.protobuf + " | " + row.library + " | `" + row.test + "` |\n";
        EXPECT_NE(document.str().find(line), std::string::npos) << line;
    }
}

struct Case {
    const char* name;
    const char* type;
    Bytes input;
    std::vector<Named> named;
};

// f2 and f3 of entity_common are strings, f15 of sensor_data a flag, f20 of eeprom_data bytes.
TEST(differences_named, of_each_row_have_place_and_path) {
    const Bytes common = message(text_field(2, "a"));
    const Case cases[] = {
        {"nothing", "pem_data", message(message_field(1, common), number_field(3, 4800)), {}},
        {"unknown",
         "pem_data",
         message(number_field(3, 1), number_field(60, 1)),
         {{2, "", "unknown_field_is_dropped"}}},
        {"unknown, nested",
         "pem_data",
         message_field(1, number_field(60, 1)),
         {{2, "entity_common", "unknown_field_is_dropped"}}},
        {"cut short",
         "pem_data",
         hex("E503 0102"),
         {{0, "", "unknown_field_is_dropped"}, {0, "", "unknown_field_cut_short_is_accepted"}}},
        {"number 0", "pem_data", hex("00 01"), {{0, "", "field_number_0_is_unknown_field"}}},
        {"group", "pem_data", hex("1801 E303 E403"), {{2, "", "group_is_refused"}}},
        {"group under a known number", "pem_data", hex("1801 23 24"), {{2, "f4", "group_is_refused"}}},
        {"groups in a group", "pem_data", hex("1801 E303 F303 0801 1200 F403 E403"), {{2, "", "group_is_refused"}}},
        {"group without its end", "pem_data", hex("1801 E303 0801"), {}},
        {"group with the end of another", "pem_data", hex("1801 E303 EC03"), {}},
        {"other wire type, its number cut short", "pem_data", hex("20FF"), {}},
        {"other wire type, its 4 bytes cut short", "pem_data", hex("1D 010203"), {}},
        {"other wire type, its 8 bytes cut short", "pem_data", hex("19 01020304050607"), {}},
        {"other wire type, its length too long", "pem_data", hex("1A02 00"), {}},
        {"other wire type", "pem_data", hex("1801 2201 00"), {{2, "f4", "known_field_of_other_wire_type_is_refused"}}},
        {"element of other wire type",
         "resp_inv_data",
         hex("5A00 5802 1801"),
         {{2, "pem_list[1]", "list_element_of_other_wire_type_is_read_as_element"}}},
        {"element of other wire type that is refused",
         "resp_inv_data",
         hex("5A00 587F"),
         {{2, "pem_list[1]", "list_element_of_other_wire_type_is_read_as_element"}}},
        {"two runs", "resp_inv_data", hex("5A00 0801 5A00"), {{4, "pem_list", "list_in_two_runs_is_refused"}}},
        {"message twice",
         "pem_data",
         message(message_field(1, {}), message_field(1, common)),
         {{2, "entity_common", "nested_message_twice_is_replaced"}}},
        {"string twice",
         "pem_data",
         message_field(1, message(common, common)),
         {{5, "entity_common.f2", "string_twice_is_refused"}}},
        {"bytes twice",
         "eeprom_data",
         message(text_field(20, "a"), text_field(20, "b")),
         {{4, "f20", "bytes_twice_is_refused"}}},
        {"NUL", "led_data", text_field(5, std::string_view("a\0b", 3)), {{0, "f5", "string_ends_at_embedded_nul"}}},
        {"flag", "sensor_data", number_field(15, std::uint64_t{1} << 40), {{0, "f15", "flag_is_read_from_32_bits"}}},
        {"long tag",
         "pem_data",
         message(over_long(0x18, 6), varint(1)),
         {{0, "f3", "tag_of_more_than_5_bytes_is_read"}}},
        {"long length",
         "led_data",
         message(tag(5, length_type), over_long(1, 6), hex("41")),
         {{0, "f5", "length_of_more_than_5_bytes_is_read"}}},
        {"high length",
         "led_data",
         message(tag(5, length_type), varint((std::uint64_t{1} << 32) + 1), hex("41")),
         {{0, "f5", "length_above_2_gib_keeps_its_low_32_bits"}}},
        {"long number",
         "pem_data",
         message(tag(3, varint_type), over_long(1, 11)),
         {{0, "f3", "number_of_more_than_10_bytes_is_read"}}},
        {"refused by both", "pem_data", hex("1801 2080"), {}},
        {"refused by both for its tag", "pem_data", hex("1801 80"), {}},
        {"wire type 7, refused by both", "pem_data", hex("1801 27"), {}},
    };
    for (const Case& tried : cases) {
        SCOPED_TRACE(tried.name);
        EXPECT_EQ(differences(tried.type, tried.input), tried.named);
    }
}

// ---- Every input ----

struct Found {
    std::map<std::string, std::uint64_t> met;  // how often each row was named
    std::uint64_t alike;                       // inputs without any
};

class Comparison {
public:
    explicit Comparison(const TypeInfo& type) : type_(type), library_(type) {}

    void compare(const Bytes& input, Found& found) {
        const std::vector<Named> named = differences(type_.name, input);
        for (std::size_t i = 0; i < named.size(); ++i) {
            ASSERT_LT(named[i].at, input.size()) << to_hex(input);
            ASSERT_TRUE(i == 0 || named[i - 1].at <= named[i].at) << to_hex(input);
            ++found.met[named[i].row];
        }
        if (named.empty()) {
            ++found.alike;
            ASSERT_EQ(read_by_protobuf(type_, input), library_.read(input)) << to_hex(input);
        }
    }

private:
    const TypeInfo& type_;
    LibraryReader library_;
};

Found compare_every_type(MakeInput make_input, int inputs_per_round) {
    const Found found = compare_inputs_of_every_type<Comparison, Found>(make_input, inputs_per_round);
    for (const auto& [row, count] : found.met) ::testing::Test::RecordProperty(row, std::to_string(count));
    const bool is_whole = !::testing::Test::HasFailure();
    EXPECT_TRUE(!is_whole || found.alike > all_types().size() * rounds() / 5) << found.alike;
    return found;
}

TEST(differences_named, on_damaged_input_explain_every_disagreement) { compare_every_type(damaged, 2); }

TEST(differences_named, on_input_of_a_careless_sender_explain_every_disagreement) {
    const Found found = compare_every_type(careless, 2);
    if (HasFailure() || rounds() < 50) return;
    for (const tool::RowText& row : tool::all_rows()) {
        const std::string name = std::string(row.test).substr(std::string("differences.").size());
        // Nobody has the memory to spare for the one, and chance hardly ever makes the other: see the table above.
        if (name == "field_of_2_gib_is_read" || name == "length_above_2_gib_keeps_its_low_32_bits") continue;
        EXPECT_TRUE(found.met.contains(name)) << name << " was never met";
    }
}

TEST(differences_named, on_input_that_is_careless_and_damaged_explain_every_disagreement) {
    compare_every_type(careless_and_damaged, 1);
}

}  // namespace
}  // namespace vesk::test
