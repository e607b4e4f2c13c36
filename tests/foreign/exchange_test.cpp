// A library of generated messages and a general protobuf read what each other writes, for every type and all values,
// and what is damaged alike, or a row of the table of differences says why not.
#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <map>

#include "tests/foreign/rows.hpp"
#include "tests/foreign/values.hpp"
#include "tests/support/damage.hpp"

namespace vesk::test {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

unsigned rounds() {
    const char* const asked = std::getenv("VESK_TEST_ROUNDS");
    return asked != nullptr ? static_cast<unsigned>(std::strtoul(asked, nullptr, 10)) : 200;
}

Bytes written(const Message& message) {
    const std::string bytes = message.SerializePartialAsString();
    return {bytes.begin(), bytes.end()};
}

bool parse(Message* message, const Bytes& input) {
    return message->ParsePartialFromArray(input.data(), static_cast<int>(input.size()));
}

// The same messages in each run.
Random begin(std::uint64_t seed) { return Random(seed); }

class foreign_exchange : public ::testing::Test {
public:
    void TearDown() override { EXPECT_EQ(blocks_in_use(), 0u) << "memory was not given back"; }
};

TEST_F(foreign_exchange, what_protobuf_writes_is_read_copied_and_written_back) {
    Random random = begin(20240607);
    for (const ForeignType& type : schema().types()) {
        for (unsigned round = 0; round < rounds(); ++round) {
            const auto message = type.new_message();
            fill(message.get(), random);
            const Bytes bytes = written(*message);
            Structure structure(type);
            const std::uint32_t flags = round % 2 == 0 ? 0 : VESK_BYTES_BY_REFERENCE;
            ASSERT_EQ(structure.decode(bytes, flags), VESK_OK) << type.name() << '\n' << to_hex(bytes);
            ASSERT_EQ(difference(structure, *message), "") << type.name() << '\n' << to_hex(bytes);

            Structure copy(type);
            ASSERT_EQ(copy.duplicate(structure), VESK_OK) << type.name();
            ASSERT_EQ(difference(copy, *message), "") << type.name();
            const Bytes again = copy.encode();
            EXPECT_EQ(structure.encode(), again) << type.name();
            const auto message_again = type.new_message();
            ASSERT_TRUE(parse(message_again.get(), again)) << type.name() << '\n' << to_hex(again);
            EXPECT_EQ(to_hex(written(*message_again)), to_hex(bytes)) << type.name();
        }
    }
}

TEST_F(foreign_exchange, what_the_library_writes_is_read_by_protobuf) {
    Random random = begin(20240607);
    for (const ForeignType& type : schema().types()) {
        for (unsigned round = 0; round < rounds(); ++round) {
            Structure structure(type);
            fill(&structure, random);
            const Bytes bytes = structure.encode();
            const auto message = type.new_message();
            ASSERT_TRUE(parse(message.get(), bytes)) << type.name() << '\n' << to_hex(bytes);
            ASSERT_EQ(difference(structure, *message), "") << type.name() << '\n' << to_hex(bytes);
            // A buffer that is too short holds what fits.
            if (bytes.empty()) continue;
            Bytes shorter(random() % bytes.size());
            ASSERT_EQ(type.encode(structure.get(), shorter.data(), shorter.size(), nullptr, nullptr, 0), bytes.size())
                << type.name();
        }
    }
}

TEST_F(foreign_exchange, damaged_input_is_read_alike_or_a_row_of_the_table_says_why) {
    Random random = begin(20240607);
    unsigned unexplained = 0;
    unsigned both_read = 0;
    std::map<std::string, unsigned> count;
    for (const ForeignType& type : schema().types()) {
        for (unsigned round = 0; round < rounds(); ++round) {
            const auto message = type.new_message();
            fill(message.get(), random);
            const Bytes bytes = damage(written(*message), random);
            const std::set<std::string> rows = rows_of(*type.descriptor, bytes);
            for (const std::string& row : rows) ++count[row];

            {
                Structure structure(type);
                const std::int32_t code = structure.decode(bytes);
                const bool is_read = parse(message.get(), bytes);
                if (rows.empty()) {
                    ++unexplained;
                    ASSERT_EQ(code == VESK_OK, is_read) << type.name() << ": " << code << '\n' << to_hex(bytes);
                    both_read += is_read;
                    if (is_read) {
                        ASSERT_EQ(difference(structure, *message), "") << type.name() << '\n' << to_hex(bytes);
                    }
                }
            }
            if (rows.contains("nested_message_twice_is_replaced")) take_lost_blocks();
            ASSERT_EQ(blocks_in_use(), 0u) << type.name() << '\n' << to_hex(bytes);
        }
    }
    // Else the comparison would say little.
    const std::size_t all = schema().types().size() * rounds();
    EXPECT_GT(unexplained, all / 4);
    EXPECT_GT(both_read, all / 20);
    for (const auto& [row, times] : count) RecordProperty(row, static_cast<int>(times));
}

void* give_some(std::uint64_t size, void* left) {
    return (*static_cast<long*>(left))-- > 0 ? give_block(size, nullptr) : nullptr;
}

TEST_F(foreign_exchange, memory_that_fails_at_any_request_is_said_and_nothing_is_lost) {
    Random random = begin(20240607);
    for (const ForeignType& type : schema().types()) {
        Structure structure(type);
        fill(&structure, random);
        Structure whole(type);
        ASSERT_EQ(whole.decode(structure.encode()), VESK_OK);
        const Bytes bytes = whole.encode();
        std::int32_t code = VESK_NO_MEMORY;
        for (long granted = 0; code == VESK_NO_MEMORY; ++granted) {
            Structure part(type);
            long left = granted;
            code = type.decode(part.get(), bytes.data(), bytes.size(), give_some, &left, 0);
            ASSERT_EQ(code == VESK_OK, left >= 0) << type.name();
            if (code != VESK_OK) {
                ASSERT_EQ(code, VESK_NO_MEMORY) << type.name();
            }
        }
        code = VESK_NO_MEMORY;
        for (long granted = 0; code == VESK_NO_MEMORY; ++granted) {
            Structure part(type);
            long left = granted;
            code = type.duplicate(part.get(), whole.get(), give_some, &left);
            ASSERT_EQ(code == VESK_OK, left >= 0) << type.name();
        }
    }
}

// ---- The table of facts
// ------------------------------------------------------------------------------------------------

unsigned kind_of(const FieldDescriptor& field) {
    switch (field.type()) {
        case FieldDescriptor::TYPE_UINT32: return VESK_KIND_UINT32;
        case FieldDescriptor::TYPE_UINT64: return VESK_KIND_UINT64;
        case FieldDescriptor::TYPE_BOOL: return VESK_KIND_BOOL;
        case FieldDescriptor::TYPE_STRING: return VESK_KIND_STRING;
        case FieldDescriptor::TYPE_BYTES: return VESK_KIND_BYTES;
        case FieldDescriptor::TYPE_MESSAGE: return field.is_repeated() ? VESK_KIND_LIST : VESK_KIND_MESSAGE;
        case FieldDescriptor::TYPE_SINT32: return VESK_KIND_SINT32;
        case FieldDescriptor::TYPE_SINT64: return VESK_KIND_SINT64;
        case FieldDescriptor::TYPE_INT32: return VESK_KIND_INT32;
        case FieldDescriptor::TYPE_INT64: return VESK_KIND_INT64;
        case FieldDescriptor::TYPE_FIXED32: return VESK_KIND_FIXED32;
        case FieldDescriptor::TYPE_FIXED64: return VESK_KIND_FIXED64;
        case FieldDescriptor::TYPE_SFIXED32: return VESK_KIND_SFIXED32;
        case FieldDescriptor::TYPE_SFIXED64: return VESK_KIND_SFIXED64;
        case FieldDescriptor::TYPE_FLOAT: return VESK_KIND_FLOAT;
        case FieldDescriptor::TYPE_DOUBLE: return VESK_KIND_DOUBLE;
        case FieldDescriptor::TYPE_ENUM: return VESK_KIND_ENUM;
        default: return 0;
    }
}

TEST(foreign_table, says_what_the_schema_says) {
    for (const ForeignType& type : schema().types()) {
        ASSERT_EQ(type.facts->field_count, type.descriptor->field_count()) << type.name();
        EXPECT_EQ(std::string(vesk_type_unit(type.facts)) + ".proto", type.descriptor->file()->name());
        for (int i = 0; i < type.descriptor->field_count(); ++i) {
            const FieldDescriptor& field = *type.descriptor->field(i);
            const vesk_field* const row = vesk_type_field(type.facts, static_cast<std::uint32_t>(i));
            EXPECT_EQ(vesk_field_name(row), field.name()) << field.full_name();
            EXPECT_EQ(vesk_field_number(row), static_cast<unsigned>(field.number())) << field.full_name();
            EXPECT_EQ(vesk_type_field_numbered(type.facts, static_cast<unsigned>(field.number())), row)
                << field.full_name();
            EXPECT_EQ(row->presence_bit, i) << field.full_name();
            EXPECT_EQ((row->tag & 7) == 2, field.is_packed() || field.type() == FieldDescriptor::TYPE_MESSAGE ||
                                               field.cpp_type() == FieldDescriptor::CPPTYPE_STRING)
                << field.full_name();
            const bool is_repeated = field.is_repeated() && field.type() != FieldDescriptor::TYPE_MESSAGE;
            EXPECT_EQ(row->kind, kind_of(field) + (is_repeated ? unsigned{VESK_KIND_REPEATED} : 0))
                << field.full_name();
            if (field.message_type() == nullptr) continue;
            EXPECT_EQ(vesk_field_nested(row), schema().type_of(field.message_type()).facts) << field.full_name();
        }
    }
}

}  // namespace
}  // namespace vesk::test
