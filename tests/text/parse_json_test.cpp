// What is read of a JSON text, and what is wrong with the others: each row a text, and the message that it gives,
// printed in one line, or the code, path, line and column of the error.
#include <gtest/gtest.h>
#include <vesk/client_service.h>

#include "tests/text/calls.hpp"

namespace vesk::test {
namespace {

void expect_outcomes(const std::vector<Row>& rows, std::uint32_t flags = 0) {
    expect_outcomes(Format::json, rows, flags);
}

// ---- Names ---------------------------------------------------------------------------------------------------------

TEST(json_parse, field_is_named_as_in_the_schema_or_in_camel_case) {
    expect_outcomes({
        {"event_data", R"({"context_a":{"f1":1},"contextB":{"f2":2}})",
         R"({"context_a":{"f1":1},"context_b":{"f2":2}})"},
        {"resp_container_eid_nodeid", R"({"containerEidNodeidList":[{"f3":1}]})",
         R"({"container_eid_nodeid_list":[{"f3":1}]})"},
        {"event_data", R"({"\u0063ontext_a":{}})", R"({"context_a":{}})"},
        {"event_data", R"({"contexta":{}})", "VESK_TEXT_UNKNOWN_NAME  1:2"},
        {"event_data", R"({"context_A":{}})", "VESK_TEXT_UNKNOWN_NAME  1:2"},
        {"event_data", R"({"ContextA":{}})", "VESK_TEXT_UNKNOWN_NAME  1:2"},
        {"event_data", R"({"context_":{}})", "VESK_TEXT_UNKNOWN_NAME  1:2"},
        {"event_data", R"({"context_aa":{}})", "VESK_TEXT_UNKNOWN_NAME  1:2"},
        {"event_data", R"({"":{}})", "VESK_TEXT_UNKNOWN_NAME  1:2"},
        {"event_data", R"({"f4\u0000":""})", "VESK_TEXT_UNKNOWN_NAME  1:2"},
    });
}

TEST(json_parse, unknown_name_is_quoted_in_the_reason_in_one_line) {
    const auto reason = [](std::string_view text) {
        return std::string(Parsed(Format::json, type_named("inv_policy"), text).report.reason);
    };
    EXPECT_EQ(reason(R"({"voltage":1})"), "no field of this name: \"voltage\"");
    EXPECT_EQ(reason(R"({"a\nb":1})"), "no field of this name: \"a?b\"");
    EXPECT_EQ(reason("{\"" + std::string(39, 'x') + "\xC3\xA9z\":1}"),
              "no field of this name: \"" + std::string(39, 'x') + "...\"");
}

TEST(json_parse, repeated_key_is_an_error_also_in_the_other_spelling_and_after_null) {
    expect_outcomes({
        {"inv_policy", R"({"f3":1,"f3":1})", "VESK_TEXT_REPEATED f3 1:9"},
        {"inv_policy", R"({"f3":null,"f3":1})", "VESK_TEXT_REPEATED f3 1:12"},
        {"event_data", R"({"context_a":{},"contextA":{}})", "VESK_TEXT_REPEATED context_a 1:17"},
        {"resp_container_eid_nodeid", R"({"container_eid_nodeid_list":[],"containerEidNodeidList":[]})",
         "VESK_TEXT_REPEATED container_eid_nodeid_list 1:33"},
    });
}

// ---- Presence ------------------------------------------------------------------------------------------------------

TEST(json_parse, named_field_is_present_whatever_its_value) {
    expect_outcomes({
        {"scratch_eeprom", R"({"f1":"","f2":"","f3":0})", R"({"f1":"","f2":"","f3":0})"},
        {"req_container_eid_nodeid", R"({"eid":{},"f3":false})", R"({"eid":{},"f3":false})"},
        {"inv_policy", " \t\r\n{ }\n", "{}"},
    });
    const Parsed parsed(Format::json, type_named("req_container_eid_nodeid"), R"({"eid":{},"f3":false})");
    EXPECT_TRUE(is_present(parsed.type, parsed.message.get(), 0));
    EXPECT_FALSE(is_present(parsed.type, parsed.message.get(), 1));
    EXPECT_TRUE(is_present(parsed.type, parsed.message.get(), 2));
}

TEST(json_parse, null_and_a_list_without_elements_are_absent) {
    const Parsed parsed(Format::json, type_named("resp_container_eid_nodeid"),
                        R"({"container_eid_nodeid_list":[],"f2":null})");
    EXPECT_EQ(parsed.code, VESK_OK);
    EXPECT_TRUE(is_clear(parsed.type, parsed.message.get()));
    expect_outcomes({
        {"resp_container_eid_nodeid", R"({"container_eid_nodeid_list":null})", "{}"},
        {"event_data", R"({"eid":null,"f4":null,"f6":null})", "{}"},
        {"resp_container_eid_nodeid", R"({"container_eid_nodeid_list":[{},null]})",
         "VESK_TEXT_WRONG_KIND container_eid_nodeid_list[1] 1:34"},
    });
}

// ---- Values --------------------------------------------------------------------------------------------------------

TEST(json_parse, numbers_are_whole_and_in_range_however_they_are_written) {
    for (const char* good : {"1000", "1e3", "1E3", "1e+3", "1000.0", "1000.000", "10.00e2", "0.001e6", "100000e-2",
                             "1000e0", "1.0e3", "1000e-0", "0.000000000000000000000000000001e33"}) {
        for (const std::string& text : {std::string(good), '"' + std::string(good) + '"'}) {
            expect_outcomes({{"inv_policy", "{\"f3\":" + text + "}", R"({"f3":1000})"},
                             {"event_data", "{\"f6\":" + text + "}", R"({"f6":"1000"})"}});
        }
    }
    expect_outcomes({
        {"inv_policy", R"({"f3":4294967295})", R"({"f3":4294967295})"},
        {"inv_policy", R"({"f3":0})", R"({"f3":0})"},
        {"inv_policy", R"({"f3":-0})", R"({"f3":0})"},
        {"inv_policy", R"({"f3":0e300})", R"({"f3":0})"},
        {"inv_policy", R"({"f3":0.0e-9})", R"({"f3":0})"},
        {"inv_policy", R"({"f3":"0e99999999999999999999"})", R"({"f3":0})"},
        {"event_data", R"({"f6":18446744073709551615})", R"({"f6":"18446744073709551615"})"},
        {"event_data", R"({"f6":"1844674407370955161.5e1"})", R"({"f6":"18446744073709551615"})"},
        {"event_data", R"({"f6":9007199254740993})", R"({"f6":"9007199254740993"})"},
        {"event_data", R"({"f6":1e19})", R"({"f6":"10000000000000000000"})"},
    });
    for (const char* bad : {"4294967296", "-1", "1.5", "1e-1", "1e10", "1e400", "-1e400", "0.1", "1e-400",
                            "99999999999999999999", "1e99999999999999999999", "1e-99999999999999999999"}) {
        for (const std::string& text : {std::string(bad), '"' + std::string(bad) + '"'}) {
            const Parsed parsed(Format::json, type_named("inv_policy"), "{\"f3\":" + text + "}");
            EXPECT_EQ(parsed.code, VESK_TEXT_OUT_OF_RANGE) << text;
            EXPECT_EQ(std::string(parsed.report.path), "f3");
        }
    }
    expect_outcomes({
        {"event_data", R"({"f6":18446744073709551616})", "VESK_TEXT_OUT_OF_RANGE f6 1:7"},
        {"event_data", R"({"f6":1e20})", "VESK_TEXT_OUT_OF_RANGE f6 1:7"},
        {"event_data", R"({"f6":"-1"})", "VESK_TEXT_OUT_OF_RANGE f6 1:7"},
    });
}

TEST(json_parse, string_for_a_number_must_be_a_json_number) {
    for (const char* bad :
         {"", " 1", "1 ", "01", "+1", "0x10", "1.", ".5", "1e", "1e+", "one", "1_000", "-", "1\\u0000"}) {
        EXPECT_EQ(outcome(Format::json, {"inv_policy", "{\"f3\":\"" + std::string(bad) + "\"}", ""}),
                  "VESK_TEXT_WRONG_KIND f3 1:7")
            << bad;
    }
}

TEST(json_parse, bytes_are_base64_of_both_alphabets_with_or_without_padding) {
    expect_outcomes({
        {"scratch_eeprom", R"({"f2":"+/8A"})", R"({"f2":"+/8A"})"},
        {"scratch_eeprom", R"({"f2":"-_8A"})", R"({"f2":"+/8A"})"},
        {"scratch_eeprom", R"({"f2":"+w=="})", R"({"f2":"+w=="})"},
        {"scratch_eeprom", R"({"f2":"-w"})", R"({"f2":"+w=="})"},
        {"scratch_eeprom", R"({"f2":"+\/8="})", R"({"f2":"+/8="})"},
        {"scratch_eeprom", R"({"f2":"+_8"})", R"({"f2":"+/8="})"},
        {"scratch_eeprom", R"({"f2":""})", R"({"f2":""})"},
    });
    for (const char* bad :
         {"A", "AAAAA", "=", "==", "A=", "AA=", "A===", "AAA==", "AA==AA==", "AA A", "A*AA", "AAA=A", "\\u00e9AA"}) {
        EXPECT_EQ(outcome(Format::json, {"scratch_eeprom", "{\"f2\":\"" + std::string(bad) + "\"}", ""}),
                  "VESK_TEXT_NOT_BASE64 f2 1:7")
            << bad;
    }
}

TEST(json_parse, value_of_another_kind_is_an_error_where_it_begins) {
    expect_outcomes({
        {"inv_policy", R"({"f1": 1})", "VESK_TEXT_WRONG_KIND f1 1:8"},
        {"inv_policy", R"({"f1": true})", "VESK_TEXT_WRONG_KIND f1 1:8"},
        {"inv_policy", R"({"f1": {}})", "VESK_TEXT_WRONG_KIND f1 1:8"},
        {"inv_policy", R"({"f1": ["a"]})", "VESK_TEXT_WRONG_KIND f1 1:8"},
        {"inv_policy", R"({"f3": false})", "VESK_TEXT_WRONG_KIND f3 1:8"},
        {"inv_policy", R"({"f3": [1]})", "VESK_TEXT_WRONG_KIND f3 1:8"},
        {"scratch_eeprom", R"({"f2": 5})", "VESK_TEXT_WRONG_KIND f2 1:8"},
        {"req_container_eid_nodeid", R"({"f3": 1})", "VESK_TEXT_WRONG_KIND f3 1:8"},
        {"req_container_eid_nodeid", R"({"f3": "true"})", "VESK_TEXT_WRONG_KIND f3 1:8"},
        {"event_data", R"({"eid": []})", "VESK_TEXT_WRONG_KIND eid 1:9"},
        {"event_data", R"({"eid": "x"})", "VESK_TEXT_WRONG_KIND eid 1:9"},
        {"resp_container_eid_nodeid", R"({"container_eid_nodeid_list": {}})",
         "VESK_TEXT_WRONG_KIND container_eid_nodeid_list 1:31"},
        {"resp_container_eid_nodeid", R"({"container_eid_nodeid_list": [{}, []]})",
         "VESK_TEXT_WRONG_KIND container_eid_nodeid_list[1] 1:36"},
        {"resp_container_eid_nodeid", R"({"container_eid_nodeid_list": [1]})",
         "VESK_TEXT_WRONG_KIND container_eid_nodeid_list[0] 1:32"},
        {"inv_policy", "[]", "VESK_TEXT_WRONG_KIND  1:1"},
        {"inv_policy", " null", "VESK_TEXT_WRONG_KIND  1:2"},
        {"inv_policy", "5", "VESK_TEXT_WRONG_KIND  1:1"},
        {"inv_policy", "\"x\"", "VESK_TEXT_WRONG_KIND  1:1"},
        {"inv_policy", "true", "VESK_TEXT_WRONG_KIND  1:1"},
    });
    EXPECT_EQ(std::string(Parsed(Format::json, type_named("inv_policy"), R"({"f1":1})").report.reason),
              "a number where a string is expected");
}

// ---- Strings -------------------------------------------------------------------------------------------------------

TEST(json_parse, escapes_and_surrogate_pairs_are_decoded) {
    expect_outcomes({
        {"inv_policy", R"({"f1":"\"\\\/\b\f\n\r\tA"})", R"({"f1":"\"\\/\b\f\n\r\tA"})"},
        {"inv_policy", R"({"f1":"\u00e9\u20ac\ud83d\ude00"})", "{\"f1\":\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"}"},
        {"inv_policy", R"({"f1":"\uD83D\uDE00\u0041"})", "{\"f1\":\"\xF0\x9F\x98\x80\x41\"}"},
        {"inv_policy", "{\"f1\":\"\xF0\x9F\x98\x80\xED\x9F\xBF\"}", "{\"f1\":\"\xF0\x9F\x98\x80\xED\x9F\xBF\"}"},
    });
}

TEST(json_parse, half_of_a_surrogate_pair_is_an_error) {
    for (const char* bad : {"\\ud83d", "\\ud83dx", "\\ud83d\\n", "\\ud83d\\u0041", "\\ud83d\\ud83d", "\\ude00",
                            "\\ude00\\ud83d", "\\udc80"}) {
        const Parsed parsed(Format::json, type_named("inv_policy"), R"({"f1":")" + std::string(bad) + "\"}");
        EXPECT_EQ(parsed.code, VESK_TEXT_NOT_UTF8) << bad;
        EXPECT_EQ(std::string(parsed.report.path), "f1");
        EXPECT_EQ(parsed.ledger.requests_made(), 0u);
    }
}

TEST(json_parse, lossless_halves_become_bytes_if_asked_for) {
    const Bytes strange = text_field(1, "a\xFFz\x80\xC3\xA9\xC3\xED\xB2\x80\xED\xA0\x80");
    const Printed printed = print_encoded(Format::json, vesk_type_named("inv_policy"), strange, VESK_TEXT_LOSSLESS);
    const Parsed parsed(Format::json, type_named("inv_policy"), printed.text, VESK_TEXT_LOSSLESS);
    EXPECT_EQ(parsed.code, VESK_OK);
    EXPECT_EQ(to_hex(encoded(parsed.type, parsed.message.get())), to_hex(strange));
    expect_outcomes(
        {
            {"inv_policy", R"({"f1":"\ude00"})", "VESK_TEXT_NOT_UTF8 f1 1:7"},
            {"inv_policy", R"({"f1":"\udc7f"})", "VESK_TEXT_NOT_UTF8 f1 1:7"},
            {"inv_policy", R"({"f1":"\udd00"})", "VESK_TEXT_NOT_UTF8 f1 1:7"},
            {"inv_policy", R"({"f1":"\ud83d\udc80"})", "{\"f1\":\"\xF0\x9F\x92\x80\"}"},
        },
        VESK_TEXT_LOSSLESS);
}

TEST(json_parse, nul_in_a_string_is_an_error_since_a_structure_cannot_hold_it) {
    expect_outcomes({
        {"inv_policy", R"({"f1":"a\u0000b"})", "VESK_TEXT_NUL f1 1:7"},
        {"scratch_eeprom", R"({"f2":"AAAA"})", R"({"f2":"AAAA"})"},
    });
}

// ---- The text ------------------------------------------------------------------------------------------------------

TEST(json_parse, text_that_is_not_utf8_is_an_error_at_its_first_wrong_byte) {
    expect_outcomes({
        {"inv_policy", "{\"f1\":\"\xFF\"}", "VESK_TEXT_NOT_UTF8  1:8"},
        {"inv_policy", "{\"f1\":\"abcdefghijk\n\xED\xA0\x80\"}", "VESK_TEXT_NOT_UTF8  2:1"},
        {"inv_policy", "{\"f1\":\"\xC3", "VESK_TEXT_NOT_UTF8  1:8"},
    });
}

TEST(json_parse, byte_order_mark_is_no_json) {
    expect_outcomes({{"inv_policy", "\xEF\xBB\xBF{}", "VESK_TEXT_SYNTAX  1:1"}});
    EXPECT_EQ(std::string(Parsed(Format::json, type_named("inv_policy"), "\xEF\xBB\xBF{}").report.reason),
              "a byte order mark");
}

TEST(json_parse, what_is_no_json_is_an_error_where_it_stands) {
    using namespace std::string_literals;
    expect_outcomes({
        {"inv_policy", "", "VESK_TEXT_SYNTAX  1:1"},
        {"inv_policy", "  \n ", "VESK_TEXT_SYNTAX  2:2"},
        {"inv_policy", "{", "VESK_TEXT_SYNTAX  1:2"},
        {"inv_policy", "{}x", "VESK_TEXT_SYNTAX  1:3"},
        {"inv_policy", "{} {}", "VESK_TEXT_SYNTAX  1:4"},
        {"inv_policy", "{}\0"s, "VESK_TEXT_SYNTAX  1:3"},
        {"inv_policy", "{}\0{}"s, "VESK_TEXT_SYNTAX  1:3"},
        {"inv_policy", "{\"f1\":\"a\0b\"}"s, "VESK_TEXT_SYNTAX f1 1:9"},
        {"inv_policy", "{\"f3\":1,}", "VESK_TEXT_SYNTAX  1:9"},
        {"inv_policy", "{\"f3\" 1}", "VESK_TEXT_SYNTAX f3 1:7"},
        {"inv_policy", "{\"f3\":}", "VESK_TEXT_SYNTAX f3 1:7"},
        {"inv_policy", "{\"f3\":01}", "VESK_TEXT_SYNTAX  1:8"},
        {"inv_policy", "{\"f3\":+1}", "VESK_TEXT_SYNTAX f3 1:7"},
        {"inv_policy", "{\"f3\":NaN}", "VESK_TEXT_SYNTAX f3 1:7"},
        {"inv_policy", "{\n  \"f3\": 1\n  \"f1\": 2\n}", "VESK_TEXT_SYNTAX  3:3"},
        {"inv_policy", "{f3:1}", "VESK_TEXT_SYNTAX  1:2"},
        {"inv_policy", "{'f3':1}", "VESK_TEXT_SYNTAX  1:2"},
        {"inv_policy", "{\"f1\":'x'}", "VESK_TEXT_SYNTAX f1 1:7"},
        {"inv_policy", "{\"f3\":1/*x*/}", "VESK_TEXT_SYNTAX  1:8"},
        {"inv_policy", "{\"f1\":\"a\nb\"}", "VESK_TEXT_SYNTAX f1 1:9"},
        {"inv_policy", R"({"f1":"\x41"})", "VESK_TEXT_SYNTAX f1 1:8"},
        {"inv_policy", R"({"f1":"\u12g4"})", "VESK_TEXT_SYNTAX f1 1:8"},
        {"inv_policy", R"({"f1":"open)", "VESK_TEXT_SYNTAX f1 1:12"},
        {"resp_container_eid_nodeid", R"({"container_eid_nodeid_list":[{},]})",
         "VESK_TEXT_SYNTAX container_eid_nodeid_list[1] 1:34"},
        {"resp_container_eid_nodeid", R"({"container_eid_nodeid_list":[{}})",
         "VESK_TEXT_SYNTAX container_eid_nodeid_list[1] 1:33"},
    });
}

TEST(json_parse, error_inside_a_list_has_the_path_of_its_element) {
    expect_outcomes({
        {"resp_container_eid_nodeid",
         "{\"container_eid_nodeid_list\": [\n  {},\n  {\"f2\": \"x\", \"eid\": {\"f1\": -1}}\n]}",
         "VESK_TEXT_OUT_OF_RANGE container_eid_nodeid_list[1].eid.f1 3:29"},
        {"resp_container_eid_nodeid", R"({"container_eid_nodeid_list":[{"eid":{"element_list":[{},{"f9":1}]}}]})",
         "VESK_TEXT_UNKNOWN_NAME container_eid_nodeid_list[0].eid.element_list[1] 1:59"},
    });
}

TEST(json_parse, identifier_by_itself_is_a_type_like_any_other) {
    const vesk_type* const type = vesk_type_named("drin_eid_st");
    ASSERT_NE(type, nullptr);
    const std::string text = R"({"f1":1,"element_list":[{"f1":2},{}]})";
    vesk_drin_eid_st eid;
    Ledger ledger;
    ASSERT_EQ(vesk_json_parse(type, &eid, text.data(), text.size(), Ledger::alloc, &ledger, nullptr, nullptr), VESK_OK);
    EXPECT_EQ(eid.element_list_count, 2u);
    EXPECT_EQ(print(Format::json, type, &eid, VESK_TEXT_ONE_LINE).text, text);
    vesk_drin_eid_st_free_ext(&eid, Ledger::release, &ledger, 0);
}

}  // namespace
}  // namespace vesk::test
