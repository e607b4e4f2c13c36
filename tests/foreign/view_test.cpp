// The view of a library's own messages: one header of the generated ones, every kind of member.
#include <gtest/gtest.h>

#include <array>
#include <every_kind.hpp>
#include <vesk/vesk_print.hpp>

namespace vesk::test {
namespace {

using Scalars = every_kind_Scalars;
using Repeated = every_kind_Repeated;

std::span<const std::byte> bytes_of(std::string_view text) { return std::as_bytes(std::span(text)); }

template <class T>
message<T> sent(const message<T>& original) {
    std::array<std::byte, 1024> buffer;
    std::uint64_t length = 0;
    EXPECT_FALSE(original.encode(buffer, length));
    message<T> received;
    EXPECT_FALSE(received.decode({buffer.data(), static_cast<std::size_t>(length)}));
    return received;
}

TEST(foreign_view, scalars_of_every_kind_are_set_and_read) {
    message<Scalars> original;
    original.set<&Scalars::a_bool>(true);
    original.set<&Scalars::a_sint32>(-7);
    original.set<&Scalars::a_int64>(std::int64_t{INT64_MIN});
    original.set<&Scalars::a_int64>(7u);  // every number of 32 bits is one of 64
    original.set<&Scalars::a_fixed64>(std::uint64_t{7});
    original.set<&Scalars::a_float>(0.1f);
    original.set<&Scalars::a_double>(0.5f);
    original.set<&Scalars::a_colour>(EVERY_KIND_COLOUR_BLACK);
    ASSERT_FALSE(original.set<&Scalars::a_string>("green"));
    ASSERT_FALSE(original.set<&Scalars::a_bytes>(bytes_of("\x01\x02")));
    const message<Scalars> received = sent(original);
    EXPECT_EQ(received.get<&Scalars::a_bool>(), true);
    EXPECT_EQ(received.get<&Scalars::a_sint32>(), -7);
    EXPECT_EQ(received.get<&Scalars::a_int64>(), 7);
    EXPECT_EQ(received.get<&Scalars::a_float>(), 0.1f);
    EXPECT_EQ(received.get<&Scalars::a_double>(), 0.5);
    EXPECT_EQ(received.get<&Scalars::a_colour>(), EVERY_KIND_COLOUR_BLACK);
    EXPECT_EQ(received.get<&Scalars::a_bytes>()->size(), 2u);
    EXPECT_EQ(received.get<&Scalars::a_int32>(), std::nullopt);
    EXPECT_EQ(
        to_string(received),
        "a_bool: true a_sint32: -7 a_int64: 7 a_fixed64: 7 a_float: 0.1 a_double: 0.5 a_colour: -1 a_string: \"green\" "
        "a_bytes: \"\\001\\002\"");
}

TEST(foreign_view, lists_of_numbers_strings_and_bytes_are_resized_and_set_by_index) {
    message<Repeated> original;
    ASSERT_FALSE(original.resize<&Repeated::double_list>(2));
    original.set<&Repeated::double_list>(1, 2.5);
    ASSERT_FALSE(original.resize<&Repeated::bool_list>(2));
    original.set<&Repeated::bool_list>(0, true);
    ASSERT_FALSE(original.resize<&Repeated::strings>(3));
    ASSERT_FALSE(original.set<&Repeated::strings>(0, "north"));
    ASSERT_FALSE(original.set<&Repeated::strings>(0, "south"));
    ASSERT_FALSE(original.set<&Repeated::strings>(2, "west"));
    EXPECT_EQ(original.set<&Repeated::strings>(1, std::string_view("a\0b", 3)), make_error_code(error::embedded_nul));
    ASSERT_FALSE(original.resize<&Repeated::strings>(2));
    ASSERT_FALSE(original.resize<&Repeated::blobs>(1));
    ASSERT_FALSE(original.set<&Repeated::blobs>(0, bytes_of("blob")));
    message<Repeated> received = sent(original);
    const std::span<const double> doubles = *received.get<&Repeated::double_list>();
    ASSERT_EQ(doubles.size(), 2u);
    EXPECT_EQ(doubles[1], 2.5);
    const std::span<const std::uint8_t> flags = *received.get<&Repeated::bool_list>();
    EXPECT_EQ(flags[0], 1);
    const std::span<char* const> strings = *received.get<&Repeated::strings>();
    ASSERT_EQ(strings.size(), 2u);
    EXPECT_STREQ(strings[0], "south");
    const std::span<const vesk_bytes> blobs = *received.get<&Repeated::blobs>();
    ASSERT_EQ(blobs.size(), 1u);
    EXPECT_EQ(blobs[0].length, 4u);
    EXPECT_EQ(to_string(received),
              "bool_list: true bool_list: false double_list: 0 double_list: 2.5 strings: \"south\" strings: \"\" "
              "blobs: \"blob\"");
    received.clear<&Repeated::strings>();
    received.clear<&Repeated::blobs>();
    EXPECT_FALSE(received.has<&Repeated::strings>());
}

TEST(foreign_view, messages_of_other_files_and_lists_of_them_are_edited) {
    using Everything = every_kind_Everything;
    message<Everything> original;
    original.edit<&Everything::time>().set<&google_protobuf_Timestamp::seconds>(std::int64_t{-1});
    original.edit<&Everything::names>().set<&every_kind_Names::class_>(3);
    ASSERT_FALSE(original.resize<&Everything::held_list>(1));
    original.edit<&Everything::held_list>(0).set<&every_kind_held_Held::side>(EVERY_KIND_HELD_SIDE_RIGHT);
    EXPECT_EQ(to_string(sent(original)), "names { class: 3 } held_list { side: 1 } time { seconds: -1 }");
}

}  // namespace
}  // namespace vesk::test
