// JSON and the text format of messages of others: how each kind is printed, what is parsed and what is refused, and
// that nothing is lost on the way there and back.
#include <gtest/gtest.h>
#include <vesk/vesk_text.h>

#include <string>

#include "tests/foreign_kinds/decoded.hpp"
#include "tests/foreign_kinds/facts_by_hand.hpp"
#include "tests/foreign_kinds/random_fields.hpp"
#include "tests/foreign_kinds/type_info.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

enum class Form { json, text };

std::int32_t append(const char* text, std::size_t length, void* context) {
    static_cast<std::string*>(context)->append(text, length);
    return 0;
}

vesk_text_options one_line() {
    vesk_text_options options = vesk_default_text_options();
    options.flags = VESK_TEXT_ONE_LINE | VESK_TEXT_LOSSLESS;
    return options;
}

std::string print(Form form, const void* message) {
    const vesk_text_options options = one_line();
    std::string text;
    const auto printer = form == Form::json ? vesk_json_print : vesk_text_print;
    EXPECT_EQ(printer(foreign_facts(0), message, append, &text, nullptr, &options), VESK_OK);
    return text;
}

std::string print_encoded(Form form, const Bytes& input) {
    const vesk_text_options options = one_line();
    std::string text;
    const auto printer = form == Form::json ? vesk_json_print_encoded : vesk_text_print_encoded;
    EXPECT_EQ(printer(foreign_facts(0), input.data(), input.size(), append, &text, nullptr, &options), VESK_OK);
    return text;
}

struct Parsed {
    Parsed(Form form, const std::string& text) {
        report.size = sizeof report;
        const vesk_text_options options = one_line();
        const auto parse = form == Form::json ? vesk_json_parse : vesk_text_parse;
        parse(foreign_facts(0), &message, text.data(), text.size(), Ledger::alloc, &ledger, &report, &options);
    }
    ~Parsed() { interpreter::release(foreign_table(0), &message, Ledger::release, &ledger, 0); }
    Parsed(const Parsed&) = delete;
    Parsed& operator=(const Parsed&) = delete;

    foreign_all message;
    Ledger ledger;
    vesk_text_report report;
};

// What a text says, printed again; of one that is refused the code, the place and the reason.
std::string verdict(Form form, const std::string& text) {
    const Parsed parsed(form, text);
    if (parsed.report.code == VESK_OK) return print(form, &parsed.message);
    return std::to_string(parsed.report.code) + " " + parsed.report.path + " " + std::to_string(parsed.report.line) +
           ":" + std::to_string(parsed.report.column) + " " + parsed.report.reason;
}

const Bytes every_kind = message(
    number_field(4, 5), number_field(5, 5), number_field(6, ~std::uint64_t{0}), number_field(7, ~std::uint64_t{1}),
    tag(8, 5), hex("FFFFFFFF"), tag(9, 1), hex("FFFFFFFFFFFFFFFF"), tag(10, 5), hex("FEFFFFFF"), tag(11, 1),
    hex("FDFFFFFFFFFFFFFF"), tag(12, 5), hex("0000C03F"), tag(13, 1), hex("9A9999999999B93F"), number_field(14, 7),
    tag(15, 2), hex("020105"), number_field(17, 1), number_field(17, 0), tag(27, 1), hex("000000000000F07F"),
    tag(27, 2), hex("10 000000000000F0FF 000000000000F87F"), text_field(43, "one"), text_field(43, ""),
    text_field(44, "\x01\x02"));

TEST(foreign_json, every_kind_is_printed_as_the_mapping_says) {
    const std::string expected =
        R"({"one_sint32":-3,"one_sint64":"-3","one_int32":-1,"one_int64":"-2","one_fixed32":4294967295,)"
        R"("one_fixed64":"18446744073709551615","one_sfixed32":-2,"one_sfixed64":"-3","one_float_value":1.5,)"
        R"("one_double_value":0.1,"one_enumeration":7,"some_uint32":[1,5],"some_boolean":[true,false],)"
        R"("some_double_value":["Infinity","-Infinity","NaN"],"texts":["one",""],"blobs":["AQI="]})";
    EXPECT_EQ(print_encoded(Form::json, every_kind), expected);
    const Decoded decoded(every_kind);
    EXPECT_EQ(print(Form::json, &decoded.message), expected);
    EXPECT_EQ(verdict(Form::json, expected), expected);
}

TEST(foreign_text, every_kind_is_printed_as_protobuf_prints_it) {
    const std::string expected =
        "one_sint32: -3 one_sint64: -3 one_int32: -1 one_int64: -2 one_fixed32: 4294967295 "
        "one_fixed64: 18446744073709551615 one_sfixed32: -2 one_sfixed64: -3 one_float_value: 1.5 one_double_value: "
        "0.1 "
        "one_enumeration: 7 some_uint32: 1 some_uint32: 5 some_boolean: true some_boolean: false some_double_value: "
        "inf "
        "some_double_value: -inf some_double_value: nan texts: \"one\" texts: \"\" blobs: \"\\001\\002\"";
    EXPECT_EQ(print_encoded(Form::text, every_kind), expected);
    const Decoded decoded(every_kind);
    EXPECT_EQ(print(Form::text, &decoded.message), expected);
    EXPECT_EQ(verdict(Form::text, expected), expected);
}

TEST(foreign_text, repeated_field_takes_a_line_for_each_element) {
    const Bytes input = message(number_field(18, 1), number_field(18, 2));
    std::string text;
    EXPECT_EQ(vesk_text_print_encoded(foreign_facts(0), input.data(), input.size(), append, &text, nullptr, nullptr),
              0);
    EXPECT_EQ(text, "some_sint32: -1\nsome_sint32: 1\n");
    text.clear();
    EXPECT_EQ(vesk_json_print_encoded(foreign_facts(0), input.data(), input.size(), append, &text, nullptr, nullptr),
              0);
    EXPECT_EQ(text, "{\n  \"some_sint32\": [\n    -1,\n    1\n  ]\n}\n");
}

TEST(foreign_json, packed_field_without_an_element_is_left_out) {
    const Bytes empty = message(tag(17, 2), hex("00"));
    EXPECT_EQ(print_encoded(Form::json, empty), "{}");
    EXPECT_EQ(print_encoded(Form::json, message(empty, number_field(18, 1))), R"({"some_sint32":[-1]})");
    EXPECT_EQ(print_encoded(Form::json, message(empty, number_field(18, 1), number_field(17, 1))),
              R"({"some_boolean":[true],"some_sint32":[-1]})");
}

// More names than are kept, some longer than those that are.
TEST(foreign_json, names_of_any_length_and_number_are_printed_each_time) {
    constexpr std::uint32_t fields = 60;
    std::vector<TypeByHand> types;
    for (std::size_t type = 0; type < 2; ++type) {
        types.push_back({"long_names" + std::to_string(type), 8 + 4 * fields, 4, 0, {}});
        for (std::uint32_t number = 1; number <= fields; ++number) {
            types[type].fields.push_back({std::string(number, static_cast<char>('a' + type)), number, VESK_KIND_UINT32,
                                          8 + 4 * (number - 1), 0, -1, false});
        }
    }
    const FactsByHand facts(types);
    for (std::size_t type = 0; type < 2; ++type) {
        Bytes input;
        std::string expected[2] = {"{", "{"};
        for (std::uint32_t number = 1; number <= fields; ++number) {
            input = message(input, number_field(number, number));
            const std::string name = '"' + types[type].fields[number - 1].name + "\":";
            expected[0] += (number > 1 ? ",\n  " : "\n  ") + name + ' ' + std::to_string(number);
            expected[1] += (number > 1 ? "," : "") + name + std::to_string(number);
        }
        expected[0] += "\n}\n";
        expected[1] += "}";
        for (const bool in_one_line : {false, true}) {
            const vesk_text_options options = in_one_line ? one_line() : vesk_default_text_options();
            std::string text;
            EXPECT_EQ(
                vesk_json_print_encoded(facts.type(type), input.data(), input.size(), append, &text, nullptr, &options),
                VESK_OK);
            EXPECT_EQ(text, expected[in_one_line]);
        }
    }
}

// ---- Parsing -------------------------------------------------------------------------------------------------------

struct Row {
    std::string text;
    std::string expected;  // the verdict; empty if that is the text
};

void expect(Form form, const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        EXPECT_EQ(verdict(form, row.text), row.expected.empty() ? row.text : row.expected) << row.text;
    }
}

TEST(foreign_json, numbers_of_every_kind_are_parsed_or_refused) {
    const std::string range = " the number does not fit the field";
    expect(Form::json,
           {{R"({"one_int32":-2147483648})", ""},
            {R"({"one_int32":"-1"})", R"({"one_int32":-1})"},
            {R"({"one_int32":-1.5e1})", R"({"one_int32":-15})"},
            {R"({"one_int32":-0})", R"({"one_int32":0})"},
            {R"({"one_int32":2147483648})", "-205 one_int32 1:14" + range},
            {R"({"one_int32":-2147483649})", "-205 one_int32 1:14" + range},
            {R"({"one_sint64":"-9223372036854775808"})", ""},
            {R"({"one_sint64":9223372036854775808})", "-205 one_sint64 1:15" + range},
            {R"({"one_sint64":-9223372036854775809})", "-205 one_sint64 1:15" + range},
            {R"({"one_fixed32":4294967296})", "-205 one_fixed32 1:16" + range},
            {R"({"one_fixed64":-1})", "-205 one_fixed64 1:16" + range},
            {R"({"one_sfixed32":1.5})", "-205 one_sfixed32 1:17" + range},
            {R"({"one_enumeration":-7})", ""},
            {R"({"one_enumeration":"RED"})", "-204 one_enumeration 1:20 a string that is no number"},
            {R"({"one_double_value":1e-7})", R"({"one_double_value":1e-07})"},
            {R"({"one_double_value":"1.5"})", R"({"one_double_value":1.5})"},
            {R"({"one_double_value":-0.0})", R"({"one_double_value":-0})"},
            {R"({"one_double_value":123456789012345})", ""},
            {R"({"one_double_value":1e15})", R"({"one_double_value":1e+15})"},
            {R"({"one_double_value":5e-324})", ""},
            {R"({"one_double_value":1.7976931348623157e308})", R"({"one_double_value":1.7976931348623157e+308})"},
            {R"({"one_double_value":1e309})", "-205 one_double_value 1:21" + range},
            {R"({"one_double_value":"-Infinity"})", ""},
            {R"({"one_double_value":"inf"})", "-204 one_double_value 1:21 a string that is no number"},
            {R"({"one_double_value":".5"})", "-204 one_double_value 1:21 a string that is no number"},
            {R"({"one_float_value":3.4028235e38})", R"({"one_float_value":3.4028235e+38})"},
            {R"({"one_float_value":1e39})", "-205 one_float_value 1:20" + range},
            {R"({"one_float_value":16777217})", R"({"one_float_value":1.6777216e+07})"},
            {R"({"one_float_value":0.1})", ""},
            {R"({"one_float_value":true})", "-204 one_float_value 1:20 true or false where a number is expected"}});
}

TEST(foreign_json, repeated_fields_are_arrays) {
    expect(Form::json,
           {{R"({"packed_sint32":[1,-2]})", ""},
            {R"({"packedSint32":["1"]})", R"({"packed_sint32":[1]})"},
            {R"({"some_sint32":[]})", "{}"},
            {R"({"some_sint32":null})", "{}"},
            {R"({"some_sint32":[null]})", "-204 some_sint32[0] 1:17 null in place of an element"},
            {R"({"some_sint32":1})", "-204 some_sint32 1:16 a number where an array is expected"},
            {R"({"some_sint32":[1,[2]]})", "-204 some_sint32[1] 1:19 an array where a number is expected"},
            {R"({"some_sint32":[1,"x"]})", "-204 some_sint32[1] 1:19 a string that is no number"},
            {R"({"one_sint32":[1]})", "-204 one_sint32 1:15 an array where a number is expected"},
            {R"({"some_boolean":[1]})", "-204 some_boolean[0] 1:18 a number where true or false is expected"},
            {R"({"texts":["a",1]})", "-204 texts[1] 1:15 a number where a string is expected"},
            {R"({"texts":["a\u0000"]})", "-209 texts[0] 1:11 a string has a NUL inside"},
            {R"({"blobs":["AQI","!"]})", "-208 blobs[1] 1:17 a bytes field is not base64"},
            {R"({"texts":[{}]})", "-204 texts[0] 1:11 an object where a string is expected"},
            {R"({"some_sint32":[1],"some_sint32":[2]})", "-203 some_sint32 1:20 the field occurs a second time"},
            {R"({"inners":[{"steps":["-1","2"]},{}]})", ""}});
}

TEST(foreign_text, numbers_of_every_kind_are_parsed_or_refused) {
    const std::string range = " the number does not fit the field";
    expect(Form::text, {{"one_int32: -2147483648", ""},
                        {"one_int32: - 0x10", "one_int32: -16"},
                        {"one_int32: -010", "one_int32: -8"},
                        {"one_int32: 2147483648", "-205 one_int32 1:12" + range},
                        {"one_sint64: -9223372036854775809", "-205 one_sint64 1:13" + range},
                        {"one_fixed64: -1", "-205 one_fixed64 1:14" + range},
                        {"one_fixed32: 4294967295", ""},
                        {"one_fixed32: 4294967296", "-205 one_fixed32 1:14" + range},
                        {"one_enumeration: RED", "-204 one_enumeration 1:18 a whole number is expected"},
                        {"one_int32: 1.5", "-204 one_int32 1:12 a whole number is expected"},
                        {"one_double_value: 1.5f", "one_double_value: 1.5"},
                        {"one_double_value: .5", "one_double_value: 0.5"},
                        {"one_double_value: - INF", "one_double_value: -inf"},
                        {"one_double_value: Infinity", "one_double_value: inf"},
                        {"one_double_value: NaN", "one_double_value: nan"},
                        {"one_double_value: 010", "-204 one_double_value 1:19 a decimal number is expected"},
                        {"one_double_value: infinite", "-204 one_double_value 1:19 a decimal number is expected"},
                        {"one_double_value: 1e309", "-205 one_double_value 1:19" + range},
                        {"one_float_value: 1e39", "-205 one_float_value 1:18" + range}});
}

TEST(foreign_text, repeated_fields_may_go_on_anywhere) {
    expect(Form::text, {{"some_sint32: 1 one_int32: 2 some_sint32: 3", "one_int32: 2 some_sint32: 1 some_sint32: 3"},
                        {"some_sint32: [1, -2] some_sint32: 3", "some_sint32: 1 some_sint32: -2 some_sint32: 3"},
                        {R"(texts: ['a', "b" "c"])", R"(texts: "a" texts: "bc")"},
                        {"blobs: '\\377' texts: 'x' blobs: ''", R"(texts: "x" blobs: "\377" blobs: "")"},
                        {"some_sint32: [] one_int32: 1", "one_int32: 1"},
                        {"some_sint32 1", "-201 some_sint32 1:13 a colon is expected"},
                        {"one_int32: 1 one_int32: 2", "-203 one_int32 1:14 the field occurs a second time"},
                        {"one_int32: [1]", "-204 one_int32 1:12 a number is expected"},
                        {"some_sint32: [1 2]", "-201 some_sint32[1] 1:17 a comma or ] is expected after an element"}});
}

// ---- There and back ------------------------------------------------------------------------------------------------

TEST(foreign_documents, random_message_survives_the_way_there_and_back) {
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        const Bytes input = encoded(RandomMessage(*foreign_infos()[0], seed, Amount::wild).get());
        const Decoded decoded(input);
        ASSERT_EQ(decoded.code, VESK_OK);
        for (const Form form : {Form::json, Form::text}) {
            const std::string text = print(form, &decoded.message);
            EXPECT_EQ(print_encoded(form, input), text);
            const Parsed parsed(form, text);
            ASSERT_EQ(parsed.report.code, VESK_OK) << seed << " " << parsed.report.path << " " << parsed.report.reason;
            EXPECT_EQ(print(form, &parsed.message), text);
            // Of no number only that it is none.
            const bool has_nan = text.find(form == Form::json ? "NaN" : ": nan") != std::string::npos;
            if (has_nan) continue;
            EXPECT_EQ(to_hex(encoded(&parsed.message)), to_hex(encoded(&decoded.message))) << seed;
        }
        if (HasFailure()) return;
    }
}

TEST(foreign_documents, each_block_that_cannot_be_had_ends_the_parsing_and_leaks_nothing) {
    const std::string text = print_encoded(Form::json, every_kind);
    const std::uint64_t requests = Parsed(Form::json, text).ledger.requests_made();
    EXPECT_EQ(requests, 8u);  // five arrays, two strings, bytes
    for (std::uint64_t failing = 1; failing <= requests; ++failing) {
        Ledger ledger;
        ledger.fail_request(failing);
        foreign_all message;
        EXPECT_EQ(vesk_json_parse(foreign_facts(0), &message, text.data(), text.size(), Ledger::alloc, &ledger, nullptr,
                                  nullptr),
                  VESK_NO_MEMORY);
        interpreter::release(foreign_table(0), &message, Ledger::release, &ledger, 0);
        EXPECT_EQ(ledger.blocks_out(), 0u);
    }
}

}  // namespace
}  // namespace vesk::test
