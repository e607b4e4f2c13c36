// Random messages of every type, exchanged with protobuf in both formats and both directions: libprotobuf's json_util
// and TextFormat read what the library prints, and the other way round.
//
// A failure names the type and the seed. VESK_TEST_ROUNDS in the environment sets the rounds per type.
#include "tests/interop/peers.hpp"

#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>

#include "tests/support/random_message.hpp"
#include "tests/text/calls.hpp"

namespace vesk::test {
namespace {

namespace pb = google::protobuf;

Amount amount_of(std::uint64_t seed) {
    if (seed % 16 == 0) return Amount::much;
    return seed % 2 == 0 ? Amount::some : Amount::wild;
}

// Strings made UTF-8 without a NUL, as JSON and a structure want them; bytes fields stay.
Record with_utf8(const TypeInfo& type, Record record) {
    for (const FieldInfo& field : type.fields) {
        const auto found = record.values.find(field.number);
        if (found == record.values.end()) continue;
        if (field.kind == Kind::string) {
            for (char& character : found->second.text) {
                character = (character & 0x7F) != 0 ? static_cast<char>(character & 0x7F) : '?';
            }
            found->second.text += "\xC3\xA9\xF0\x9F\x98\x80";
        }
        for (Record& nested : found->second.records) nested = with_utf8(*field.nested, nested);
    }
    return record;
}

// A message as protobuf holds it, as the library encodes it, and decoded by the library.
struct Both {
    Both(const TypeInfo& type, const Record& record)
        : theirs(new_message(type.name)), bytes(encoded(type, record, Order::declared)), ours(type, bytes) {
        set_values(record, *theirs);
    }
    std::unique_ptr<pb::Message> theirs;
    Bytes bytes;
    AnyDecoded ours;
};

void for_every_type(const std::function<void(const TypeInfo& type, const Both& both)>& check) {
    std::uint64_t seed = 0;
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t i = rounds(); i != 0; --i) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(++seed));
            const RandomMessage message(*type, seed, amount_of(seed));
            const Both both(*type, with_utf8(*type, written_values(*type, message.get())));
            ASSERT_EQ(both.ours.code, VESK_OK);
            check(*type, both);
            if (::testing::Test::HasFailure()) return;
        }
    }
}

std::string json_by_protobuf(const pb::Message& message, bool with_schema_names = true) {
    pb::util::JsonPrintOptions options;
    options.preserve_proto_field_names = with_schema_names;
    std::string text;
    EXPECT_TRUE(pb::util::MessageToJsonString(message, &text, options).ok());
    return text;
}

std::string text_by_protobuf(const pb::Message& message) {
    pb::TextFormat::Printer printer;
    printer.SetPrintMessageFieldsInIndexOrder(true);
    std::string text;
    EXPECT_TRUE(printer.PrintToString(message, &text));
    return text;
}

TEST(text_peers, json_util_reads_what_is_printed_and_prints_the_same_values) {
    for_every_type([](const TypeInfo& type, const Both& both) {
        for (const std::uint32_t flags : {0u, std::uint32_t{VESK_TEXT_ONE_LINE}}) {
            const Printed printed = print(Format::json, facts_of(type), both.ours.message.get(), flags);
            ASSERT_EQ(printed.code, VESK_OK) << printed.reason;
            const auto received = new_message(type.name);
            ASSERT_TRUE(pb::util::JsonStringToMessage(printed.text, received.get()).ok()) << printed.text;
            ASSERT_EQ(to_hex(serialized(*received)), to_hex(serialized(*both.theirs))) << printed.text;
            EXPECT_EQ(nlohmann::json::parse(printed.text), nlohmann::json::parse(json_by_protobuf(*both.theirs)));
        }
    });
}

TEST(text_peers, text_format_is_printed_to_the_letter) {
    for_every_type([](const TypeInfo& type, const Both& both) {
        const Printed printed = print(Format::text, facts_of(type), both.ours.message.get());
        ASSERT_EQ(printed.code, VESK_OK) << printed.reason;
        EXPECT_EQ(printed.text, text_by_protobuf(*both.theirs));

        const auto received = new_message(type.name);
        const Printed line = print(Format::text, facts_of(type), both.ours.message.get(), VESK_TEXT_ONE_LINE);
        ASSERT_TRUE(pb::TextFormat::ParseFromString(line.text, received.get())) << line.text;
        EXPECT_EQ(to_hex(serialized(*received)), to_hex(serialized(*both.theirs))) << line.text;
    });
}

TEST(text_peers, what_json_util_prints_is_parsed) {
    for_every_type([](const TypeInfo& type, const Both& both) {
        for (const bool with_schema_names : {true, false}) {
            const std::string text = json_by_protobuf(*both.theirs, with_schema_names);
            const Parsed parsed(Format::json, type, text);
            ASSERT_EQ(parsed.code, VESK_OK) << text << parsed.report.reason;
            EXPECT_EQ(to_hex(encoded(type, parsed.message.get())), to_hex(both.bytes)) << text;
        }
    });
}

TEST(text_peers, what_text_format_prints_is_parsed) {
    for_every_type([](const TypeInfo& type, const Both& both) {
        for (const std::string& text :
             {both.theirs->DebugString(), both.theirs->ShortDebugString(), both.theirs->Utf8DebugString()}) {
            const Parsed parsed(Format::text, type, text);
            ASSERT_EQ(parsed.code, VESK_OK) << text << parsed.report.reason;
            EXPECT_EQ(to_hex(encoded(type, parsed.message.get())), to_hex(both.bytes)) << text;
        }
    });
}

// The rows of docs/text.md.
TEST(text_peers, protobuf_reads_otherwise_what_the_page_lists) {
    struct Row {
        Format format;
        const char* type;
        const char* text;
        std::int32_t code;  // of ours
        bool theirs;        // whether protobuf reads it
    };
    const std::string line_feed = "{\"f5\":\"a\nb\"}";
    const Row rows[] = {
        {Format::json, "led_data", R"({"f3":1,"f3":2})", VESK_TEXT_REPEATED, true},
        {Format::json, "led_data", R"({"entity_common":{},"entityCommon":{}})", VESK_TEXT_REPEATED, true},
        {Format::json, "led_data", R"({"f5":'text'})", VESK_TEXT_SYNTAX, true},
        {Format::json, "led_data", R"({f3:1})", VESK_TEXT_SYNTAX, true},
        {Format::json, "led_data", R"({"f3":1,})", VESK_TEXT_SYNTAX, true},
        {Format::json, "led_data", R"({"f3":5.})", VESK_TEXT_SYNTAX, true},
        {Format::json, "led_data", line_feed.c_str(), VESK_TEXT_SYNTAX, true},
        {Format::json, "resp_container_eid_nodeid", R"({"container_eid_nodeid_list":[null]})", VESK_TEXT_WRONG_KIND,
         true},
        {Format::json, "resp_container_eid_nodeid", R"({"container_eid_nodeid_list":{}})", VESK_TEXT_WRONG_KIND, true},
        {Format::json, "resp_container_eid_nodeid", R"({"container_eid_nodeid_list":[[{}]]})", VESK_TEXT_WRONG_KIND,
         true},
        {Format::json, "led_data", R"({"f3":"1e3"})", VESK_OK, false},
        {Format::json, "led_data", R"({"f3":"1.0"})", VESK_OK, false},
        {Format::json, "led_data", R"({"f3":"-0"})", VESK_OK, false},
        {Format::json, "led_data", R"({"entity_common":{"f20":18446744073709551615.0}})", VESK_OK, false},
        {Format::json, "led_data", R"({"f3":"007"})", VESK_TEXT_WRONG_KIND, true},
        {Format::json, "led_data", R"({"f3":"+1"})", VESK_TEXT_WRONG_KIND, true},
        {Format::json, "led_data", R"({"f3":0e309})", VESK_TEXT_OUT_OF_RANGE, true},
        {Format::json, "led_data", R"({"f3":1e-400})", VESK_TEXT_OUT_OF_RANGE, true},
        {Format::json, "led_data", R"({"entity_common":{"f6":"true"}})", VESK_TEXT_WRONG_KIND, true},
        {Format::json, "scratch_eeprom", R"({"f2":"AB=="})", VESK_OK, false},
        {Format::json, "scratch_eeprom", R"({"f2":"+_-/"})", VESK_OK, false},
        {Format::json, "led_data", R"({"f5":"a\u0000b"})", VESK_TEXT_NUL, true},
        {Format::text, "led_data", R"(f5:"a\000b")", VESK_TEXT_NUL, true},
        {Format::text, "led_data", R"(f5:"\ud83d")", VESK_TEXT_NOT_UTF8, true},
        {Format::text, "led_data", R"(f5:"\U00110000")", VESK_TEXT_SYNTAX, true},
        {Format::text, "led_data", R"(f5:"\X41")", VESK_OK, false},
    };
    pb::LogSilencer no_log;
    for (const Row& row : rows) {
        const Parsed parsed(row.format, type_named(row.type), row.text);
        EXPECT_EQ(parsed.code, row.code) << row.text;
        const auto received = new_message(row.type);
        const bool reads = row.format == Format::json ? pb::util::JsonStringToMessage(row.text, received.get()).ok()
                                                      : pb::TextFormat::ParseFromString(row.text, received.get());
        EXPECT_EQ(reads, row.theirs) << row.text;
    }
}

}  // namespace
}  // namespace vesk::test
