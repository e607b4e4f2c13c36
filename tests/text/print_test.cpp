// What is printed of a message, and what is not.
#include <gtest/gtest.h>
#include <vesk/client_service.h>

#include "tests/support/arena.hpp"
#include "tests/support/damage.hpp"
#include "tests/support/random_message.hpp"
#include "tests/text/calls.hpp"

namespace vesk::test {
namespace {

constexpr std::uint32_t one_line = VESK_TEXT_ONE_LINE;

std::string printed(Format format, const char* type, const void* message, std::uint32_t flags = one_line) {
    const Printed result = print(format, vesk_type_named(type), message, flags);
    return result.code == VESK_OK ? result.text : vesk_text_result_name(result.code) + (" " + result.path);
}

std::string json(const char* type, const void* message) { return printed(Format::json, type, message); }
std::string text(const char* type, const void* message) { return printed(Format::text, type, message); }

std::string json_of(const char* type, const Bytes& input, std::uint32_t flags = one_line) {
    const Printed result = print_encoded(Format::json, vesk_type_named(type), input, flags);
    return result.code == VESK_OK ? result.text : vesk_text_result_name(result.code) + (" " + result.path);
}
std::string text_of(const char* type, const Bytes& input, std::uint32_t flags = one_line) {
    return print_encoded(Format::text, vesk_type_named(type), input, flags).text;
}

// ---- Presence ------------------------------------------------------------------------------------------------------

TEST(text_print, empty_message_is_an_object_without_fields) {
    const vesk_inv_policy policy = {};
    EXPECT_EQ(json("inv_policy", &policy), "{}");
    EXPECT_EQ(printed(Format::json, "inv_policy", &policy, 0), "{}\n");
    EXPECT_EQ(text("inv_policy", &policy), "");
}

TEST(text_print, present_field_is_printed_whatever_it_holds) {
    char empty[] = "";
    vesk_scratch_eeprom eeprom = {};
    eeprom.f1 = empty;
    for (const unsigned bit : {0, 1, 2}) VESK_MARK(&eeprom, bit);
    EXPECT_EQ(json("scratch_eeprom", &eeprom), R"({"f1":"","f2":"","f3":0})");
    EXPECT_EQ(text("scratch_eeprom", &eeprom), R"(f1: "" f2: "" f3: 0)");

    vesk_req_container_eid_nodeid request = {};
    VESK_MARK(&request, VESK_REQ_CONTAINER_EID_NODEID_EID);
    VESK_MARK(&request, VESK_REQ_CONTAINER_EID_NODEID_F3);
    EXPECT_EQ(json("req_container_eid_nodeid", &request), R"({"eid":{},"f3":false})");
    EXPECT_EQ(text("req_container_eid_nodeid", &request), "eid { } f3: false");
    request.f3 = 1;
    EXPECT_EQ(text("req_container_eid_nodeid", &request), "eid { } f3: true");
    request.f3 = 200;
    EXPECT_EQ(json("req_container_eid_nodeid", &request), R"({"eid":{},"f3":true})");
}

TEST(text_print, value_without_its_presence_bit_is_not_printed) {
    char text_value[] = "north";
    vesk_inv_policy policy = {};
    policy.f1 = text_value;
    policy.f3 = 7;
    EXPECT_EQ(json("inv_policy", &policy), "{}");
}

TEST(text_print, null_string_and_empty_list_are_not_printed_with_their_bit) {
    vesk_inv_policy policy = {};
    VESK_MARK(&policy, VESK_INV_POLICY_F1);
    EXPECT_EQ(json("inv_policy", &policy), "{}");
    EXPECT_EQ(text("inv_policy", &policy), "");
    vesk_resp_container_eid_nodeid answer = {};
    VESK_MARK(&answer, VESK_RESP_CONTAINER_EID_NODEID_CONTAINER_EID_NODEID_LIST);
    EXPECT_EQ(json("resp_container_eid_nodeid", &answer), "{}");
    EXPECT_EQ(text("resp_container_eid_nodeid", &answer), "");
}

TEST(text_print, nested_message_without_its_bit_is_printed_if_it_has_content) {
    vesk_event_data event = {};
    event.context_a.f1 = 5;
    EXPECT_EQ(json("event_data", &event), "{}");
    VESK_MARK(&event.context_a, VESK_EVENT_CONTEXT_DATA_F1);
    EXPECT_EQ(json("event_data", &event), R"({"context_a":{"f1":5}})");
    event.eid.f2 = 9;
    VESK_MARK(&event.eid, VESK_DRIN_EID_ST_F2);
    EXPECT_EQ(json("event_data", &event), R"({"eid":{"f2":9},"context_a":{"f1":5}})");
}

TEST(text_print, fields_come_in_the_order_of_their_declaration) {
    char name[] = "x";
    vesk_memory_data memory = {};
    memory.f4 = name;
    VESK_MARK(&memory, VESK_MEMORY_DATA_F4);
    VESK_MARK(&memory, VESK_MEMORY_DATA_F6);
    EXPECT_EQ(json("memory_data", &memory), R"({"f6":0,"f4":"x"})");
    EXPECT_EQ(json_of("memory_data", message(text_field(4, "x"), number_field(6, 0))), R"({"f6":0,"f4":"x"})");
}

// ---- Values --------------------------------------------------------------------------------------------------------

TEST(text_print, number_of_64_bits_is_a_string_in_json) {
    vesk_event_data event = {};
    event.f6 = UINT64_MAX;
    VESK_MARK(&event, VESK_EVENT_DATA_F6);
    EXPECT_EQ(json("event_data", &event), R"({"f6":"18446744073709551615"})");
    EXPECT_EQ(text("event_data", &event), "f6: 18446744073709551615");
}

TEST(text_print, bytes_are_base64_with_padding) {
    for (const auto& [length, expected] : {std::pair{1u, "+w=="}, {2u, "+/8="}, {3u, "+/8A"}, {4u, "+/8AYQ=="}}) {
        std::uint8_t data[] = {0xFB, 0xFF, 0x00, 0x61};
        vesk_scratch_eeprom eeprom = {};
        eeprom.f2 = data;
        eeprom.f2_length = length;
        VESK_MARK(&eeprom, VESK_SCRATCH_EEPROM_F2);
        EXPECT_EQ(json("scratch_eeprom", &eeprom), std::string(R"({"f2":")") + expected + "\"}");
    }
}

TEST(text_print, strings_are_escaped_as_each_format_says) {
    char special[] = "\"\\/\b\f\n\r\t\x01\x7F'";
    vesk_inv_policy policy = {};
    policy.f1 = special;
    VESK_MARK(&policy, VESK_INV_POLICY_F1);
    EXPECT_EQ(json("inv_policy", &policy), "{\"f1\":\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\x7F'\"}");
    EXPECT_EQ(text("inv_policy", &policy), R"(f1: "\"\\/\010\014\n\r\t\001\177\'")");
    char accents[] = "\xC3\xA9\xF0\x9F\x98\x80";
    policy.f1 = accents;
    EXPECT_EQ(json("inv_policy", &policy), "{\"f1\":\"\xC3\xA9\xF0\x9F\x98\x80\"}");
    EXPECT_EQ(text("inv_policy", &policy), R"(f1: "\303\251\360\237\230\200")");
}

// Strings are looked at eight bytes at a time: what needs an escape is found at each place of each of them.
TEST(text_print, character_is_escaped_at_every_place_of_a_string_of_any_length) {
    const std::pair<std::string, std::string> characters[] = {{"\"", "\\\""},
                                                              {"\\", "\\\\"},
                                                              {"\x01", "\\u0001"},
                                                              {"\x1F", "\\u001f"},
                                                              {" ", " "},
                                                              {"!", "!"},
                                                              {"#", "#"},
                                                              {"[", "["},
                                                              {"]", "]"},
                                                              {"\x7F", "\x7F"},
                                                              {"\x80", "\\udc80"},
                                                              {"\xFF", "\\udcff"},
                                                              {"\xC3\xA9", "\xC3\xA9"},
                                                              {std::string(1, '\0'), "\\u0000"}};
    for (const auto& [character, escaped] : characters) {
        for (std::size_t before = 0; before <= 24; ++before) {
            for (std::size_t after = 0; after <= 24; ++after) {
                const std::string string = std::string(before, 'b') + character + std::string(after, 'a');
                const Printed printed = print_encoded(Format::json, vesk_type_named("inv_policy"),
                                                      text_field(1, string), VESK_TEXT_LOSSLESS | one_line);
                ASSERT_EQ(printed.text,
                          R"({"f1":")" + std::string(before, 'b') + escaped + std::string(after, 'a') + "\"}");
            }
        }
    }
}

TEST(text_print, string_that_is_not_utf8_is_an_error_with_its_path) {
    for (const char* bad : {"\xFF", "a\x80", "\xC3", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xED\xB0\x80",
                            "\xF0\x80\x80\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xE2\x82"}) {
        const Bytes inner = text_field(2, bad);
        EXPECT_EQ(json_of("resp_container_eid_nodeid", message(message_field(1, {}), message_field(1, inner))),
                  "VESK_TEXT_NOT_UTF8 container_eid_nodeid_list[1].f2")
            << bad;
        const AnyDecoded decoded(type_named("container_eid_nodeid_data"), inner);
        EXPECT_EQ(json("container_eid_nodeid_data", decoded.message.get()), "VESK_TEXT_NOT_UTF8 f2") << bad;
    }
}

TEST(text_print, lossless_escape_of_what_is_not_utf8_is_half_of_a_surrogate_pair) {
    const std::uint32_t flags = one_line | VESK_TEXT_LOSSLESS;
    EXPECT_EQ(json_of("inv_policy", text_field(1, "a\xFFz\x80\xC3\xA9\xC3"), flags),
              "{\"f1\":\"a\\udcffz\\udc80\xC3\xA9\\udcc3\"}");
    EXPECT_EQ(json_of("inv_policy", text_field(1, "\xED\xB2\x80"), flags), R"({"f1":"\udced\udcb2\udc80"})");
}

TEST(text_print, nul_inside_a_string_is_an_escape_from_encoded_bytes) {
    const Bytes input = text_field(1, std::string_view("a\0b", 3));
    EXPECT_EQ(json_of("inv_policy", input), R"({"f1":"a\u0000b"})");
    EXPECT_EQ(text_of("inv_policy", input), R"(f1: "a\000b")");
}

// ---- Layout --------------------------------------------------------------------------------------------------------

TEST(text_print, lines_are_indented_by_two_blanks_a_level) {
    const Bytes input = message(message_field(1, number_field(3, 1)), message_field(1, {}), number_field(2, 5));
    EXPECT_EQ(json_of("resp_container_eid_nodeid", input, 0), R"({
  "container_eid_nodeid_list": [
    {
      "f3": 1
    },
    {}
  ],
  "f2": 5
}
)");
    EXPECT_EQ(text_of("resp_container_eid_nodeid", input, 0), R"(container_eid_nodeid_list {
  f3: 1
}
container_eid_nodeid_list {
}
f2: 5
)");
    EXPECT_EQ(json_of("resp_container_eid_nodeid", input), R"({"container_eid_nodeid_list":[{"f3":1},{}],"f2":5})");
    EXPECT_EQ(text_of("resp_container_eid_nodeid", input),
              "container_eid_nodeid_list { f3: 1 } container_eid_nodeid_list { } f2: 5");
}

// ---- Encoded bytes -------------------------------------------------------------------------------------------------

TEST(text_print_encoded, later_scalar_replaces_the_earlier_one) {
    EXPECT_EQ(json_of("inv_policy", message(number_field(3, 1), text_field(1, "a"), number_field(3, 2))),
              R"({"f1":"a","f3":2})");
}

TEST(text_print_encoded, repeated_nested_message_replaces_the_earlier_one_as_a_whole) {
    const Bytes first = message_field(2, message(number_field(1, 1), number_field(2, 2)));
    EXPECT_EQ(json_of("event_data", message(first, message_field(2, number_field(2, 3)))), R"({"context_a":{"f2":3}})");
    EXPECT_EQ(json_of("event_data", message(first, message_field(2, {}))), R"({"context_a":{}})");
}

TEST(text_print_encoded, field_that_comes_too_late_stands_at_its_place) {
    EXPECT_EQ(json_of("inv_policy", message(number_field(3, 1), text_field(1, "a"))), R"({"f1":"a","f3":1})");
}

TEST(text_print_encoded, unknown_fields_are_left_out) {
    EXPECT_EQ(json_of("inv_policy", message(number_field(9, 1), number_field(3, 2), tag(10, fixed32_type), hex("01"))),
              R"({"f3":2})");
}

TEST(text_print_encoded, list_goes_on_over_tags_of_another_wire_type) {
    const Bytes input = message(message_field(1, number_field(3, 1)), tag(1, varint_type), sized(number_field(3, 2)),
                                number_field(2, 7));
    EXPECT_EQ(json_of("resp_container_eid_nodeid", input),
              R"({"container_eid_nodeid_list":[{"f3":1},{"f3":2}],"f2":7})");
}

TEST(text_print_encoded, numbers_keep_the_bits_of_their_kind) {
    EXPECT_EQ(json_of("inv_policy", message(tag(3, varint_type), over_long(0x1FFFFFFFF, 10))), R"({"f3":4294967295})");
    EXPECT_EQ(json_of("req_container_eid_nodeid", number_field(3, std::uint64_t{1} << 32)), R"({"f3":false})");
    EXPECT_EQ(json_of("event_data", number_field(6, std::uint64_t{1} << 63)), R"({"f6":"9223372036854775808"})");
}

TEST(text_print_encoded, error_of_the_decoder_is_the_result_and_nothing_is_printed) {
    const Printed twice = print_encoded(Format::json, vesk_type_named("resp_container_eid_nodeid"),
                                        message_field(1, message(text_field(2, "a"), text_field(2, "b"))));
    EXPECT_EQ(twice.code, VESK_MALFORMED);
    EXPECT_EQ(twice.path, "container_eid_nodeid_list[0].f2");
    EXPECT_EQ(twice.text, "");
    EXPECT_EQ(print_encoded(Format::text, vesk_type_named("inv_policy"), tag(9, 3)).code, VESK_UNKNOWN_WIRE_TYPE);
    EXPECT_EQ(print_encoded(Format::text, vesk_type_named("inv_policy"), tag(1, 0)).code, VESK_WRONG_WIRE_TYPE);
}

// A NUL inside a string is the one thing that a structure's user does not see.
Bytes without_nul(Bytes input) {
    for (std::uint8_t& byte : input) {
        if (byte == 0) byte = 1;
    }
    return input;
}

TEST(text_print_encoded, prints_what_the_decoded_structure_prints) {
    std::uint64_t seed = 0;
    std::uint64_t accepted = 0;
    std::uint64_t damaged = 0;
    Arena blocks(1 << 22);  // takes no block back, so a block that the contract gives up for lost is none
    for (const TypeInfo* type : all_types()) {
        for (int round = 0; round < 100; ++round) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(++seed));
            std::mt19937_64 random(seed);
            const RandomMessage source(*type, seed, Amount::wild);
            const Bytes whole = encoded(*type, source.get());
            for (const Bytes& input : {whole, damage(whole, random), without_nul(damage(whole, random))}) {
                blocks.reset();
                Storage decoded(*type);
                const std::int32_t code =
                    type->decode(decoded.get(), input.data(), input.size(), Arena::alloc, &blocks, 0);
                for (const Format format : all_formats) {
                    const std::uint32_t flags = VESK_TEXT_LOSSLESS | (round % 2 == 0 ? one_line : 0);
                    const Printed bytes = print_encoded(format, facts_of(*type), input, flags);
                    ASSERT_EQ(bytes.code, code) << to_hex(input);
                    if (code != VESK_OK) {
                        EXPECT_EQ(bytes.text, "");
                        continue;
                    }
                    if (bytes.text.find(format == Format::json ? "\\u0000" : "\\000") != std::string::npos) continue;
                    const Printed structure = print(format, facts_of(*type), decoded.get(), flags);
                    ASSERT_EQ(structure.code, VESK_OK);
                    ASSERT_EQ(bytes.text, structure.text) << to_hex(input);
                    ++accepted;
                    damaged += input != whole;
                }
            }
        }
    }
    EXPECT_GT(accepted, 2 * 95 * 100u);
    EXPECT_GT(damaged, 5000u);
}

// ---- The callback --------------------------------------------------------------------------------------------------

struct Refusing {
    std::uint64_t calls_left;
    std::string text;
    bool was_called_again;

    static std::int32_t write(const char* text, std::size_t length, void* context) {
        Refusing& refusing = *static_cast<Refusing*>(context);
        EXPECT_NE(length, 0u);
        if (refusing.calls_left == 0) refusing.was_called_again = true;
        refusing.text.append(text, length);
        return --refusing.calls_left == 0 ? 42 : 0;
    }
};

TEST(text_print, callback_that_fails_at_any_call_ends_the_printing) {
    const TypeInfo& type = type_named("resp_container_eid_nodeid");
    Bytes input;
    for (int element = 0; element < 300; ++element) {
        const Bytes field = message_field(1, message(text_field(2, std::string(100, 'x')), number_field(3, 70)));
        input.insert(input.end(), field.begin(), field.end());
    }
    const AnyDecoded decoded(type, input);
    for (const Format format : all_formats) {
        const std::string whole = print(format, facts_of(type), decoded.message.get()).text;
        const auto from_structure = format == Format::json ? vesk_json_print : vesk_text_print;
        const auto from_bytes = format == Format::json ? vesk_json_print_encoded : vesk_text_print_encoded;
        std::uint64_t call = 1;
        for (std::int32_t code = VESK_STOPPED; code == VESK_STOPPED; ++call) {
            Refusing one{call, "", false};
            Refusing other{call, "", false};
            vesk_text_report report;
            report.size = sizeof report;
            code = from_structure(facts_of(type), decoded.message.get(), Refusing::write, &one, &report, nullptr);
            EXPECT_EQ(report.code, code);
            ASSERT_EQ(from_bytes(facts_of(type), input.data(), input.size(), Refusing::write, &other, nullptr, nullptr),
                      code);
            EXPECT_EQ(one.text, other.text);
            EXPECT_EQ(one.text, whole.substr(0, one.text.size()));
            EXPECT_FALSE(one.was_called_again || other.was_called_again);
            ASSERT_LT(call, 100u);
        }
        EXPECT_GT(call, 10u) << name_of(format);
    }
}

// ---- Limits --------------------------------------------------------------------------------------------------------

// A type that holds itself, as no schema of the library's does, with its facts made by hand: of fields that lie one
// after the other in memory.
struct Endless {
    Endless* list;
    std::uint32_t count;
    std::uint8_t present[1];
};
struct EndlessFacts {
    vesk_type type;
    vesk_field field;
    std::uint16_t by_number[2];
    char names[16];
};
EndlessFacts endless_facts() {
    EndlessFacts facts = {};
    std::memcpy(facts.names, "endless\0again", 14);
    const auto at = [](std::size_t to, std::size_t from) { return static_cast<std::int32_t>(to - from); };
    facts.type.size = sizeof facts.type;
    facts.type.name_at = at(offsetof(EndlessFacts, names), 0);
    facts.type.unit_at = facts.type.name_at;
    facts.type.fields_at = at(offsetof(EndlessFacts, field), 0);
    facts.type.by_number_at = at(offsetof(EndlessFacts, by_number), 0);
    facts.type.structure_size = sizeof(Endless);
    facts.type.presence_offset = offsetof(Endless, present);
    facts.type.alignment = alignof(Endless);
    facts.type.field_count = 1;
    facts.type.field_size = sizeof facts.field;
    facts.type.number_count = 2;
    facts.field.name_at = at(offsetof(EndlessFacts, names) + 8, offsetof(EndlessFacts, field));
    facts.field.nested_at = -at(offsetof(EndlessFacts, field), 0);
    facts.field.tag = 1 << 3 | length_type;
    facts.field.offset = offsetof(Endless, list);
    facts.field.size_offset = offsetof(Endless, count);
    facts.field.kind = VESK_KIND_LIST;
    facts.by_number[1] = 1;
    return facts;
}

TEST(text_limits, as_many_levels_as_the_limit_are_printed_and_parsed_and_one_more_is_too_deep) {
    const EndlessFacts facts = endless_facts();
    for (const bool is_too_deep : {false, true}) {
        const int nested = VESK_TEXT_MOST_LEVELS - 1 + is_too_deep;
        std::vector<Endless> levels(static_cast<std::size_t>(nested) + 1);
        Bytes input;
        std::string text_of_levels = "{}";
        for (int level = 0; level < nested; ++level) {
            levels[static_cast<std::size_t>(level)] = {&levels[static_cast<std::size_t>(level) + 1], 1, {1}};
            input = message_field(1, input);
            text_of_levels = "{\"again\":[" + text_of_levels + "]}";
        }
        const Printed structure = print(Format::json, &facts.type, levels.data(), one_line);
        EXPECT_EQ(structure.code, is_too_deep ? std::int32_t{VESK_TEXT_TOO_DEEP} : 0);
        EXPECT_EQ(print_encoded(Format::json, &facts.type, input, one_line).code, structure.code);

        vesk_text_report report;
        report.size = sizeof report;
        Endless top;
        Ledger ledger;
        EXPECT_EQ(vesk_json_parse(&facts.type, &top, text_of_levels.data(), text_of_levels.size(), Ledger::alloc,
                                  &ledger, &report, nullptr),
                  structure.code);
        if (is_too_deep) {
            EXPECT_EQ(report.line, 1u);
            EXPECT_EQ(report.column, 1u + 10u * VESK_TEXT_MOST_LEVELS);
            EXPECT_EQ(std::string(report.path).substr(0, 18), "again[0].again[0].");
            EXPECT_EQ(ledger.requests_made(), 0u);
        } else {
            EXPECT_EQ(structure.text, text_of_levels);
        }
        ledger.forget();
    }
}

TEST(text_report, is_filled_up_to_the_size_that_its_owner_knows) {
    const vesk_inv_policy policy = {};
    vesk_text_report report;
    std::memset(&report, 0x5A, sizeof report);
    report.size = offsetof(vesk_text_report, path);
    Refusing sink{100, "", false};
    EXPECT_EQ(vesk_json_print(vesk_type_named("inv_policy"), &policy, Refusing::write, &sink, &report, nullptr), 0);
    EXPECT_EQ(report.size, offsetof(vesk_text_report, path));
    EXPECT_EQ(report.code, VESK_OK);
    EXPECT_EQ(report.line, 0u);
    EXPECT_EQ(report.path[0], 0x5A);
}

}  // namespace
}  // namespace vesk::test
