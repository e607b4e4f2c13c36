// What separates a library of generated messages from a general protobuf: each test is a row of docs/other_messages.md,
// and each row a test.
#include <every_kind.h>
#include <foreign_every_kind_types.h>
#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "tests/foreign/rows.hpp"
#include "tests/foreign/schema.hpp"

namespace vesk::test {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

constexpr std::uint32_t varint_wire = 0, eight_bytes_wire = 1, length_wire = 2;

// An input, read by both. What the library makes of it is compared with what protobuf does in each test.
template <class T>
class Read {
public:
    Read(const std::string& type, const Bytes& input)
        : structure(schema().named(type)), message(structure.type().new_message()), code(structure.decode(input)) {
        is_read_by_protobuf = message->ParsePartialFromArray(input.data(), static_cast<int>(input.size()));
        rows = rows_of(*structure.type().descriptor, input);
    }

    const T& here() const { return *static_cast<const T*>(structure.get()); }
    const FieldDescriptor* field(int number) const { return message->GetDescriptor()->FindFieldByNumber(number); }
    const google::protobuf::Reflection& there() const { return *message->GetReflection(); }

    Structure structure;
    std::unique_ptr<Message> message;
    std::int32_t code;
    bool is_read_by_protobuf;
    std::set<std::string> rows;
};

// The message that protobuf reads out of what the library writes.
template <class T>
std::unique_ptr<Message> written(const std::string& name, const T& structure) {
    const ForeignType& type = schema().named(name);
    Bytes bytes(type.encode(&structure, nullptr, 0, nullptr, nullptr, 0));
    type.encode(&structure, bytes.data(), bytes.size(), nullptr, nullptr, 0);
    std::unique_ptr<Message> message = type.new_message();
    EXPECT_TRUE(message->ParsePartialFromArray(bytes.data(), static_cast<int>(bytes.size())));
    return message;
}

template <class T>
Bytes bytes_of(const std::string& name, const T& structure) {
    const ForeignType& type = schema().named(name);
    Bytes bytes(type.encode(&structure, nullptr, 0, nullptr, nullptr, 0));
    type.encode(&structure, bytes.data(), bytes.size(), nullptr, nullptr, 0);
    return bytes;
}

class foreign_differences : public ::testing::Test {
public:
    void TearDown() override { take_lost_blocks(); }
};

// The row by which damaged input is explained has the test's name.
template <class T>
void expect_row(const Read<T>& read) {
    const std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    EXPECT_TRUE(read.rows.contains(name));
}

using Scalars = Read<every_kind_Scalars>;
const std::string scalars = "every_kind_Scalars";

// ---- What arrives
// ----------------------------------------------------------------------------------------------------

TEST_F(foreign_differences, unknown_field_is_dropped) {
    const Scalars read(scalars, message(number_field(1, 7), number_field(100, 8)));
    EXPECT_EQ(read.code, VESK_OK);
    EXPECT_EQ(read.structure.encode(), number_field(1, 7));
    EXPECT_EQ(read.message->ByteSizeLong(), message(number_field(1, 7), number_field(100, 8)).size());
}

TEST_F(foreign_differences, unknown_field_cut_short_is_accepted) {
    const Scalars read(scalars, message(number_field(1, 7), tag(100, length_wire), varint(5), hex("00")));
    EXPECT_EQ(read.code, VESK_OK);
    EXPECT_EQ(read.here().a_uint32, 7u);
    EXPECT_FALSE(read.is_read_by_protobuf);
    expect_row(read);
}

TEST_F(foreign_differences, field_number_0_is_an_unknown_field) {
    const Scalars read(scalars, message(number_field(0, 7), number_field(1, 7)));
    EXPECT_EQ(read.code, VESK_OK);
    EXPECT_FALSE(read.is_read_by_protobuf);
    expect_row(read);
}

TEST_F(foreign_differences, group_is_refused) {
    const Scalars read(scalars, message(tag(100, 3), number_field(1, 7), tag(100, 4)));
    EXPECT_EQ(read.code, VESK_UNKNOWN_WIRE_TYPE);
    EXPECT_TRUE(read.is_read_by_protobuf);
    expect_row(read);
}

TEST_F(foreign_differences, known_field_of_another_wire_type_is_refused) {
    const Scalars read(scalars, message(tag(1, eight_bytes_wire), hex("0000000000000000")));
    EXPECT_EQ(read.code, VESK_WRONG_WIRE_TYPE);
    EXPECT_TRUE(read.is_read_by_protobuf);
    expect_row(read);
    const Read<every_kind_Repeated> run("every_kind_Repeated",
                                        message(number_field(1, 7), tag(1, eight_bytes_wire), hex("0000000000000000")));
    EXPECT_EQ(run.code, VESK_WRONG_WIRE_TYPE);
    EXPECT_TRUE(run.is_read_by_protobuf);
}

TEST_F(foreign_differences, element_of_another_wire_type_is_read_as_an_element) {
    const Read<every_kind_Repeated> read("every_kind_Repeated",
                                         message(text_field(15, "a"), tag(15, varint_wire), text("b")));
    EXPECT_EQ(read.code, VESK_OK);
    ASSERT_EQ(read.here().strings_count, 2u);
    EXPECT_STREQ(read.here().strings[1], "b");
    expect_row(read);
}

TEST_F(foreign_differences, repeated_field_in_two_runs_is_refused) {
    for (const Bytes& element : {number_field(1, 7), text_field(15, "a"), text_field(16, "a")}) {
        const Read<every_kind_Repeated> read("every_kind_Repeated", message(element, number_field(2, 7), element));
        EXPECT_EQ(read.code, VESK_MALFORMED);
        EXPECT_TRUE(read.is_read_by_protobuf);
        expect_row(read);
    }
}

TEST_F(foreign_differences, nested_message_twice_is_replaced) {
    const Read<every_kind_Everything> read(
        "every_kind_Everything", message(message_field(1, number_field(1, 7)), message_field(1, number_field(2, 8))));
    EXPECT_EQ(read.code, VESK_OK);
    EXPECT_FALSE(VESK_HAS(&read.here().scalars, EVERY_KIND_SCALARS_A_UINT32));
    EXPECT_EQ(read.here().scalars.a_uint64, 8u);
    const Message& merged = read.there().GetMessage(*read.message, read.field(1));
    EXPECT_EQ(merged.GetReflection()->GetUInt32(merged, merged.GetDescriptor()->FindFieldByNumber(1)), 7u);
    expect_row(read);
}

TEST_F(foreign_differences, string_or_bytes_twice_is_refused) {
    for (const std::uint32_t number : {15u, 16u}) {
        const Scalars read(scalars, message(text_field(number, "a"), text_field(number, "b")));
        EXPECT_EQ(read.code, VESK_MALFORMED);
        EXPECT_EQ(read.there().GetString(*read.message, read.field(static_cast<int>(number))), "b");
        expect_row(read);
    }
}

TEST_F(foreign_differences, string_ends_at_an_embedded_nul) {
    const Scalars read(scalars, text_field(15, std::string("a\0b", 3)));
    EXPECT_EQ(read.code, VESK_OK);
    EXPECT_EQ(read.structure.encode(), text_field(15, "a"));
    EXPECT_EQ(read.there().GetString(*read.message, read.field(15)).size(), 3u);
    expect_row(read);
}

TEST_F(foreign_differences, string_that_is_not_utf8_is_accepted) {
    const Read<every_kind_held_Held> read("every_kind_held_Held", text_field(3, "\xFF"));
    EXPECT_EQ(read.code, VESK_OK);
    EXPECT_STREQ(read.here().text, "\xFF");
    EXPECT_FALSE(read.is_read_by_protobuf);
    expect_row(read);
}

TEST_F(foreign_differences, bool_is_read_from_32_bits) {
    const Scalars read(scalars, number_field(3, std::uint64_t{1} << 32));
    EXPECT_EQ(read.code, VESK_OK);
    EXPECT_EQ(read.here().a_bool, 0);
    EXPECT_TRUE(read.there().GetBool(*read.message, read.field(3)));
    expect_row(read);
}

TEST_F(foreign_differences, value_that_an_enum_does_not_name_is_kept) {
    const Scalars read(scalars, number_field(14, 12345));
    EXPECT_EQ(read.code, VESK_OK);
    EXPECT_TRUE(VESK_HAS(&read.here(), EVERY_KIND_SCALARS_A_COLOUR));
    EXPECT_EQ(read.here().a_colour, 12345);
    EXPECT_EQ(read.structure.encode(), number_field(14, 12345));
    EXPECT_FALSE(read.there().HasField(*read.message, read.field(14)));
    expect_row(read);
    // In proto3 protobuf keeps it in the field, too.
    const Read<every_kind_held_Held> open("every_kind_held_Held", number_field(8, 12345));
    EXPECT_EQ(open.here().side, 12345);
    EXPECT_EQ(open.there().GetEnumValue(*open.message, open.field(8)), 12345);
    EXPECT_TRUE(open.rows.empty());
}

TEST_F(foreign_differences, required_is_not_enforced) {
    const Read<every_kind_Demanding> read("every_kind_Demanding", {});
    EXPECT_EQ(read.code, VESK_OK);
    EXPECT_TRUE(read.structure.encode().empty());
    EXPECT_FALSE(read.message->ParseFromString(""));
}

TEST_F(foreign_differences, default_is_never_set) {
    const Read<every_kind_Defaults> read("every_kind_Defaults", {});
    EXPECT_FALSE(VESK_HAS(&read.here(), EVERY_KIND_DEFAULTS_NUMBER));
    EXPECT_EQ(read.here().number, 0);
    EXPECT_EQ(read.here().text, nullptr);
    EXPECT_EQ(read.there().GetInt32(*read.message, read.field(1)), -7);
}

TEST_F(foreign_differences, field_without_presence_has_its_bit) {
    const Read<every_kind_held_Held> read("every_kind_held_Held", number_field(1, 0));
    EXPECT_TRUE(VESK_HAS(&read.here(), EVERY_KIND_HELD_HELD_NUMBER));
    EXPECT_EQ(read.structure.encode(), number_field(1, 0));
    EXPECT_FALSE(read.there().HasField(*read.message, read.field(1)));
    EXPECT_EQ(read.message->ByteSizeLong(), 0u);
}

TEST_F(foreign_differences, tag_of_more_than_32_bits_is_read) {
    const Scalars read(scalars, message(over_long(1 << 3, 6), varint(7)));
    EXPECT_EQ(read.code, VESK_OK);
    EXPECT_EQ(read.here().a_uint32, 7u);
    EXPECT_FALSE(read.is_read_by_protobuf);
    expect_row(read);
}

TEST_F(foreign_differences, length_of_more_than_31_bits_is_read) {
    const Scalars read(scalars, message(tag(15, length_wire), over_long(1, 6), hex("61")));
    EXPECT_EQ(read.code, VESK_OK);
    EXPECT_STREQ(read.here().a_string, "a");
    EXPECT_FALSE(read.is_read_by_protobuf);
    expect_row(read);
}

TEST_F(foreign_differences, number_of_more_than_10_bytes_is_read) {
    for (const int number : {1, 5, 6, 14}) {
        const Scalars read(scalars, message(tag(static_cast<std::uint32_t>(number), varint_wire), over_long(6, 11)));
        EXPECT_EQ(read.code, VESK_OK);
        EXPECT_FALSE(read.is_read_by_protobuf);
        expect_row(read);
    }
}

// ---- What is written
// -------------------------------------------------------------------------------------------------

TEST_F(foreign_differences, fields_are_written_in_declared_order) {
    every_kind_Everything everything{};
    everything.side = 1;
    VESK_MARK(&everything, EVERY_KIND_EVERYTHING_SIDE);
    everything.names.words_count_ = 0;
    VESK_MARK(&everything, EVERY_KIND_EVERYTHING_NAMES);
    const Bytes names_first = message(message_field(536870911, {}), number_field(5, 1));
    EXPECT_EQ(bytes_of("every_kind_Everything", everything), names_first);
    const std::string by_number = written("every_kind_Everything", everything)->SerializeAsString();
    EXPECT_EQ(Bytes(by_number.begin(), by_number.end()), message(number_field(5, 1), message_field(536870911, {})));
}

TEST_F(foreign_differences, value_without_its_bit_is_left_out) {
    std::int32_t value = 7;
    every_kind_Packed packed{};
    packed.int32_list = &value;
    packed.int32_list_count = 1;
    EXPECT_TRUE(bytes_of("every_kind_Packed", packed).empty());
    every_kind_Scalars record{};
    record.a_sint32 = 7;
    EXPECT_TRUE(bytes_of(scalars, record).empty());
}

TEST_F(foreign_differences, nested_message_with_content_needs_no_bit) {
    every_kind_Everything everything{};
    everything.scalars.a_sint32 = -1;
    VESK_MARK(&everything.scalars, EVERY_KIND_SCALARS_A_SINT32);
    EXPECT_EQ(bytes_of("every_kind_Everything", everything), message_field(1, number_field(4, 1)));
}

TEST_F(foreign_differences, zero_without_presence_is_written_if_its_bit_is_set) {
    every_kind_held_Held held{};
    VESK_MARK(&held, EVERY_KIND_HELD_HELD_NUMBER);
    EXPECT_EQ(bytes_of("every_kind_held_Held", held), number_field(1, 0));
    EXPECT_EQ(written("every_kind_held_Held", held)->ByteSizeLong(), 0u);
}

TEST_F(foreign_differences, null_string_is_left_out_and_an_empty_element) {
    char* elements[] = {nullptr, nullptr};
    every_kind_Repeated repeated{};
    repeated.strings = elements;
    repeated.strings_count = 2;
    VESK_MARK(&repeated, EVERY_KIND_REPEATED_STRINGS);
    EXPECT_EQ(bytes_of("every_kind_Repeated", repeated), message(text_field(15, ""), text_field(15, "")));
    every_kind_Scalars record{};
    VESK_MARK(&record, EVERY_KIND_SCALARS_A_STRING);
    EXPECT_TRUE(bytes_of(scalars, record).empty());
}

TEST_F(foreign_differences, bool_is_written_as_it_stands) {
    every_kind_Scalars record{};
    record.a_bool = 200;
    VESK_MARK(&record, EVERY_KIND_SCALARS_A_BOOL);
    EXPECT_EQ(bytes_of(scalars, record), number_field(3, 200));
}

// ---- No difference, though one might expect one
// ------------------------------------------------------------------------

TEST(foreign_agreements, packed_and_one_by_one_are_read_alike_and_mixed) {
    const Bytes packed = message_field(4, message(varint(1), varint(2)));
    const Bytes one = number_field(4, 3);
    for (const char* const type : {"every_kind_Repeated", "every_kind_Packed"}) {
        for (const Bytes& input :
             {packed, one, message(packed, one, packed), message(one, packed), message_field(4, {})}) {
            const Read<every_kind_Repeated> read(type, input);
            EXPECT_EQ(read.code, VESK_OK) << type << ' ' << to_hex(input);
            EXPECT_EQ(static_cast<int>(read.here().sint32_list_count),
                      read.there().FieldSize(*read.message, read.field(4)));
            EXPECT_TRUE(read.rows.empty());
        }
    }
}

TEST(foreign_agreements, number_below_0_takes_ten_bytes) {
    every_kind_Scalars record{};
    record.a_int32 = -1;
    record.a_colour = -1;
    VESK_MARK(&record, EVERY_KIND_SCALARS_A_INT32);
    VESK_MARK(&record, EVERY_KIND_SCALARS_A_COLOUR);
    const Bytes bytes = bytes_of(scalars, record);
    EXPECT_EQ(bytes, message(number_field(6, ~std::uint64_t{0}), number_field(14, ~std::uint64_t{0})));
    const std::string again = written(scalars, record)->SerializeAsString();
    EXPECT_EQ(Bytes(again.begin(), again.end()), bytes);
}

TEST(foreign_agreements, content_that_is_no_whole_number_of_elements_is_refused) {
    const Read<every_kind_Packed> read("every_kind_Packed", message_field(8, hex("0100000002")));
    EXPECT_EQ(read.code, VESK_MALFORMED);
    EXPECT_FALSE(read.is_read_by_protobuf);
    EXPECT_TRUE(read.rows.empty());
}

TEST(foreign_agreements, bits_of_floats_stay) {
    for (const char* const bits : {"0000c07f", "0100807f", "00000080"}) {  // not a number, a signalling one, -0
        const Bytes input = message(hex("65"), hex(bits));
        const Scalars read(scalars, input);
        EXPECT_EQ(read.structure.encode(), input);
        const std::string again = read.message->SerializeAsString();
        EXPECT_EQ(Bytes(again.begin(), again.end()), input);
    }
}

// ---- The library's own functions
// ---------------------------------------------------------------------------------------

TEST(foreign_types, are_found_by_their_names_in_c) {
    std::uint32_t count = 0;
    const vesk_type* const first = foreign_every_kind_all_types(&count);
    EXPECT_EQ(first, foreign_every_kind_all_types(nullptr));
    EXPECT_EQ(first, vesk_schema_all_types(nullptr));
    EXPECT_EQ(count, schema().types().size());
    EXPECT_STREQ(vesk_type_unit(foreign_every_kind_type_named("google_protobuf_Empty")), "google/protobuf/empty");
    EXPECT_STREQ(vesk_type_unit(foreign_every_kind_type_named("every_kind_Nested_Inner_Innermost")), "every_kind");
    EXPECT_EQ(foreign_every_kind_type_named("Scalars"), nullptr);
    EXPECT_EQ(foreign_every_kind_type_named(nullptr), nullptr);
}

// ---- The page
// ----------------------------------------------------------------------------------------------------------

TEST(foreign_page, has_one_row_for_every_test_and_a_test_for_every_row) {
    std::set<std::string> tests;
    const ::testing::UnitTest& program = *::testing::UnitTest::GetInstance();
    for (int i = 0; i < program.total_test_suite_count(); ++i) {
        const ::testing::TestSuite& suite = *program.GetTestSuite(i);
        const std::string name = suite.name();
        if (name != "foreign_differences" && name != "foreign_agreements") continue;
        for (int j = 0; j < suite.total_test_count(); ++j) tests.insert(name + "." + suite.GetTestInfo(j)->name());
    }
    std::set<std::string> rows;
    std::ifstream page(VESK_TEST_SOURCE_DIR "/docs/other_messages.md");
    for (std::string line; std::getline(page, line);) {
        const std::size_t begin = line.rfind("| `foreign_");
        if (line.rfind("| ", 0) != 0 || begin == std::string::npos) continue;
        const std::string test = line.substr(begin + 3, line.rfind('`') - begin - 3);
        EXPECT_TRUE(rows.insert(test).second) << "two rows of " << test;
    }
    EXPECT_EQ(rows, tests);
}

}  // namespace
}  // namespace vesk::test
