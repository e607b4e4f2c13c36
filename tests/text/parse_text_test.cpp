// What is read of the text format, and what is wrong with other texts: each row a text, and the message that it gives,
// printed in one line, or the code, path, line and column of the error. tests/text/peers_test.cpp has the proof that
// protobuf reads the same; rows that protobuf judges in another way say so.
#include <gtest/gtest.h>
#include <vesk/client_service.h>

#include "tests/text/calls.hpp"

namespace vesk::test {
namespace {

void expect_texts(const std::vector<Row>& rows) { expect_outcomes(Format::text, rows); }

TEST(text_parse, fields_may_be_set_apart_by_blanks_commas_semicolons_and_comments) {
    expect_texts({
        {"inv_policy", "", ""},
        {"inv_policy", " # nothing\n", ""},
        {"inv_policy", "# nothing", ""},
        {"inv_policy", "f1:'a'f3:1", "f1: \"a\" f3: 1"},
        {"inv_policy", "f1:'a',f3:1,", "f1: \"a\" f3: 1"},
        {"inv_policy", "f1 : 'a' ; f3 : 1 ;", "f1: \"a\" f3: 1"},
        {"inv_policy", "f1: # one\n 'a' # two\n f3\t:\r\n1\v\f#", "f1: \"a\" f3: 1"},
        {"inv_policy", "f3:1,;", "VESK_TEXT_SYNTAX  1:6"},
        {"inv_policy", ",f3:1", "VESK_TEXT_SYNTAX  1:1"},
        {"inv_policy", "f3 1", "VESK_TEXT_SYNTAX f3 1:4"},
        {"inv_policy", "f3:", "VESK_TEXT_SYNTAX f3 1:4"},
        {"inv_policy", "f3:,", "VESK_TEXT_SYNTAX f3 1:4"},
        {"inv_policy", "f3:1}", "VESK_TEXT_SYNTAX  1:5"},
        {"inv_policy", std::string("f3:1\0", 5), "VESK_TEXT_SYNTAX  1:5"},
    });
}

TEST(text_parse, names_are_those_of_the_schema) {
    expect_texts({
        {"event_data", "contextA{}", "VESK_TEXT_UNKNOWN_NAME  1:1"},
        {"event_data", "f6: 1 f", "VESK_TEXT_UNKNOWN_NAME  1:7"},
        {"event_data", "context_a { f11: 1 }", "VESK_TEXT_UNKNOWN_NAME context_a 1:13"},
        {"event_data", "1: 2", "VESK_TEXT_SYNTAX  1:1"},
        {"event_data", "[vesk.f1]: 2", "VESK_TEXT_SYNTAX  1:1"},
    });
}

TEST(text_parse, nested_message_stands_in_braces_or_angles_with_or_without_a_colon) {
    for (const char* text : {"context_a{f1:1}", "context_a:{f1:1}", "context_a<f1:1>", "context_a : < f1 : 1 ; > ,"}) {
        expect_texts({{"event_data", text, "context_a { f1: 1 }"}});
    }
    expect_texts({
        {"event_data", "context_a {}", "context_a { }"},
        {"event_data", "context_a {", "VESK_TEXT_SYNTAX context_a 1:12"},
        {"event_data", "context_a {>", "VESK_TEXT_SYNTAX context_a 1:12"},
        {"event_data", "context_a < }", "VESK_TEXT_SYNTAX context_a 1:13"},
        {"event_data", "context_a: 1", "VESK_TEXT_WRONG_KIND context_a 1:12"},
        {"event_data", "context_a: [{}]", "VESK_TEXT_WRONG_KIND context_a 1:12"},
        {"event_data", "context_a", "VESK_TEXT_SYNTAX context_a 1:10"},
    });
}

TEST(text_parse, list_grows_by_single_elements_and_by_brackets_wherever_they_stand) {
    const char* const two = "container_eid_nodeid_list { f3: 1 } container_eid_nodeid_list { } f2: 7";
    for (const char* text :
         {"container_eid_nodeid_list{f3:1} container_eid_nodeid_list{} f2:7",
          "container_eid_nodeid_list{f3:1} f2:7 container_eid_nodeid_list{}",
          "container_eid_nodeid_list:[{f3:1},{}] f2:7", "container_eid_nodeid_list [ <f3:1> , { } ] ; f2:7",
          "f2:7 container_eid_nodeid_list:[{f3:1}] container_eid_nodeid_list:[] container_eid_nodeid_list<>"}) {
        expect_texts({{"resp_container_eid_nodeid", text, two}});
    }
    expect_texts({
        {"resp_container_eid_nodeid", "container_eid_nodeid_list: []", ""},
        {"resp_container_eid_nodeid", "container_eid_nodeid_list: [{},]",
         "VESK_TEXT_SYNTAX container_eid_nodeid_list[1] 1:32"},
        {"resp_container_eid_nodeid", "container_eid_nodeid_list: [{} {}]",
         "VESK_TEXT_SYNTAX container_eid_nodeid_list[1] 1:32"},
        {"resp_container_eid_nodeid", "container_eid_nodeid_list {} container_eid_nodeid_list { f3: x }",
         "VESK_TEXT_WRONG_KIND container_eid_nodeid_list[1].f3 1:62"},
        {"inv_policy", "f3: [1]", "VESK_TEXT_WRONG_KIND f3 1:5"},
    });
}

TEST(text_parse, list_with_other_fields_between_its_elements_is_asked_for_once) {
    const Parsed parsed(Format::text, type_named("resp_container_eid_nodeid"),
                        "container_eid_nodeid_list{f2:'a'} f2:1 container_eid_nodeid_list{f2:'bc'} f3:1 "
                        "container_eid_nodeid_list{}");
    const std::vector<Request> expected{{Request::What::alloc, 3 * sizeof(vesk_container_eid_nodeid_data)},
                                        {Request::What::alloc, 2},
                                        {Request::What::alloc, 3}};
    EXPECT_EQ(parsed.ledger.history(), expected);
}

TEST(text_parse, repeated_field_is_an_error_unless_it_is_a_list) {
    expect_texts({
        {"inv_policy", "f3:1 f3:1", "VESK_TEXT_REPEATED f3 1:6"},
        {"event_data", "context_a{} context_a{}", "VESK_TEXT_REPEATED context_a 1:13"},
    });
}

TEST(text_parse, numbers_are_decimal_hexadecimal_or_octal) {
    expect_texts({
        {"inv_policy", "f3:0x1F", "f3: 31"},
        {"inv_policy", "f3:0XfF", "f3: 255"},
        {"inv_policy", "f3:017", "f3: 15"},
        {"inv_policy", "f3:0", "f3: 0"},
        {"inv_policy", "f3:00", "f3: 0"},
        {"inv_policy", "f3:4294967295", "f3: 4294967295"},
        {"event_data", "f6:0xFFFFFFFFFFFFFFFF", "f6: 18446744073709551615"},
        {"event_data", "f6:01777777777777777777777", "f6: 18446744073709551615"},
        {"inv_policy", "f3:4294967296", "VESK_TEXT_OUT_OF_RANGE f3 1:4"},
        {"inv_policy", "f3:0x100000000", "VESK_TEXT_OUT_OF_RANGE f3 1:4"},
        {"event_data", "f6:18446744073709551616", "VESK_TEXT_OUT_OF_RANGE f6 1:4"},
        {"event_data", "f6:99999999999999999999999", "VESK_TEXT_OUT_OF_RANGE f6 1:4"},
        {"inv_policy", "f3:-1", "VESK_TEXT_OUT_OF_RANGE f3 1:4"},
    });
    for (const char* bad : {"08", "1.0", "1e3", "0x", "0xg", "1f1", "one", "'1'", "{}", "true"}) {
        EXPECT_EQ(outcome(Format::text, {"inv_policy", "f3:" + std::string(bad), ""}), "VESK_TEXT_WRONG_KIND f3 1:4")
            << bad;
    }
}

TEST(text_parse, flags_have_their_words_and_0_and_1) {
    for (const char* yes : {"true", "True", "t", "1", "0x1", "01"}) {
        EXPECT_EQ(outcome(Format::text, {"req_container_eid_nodeid", "f3:" + std::string(yes), ""}), "f3: true") << yes;
    }
    for (const char* no : {"false", "False", "f", "0", "0x0", "00"}) {
        EXPECT_EQ(outcome(Format::text, {"req_container_eid_nodeid", "f3:" + std::string(no), ""}), "f3: false") << no;
    }
    expect_texts({
        {"req_container_eid_nodeid", "f3:2", "VESK_TEXT_OUT_OF_RANGE f3 1:4"},
        {"req_container_eid_nodeid", "f3:TRUE", "VESK_TEXT_WRONG_KIND f3 1:4"},
        {"req_container_eid_nodeid", "f3:'true'", "VESK_TEXT_WRONG_KIND f3 1:4"},
    });
}

TEST(text_parse, strings_have_either_quotes_and_are_joined) {
    expect_texts({
        {"inv_policy", R"(f1:"it's")", R"(f1: "it\'s")"},
        {"inv_policy", R"(f1:'say "x"')", R"(f1: "say \"x\"")"},
        {"inv_policy", "f1:'a' \"b\"\n#c\n'd' f3:1", R"(f1: "abd" f3: 1)"},
        {"inv_policy", "f1:'' ''", R"(f1: "")"},
        {"inv_policy", "f1:a", "VESK_TEXT_WRONG_KIND f1 1:4"},
        {"inv_policy", "f1:5", "VESK_TEXT_WRONG_KIND f1 1:4"},
        {"inv_policy", "f1:'a", "VESK_TEXT_SYNTAX f1 1:6"},
        {"inv_policy", "f1:'a\n'", "VESK_TEXT_SYNTAX f1 1:6"},
        {"inv_policy", "f1:'a\"", "VESK_TEXT_SYNTAX f1 1:7"},
        {"inv_policy", std::string("f1:'a\0'", 7), "VESK_TEXT_SYNTAX f1 1:6"},
    });
}

TEST(text_parse, escapes_say_any_byte_and_any_character) {
    expect_texts({
        {"scratch_eeprom", R"(f2:'\a\b\f\n\r\t\v\\\?\'\"')", R"(f2: "\007\010\014\n\r\t\013\\?\'\"")"},
        {"scratch_eeprom", R"(f2:'\0\1\12\123\1234\3778\400')", R"(f2: "\000\001\nSS4\3778\000")"},
        {"scratch_eeprom", R"(f2:'\x4\x4A\x4ab\Xff')", R"(f2: "\004JJb\377")"},
        {"scratch_eeprom", R"(f2:'\u0041\u00e9\U0001F600\ud83d\ude00\uffff')",
         R"(f2: "A\303\251\360\237\230\200\360\237\230\200\357\277\277")"},
        {"inv_policy", R"(f1:'\377')", R"(f1: "\377")"},
        {"inv_policy", R"(f1:'\000')", "VESK_TEXT_NUL f1 1:4"},
        {"inv_policy", R"(f1:'a\q')", "VESK_TEXT_SYNTAX f1 1:6"},
        {"inv_policy", R"(f1:'a\8')", "VESK_TEXT_SYNTAX f1 1:6"},
        {"inv_policy", R"(f1:'a\xg')", "VESK_TEXT_SYNTAX f1 1:6"},
        {"inv_policy", R"(f1:'a\u123')", "VESK_TEXT_SYNTAX f1 1:6"},
        {"inv_policy", R"(f1:'a\U0001F60')", "VESK_TEXT_SYNTAX f1 1:6"},
        {"inv_policy", R"(f1:'a\U00110000')", "VESK_TEXT_SYNTAX f1 1:6"},
        {"inv_policy", R"(f1:'a\)", "VESK_TEXT_SYNTAX f1 1:6"},
        // Protobuf takes these and makes a string that is not UTF-8 of them.
        {"inv_policy", R"(f1:'a\ud83d')", "VESK_TEXT_NOT_UTF8 f1 1:6"},
        {"inv_policy", R"(f1:'a\ude00')", "VESK_TEXT_NOT_UTF8 f1 1:6"},
        {"inv_policy", R"(f1:'a\ud83d\u0041')", "VESK_TEXT_NOT_UTF8 f1 1:6"},
    });
}

TEST(text_parse, error_has_the_line_and_the_column_of_its_first_byte) {
    expect_texts({
        {"event_data", "f4: 'a'\ncontext_a {\n  f2: x\n}", "VESK_TEXT_WRONG_KIND context_a.f2 3:7"},
        {"event_data", "f4: '\xC3\xA9' f9: 1", "VESK_TEXT_UNKNOWN_NAME  1:10"},
    });
}

}  // namespace
}  // namespace vesk::test
