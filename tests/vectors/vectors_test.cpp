// The golden vectors, vectors/*.jsonl, which were made without any of what is tested here: the library, the second
// implementation of tests/support and a general protobuf make of each line what it says. docs/vectors.md has the form.
#include <google/protobuf/message.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>
#include <vesk/vesk_toolkit.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>

#include "tests/interop/dialect.hpp"
#include "tests/interop/peers.hpp"
#include "tests/support/interpreter.hpp"
#include "tests/text/calls.hpp"

namespace vesk::test {
namespace {

using Json = nlohmann::ordered_json;  // the order of names is that of the declaration

struct Vector {
    std::string place;  // "wire.jsonl:12: f3: 5 in 2 bytes"
    std::string type;
    Bytes input;
    std::int32_t code;  // VESK_OK, or what the input is refused with
    Json json;          // null if it is refused
    Bytes canonical;    // what encoding gives
    std::set<std::string> differs;
};

std::vector<Vector> read_vectors() {
    std::vector<Vector> vectors;
    for (const auto& file : std::filesystem::directory_iterator(VESK_TEST_SOURCE_DIR "/vectors")) {
        if (file.path().extension() != ".jsonl") continue;
        std::ifstream lines(file.path());
        int number = 0;
        for (std::string line; std::getline(lines, line);) {
            const Json row = Json::parse(line);
            Vector vector{file.path().filename().string() + ":" + std::to_string(++number) + ": " +
                              row.at("about").get<std::string>(),
                          row.at("type"),
                          hex(row.at("hex").get<std::string>()),
                          row.value("code", VESK_OK),
                          row.value("json", Json()),
                          hex(row.value("canonical", row.at("hex").get<std::string>())),
                          row.value("differs", std::set<std::string>())};
            if (row.contains("code") == row.contains("json"))
                throw std::runtime_error(vector.place + ": not one of both");
            vectors.push_back(std::move(vector));
        }
    }
    return vectors;
}

const std::vector<Vector>& all_vectors() {
    static const std::vector<Vector> vectors = read_vectors();
    return vectors;
}

void for_every_vector(const std::function<void(const Vector& vector, const TypeInfo& type)>& check) {
    ASSERT_GE(all_vectors().size(), 5000u);
    for (const Vector& vector : all_vectors()) {
        SCOPED_TRACE(vector.type + ", " + vector.place);
        check(vector, type_named(vector.type));
        if (::testing::Test::HasFailure()) return;
    }
}

Json printed_json(const Printed& printed) { return printed.code == VESK_OK ? Json::parse(printed.text) : Json(); }

// A structure's reader sees a string up to a NUL; its JSON is that of the canonical bytes then.
bool has_nul(const Vector& vector) { return vector.differs.contains("string_ends_at_embedded_nul"); }

// What was decoded says what the vector says, as JSON and as bytes.
void expect_content(const Vector& vector, const TypeInfo& type, const void* message) {
    const Json json =
        has_nul(vector) ? printed_json(print_encoded(Format::json, facts_of(type), vector.canonical)) : vector.json;
    EXPECT_EQ(printed_json(print(Format::json, facts_of(type), message)), json);
    EXPECT_EQ(to_hex(encoded(type, message)), to_hex(vector.canonical));
}

TEST(vectors, library_decodes_each_to_its_code_json_and_canonical_bytes) {
    for_every_vector([](const Vector& vector, const TypeInfo& type) {
        for (const std::uint32_t flags : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
            AnyDecoded decoded(type, vector.input, flags);
            ASSERT_EQ(decoded.code, vector.code);
            if (vector.code == VESK_OK) expect_content(vector, type, decoded.message.get());
        }
    });
}

TEST(vectors, library_prints_each_from_its_bytes) {
    for_every_vector([](const Vector& vector, const TypeInfo& type) {
        const Printed printed = print_encoded(Format::json, facts_of(type), vector.input);
        EXPECT_EQ(printed.code, vector.code);
        EXPECT_EQ(printed_json(printed), vector.json);
    });
}

TEST(vectors, library_parses_the_json_of_each_to_its_canonical_bytes) {
    for_every_vector([](const Vector& vector, const TypeInfo& type) {
        if (vector.code != VESK_OK) return;
        const Parsed parsed(Format::json, type, vector.json.dump());
        if (has_nul(vector)) {
            EXPECT_EQ(parsed.code, VESK_TEXT_NUL);
        } else {
            ASSERT_EQ(parsed.code, VESK_OK) << parsed.report.reason;
            EXPECT_EQ(to_hex(encoded(type, parsed.message.get())), to_hex(vector.canonical));
        }
    });
}

TEST(vectors, toolkit_checks_each_to_its_code) {
    for_every_vector([](const Vector& vector, const TypeInfo& type) {
        vesk_report report;
        report.size = sizeof report;
        EXPECT_EQ(vesk_check(facts_of(type), vector.input.data(), vector.input.size(), 0, &report, nullptr),
                  vector.code);
    });
}

TEST(vectors, second_implementation_decodes_each_to_its_code_json_and_canonical_bytes) {
    for_every_vector([](const Vector& vector, const TypeInfo& type) {
        const interpreter::TableType& row = interpreter::find_type(vector.type);
        Storage message(type);
        Ledger ledger;
        const std::int32_t code = interpreter::decode(row, message.get(), vector.input.data(), vector.input.size(),
                                                      Ledger::alloc, &ledger, 0);
        EXPECT_EQ(code, vector.code);
        if (vector.code == VESK_OK) {
            expect_content(vector, type, message.get());
            Bytes bytes(vector.canonical.size());
            EXPECT_EQ(interpreter::encode(row, message.get(), bytes.data(), bytes.size(), nullptr, nullptr, 0),
                      bytes.size());
            EXPECT_EQ(to_hex(bytes), to_hex(vector.canonical));
        }
        interpreter::release(row, message.get(), Ledger::release, &ledger, 0);
    });
}

// What protobuf makes of an input: null if it refuses, else its JSON and its bytes without what it does not know.
Json json_by_protobuf(const google::protobuf::Message& message) {
    google::protobuf::util::JsonPrintOptions options;
    options.preserve_proto_field_names = true;
    std::string text;
    EXPECT_TRUE(google::protobuf::util::MessageToJsonString(message, &text, options).ok());
    return Json::parse(text);
}

bool protobuf_agrees(const Vector& vector) {
    const auto message = parsed(vector.type, vector.input);
    if (message == nullptr || vector.code != VESK_OK) return (message == nullptr) == (vector.code != VESK_OK);
    return json_by_protobuf(*message) == vector.json && serialized(*message) == vector.canonical;
}

TEST(vectors, protobuf_agrees_where_no_difference_is_named) {
    int agreed = 0;
    for_every_vector([&](const Vector& vector, const TypeInfo&) {
        if (!vector.differs.empty()) return;
        EXPECT_TRUE(protobuf_agrees(vector)) << to_hex(vector.input);
        ++agreed;
    });
    EXPECT_GE(agreed, 4000);
}

TEST(vectors, protobuf_parts_at_every_difference_that_is_named_alone) {
    std::set<std::string> known(std::begin(difference_names), std::end(difference_names));
    known.insert("fields_are_written_in_declared_order");
    std::set<std::string> shown;
    for_every_vector([&](const Vector& vector, const TypeInfo&) {
        for (const std::string& name : vector.differs) EXPECT_TRUE(known.contains(name)) << name;
        if (vector.differs.size() == 1 && !protobuf_agrees(vector)) shown.insert(*vector.differs.begin());
    });
    EXPECT_EQ(shown, known);
}

}  // namespace
}  // namespace vesk::test
