// Encoding what no message of the service is made of: bytes right before an imported message, two imported messages and
// nothing else, an imported message three levels below a list. All types are the test's own.
#include <gtest/gtest.h>

#include "runtime/check_schema.hpp"
#include "runtime/encode.hpp"
#include "tests/support/bytes.hpp"

namespace vesk {
namespace {

// An imported message that stores nothing: what its place in the buffer holds is for it alone to say.
struct Stamp {
    std::uint64_t length;
    std::uint32_t segments;
};

struct Parcel {
    std::uint32_t f1;
    std::uint8_t* f2;
    std::uint64_t f2_length;
    Stamp f3;
    std::uint8_t present[1];
};

struct Letter {
    Stamp f1;
    Stamp f2;
    std::uint8_t present[1];
};

struct Envelope {
    Letter f1;
    std::uint8_t present[1];
};

struct Bag {
    Envelope f1;
    Letter* f2;
    std::uint32_t f2_count;
    std::uint8_t present[1];
};

std::uint32_t measurings_of_stamps = 0;

std::uint64_t encode_stamp(const Stamp* stamp, void*, std::uint64_t, vesk_segment*, std::uint32_t* segment_count,
                           std::uint32_t) {
    if (segment_count == nullptr) {
        ++measurings_of_stamps;
    } else {
        *segment_count = stamp->segments;
    }
    return stamp->length;
}

}  // namespace

template <>
inline constexpr ImportedFunctions<Stamp> imported<Stamp>{encode_stamp, nullptr, nullptr, nullptr};

template <>
inline constexpr auto schema<Parcel> = fields(field<1>(&Parcel::f1), bytes<2>(&Parcel::f2, &Parcel::f2_length),
                                              field<3>(&Parcel::f3));
template <>
inline constexpr auto schema<Letter> = fields(field<1>(&Letter::f1), field<2>(&Letter::f2));
template <>
inline constexpr auto schema<Envelope> = fields(field<1>(&Envelope::f1));
template <>
inline constexpr auto schema<Bag> = fields(field<1>(&Bag::f1), list<2>(&Bag::f2, &Bag::f2_count));

static_assert(check_schema<Parcel>() && check_schema<Letter>() && check_schema<Envelope>() && check_schema<Bag>());

namespace test {
namespace {

constexpr std::uint8_t untouched_byte = 0xEE;

// The parts before an identifier are copied in blocks, of which one would reach into its place.
TEST(encode_imported, after_short_bytes_finds_its_place_as_the_caller_left_it) {
    std::uint8_t data[] = {0xD5};
    const Parcel parcel{1, data, sizeof data, {40, 0}, {0x07}};
    const Bytes before = message(number_field(1, 1), message_field(2, Bytes(1, 0xD5)), tag(3, length_type), varint(40));
    Bytes buffer(before.size() + 40 + 16, untouched_byte);
    ASSERT_EQ(encode_ext(&parcel, buffer.data(), buffer.size(), nullptr, nullptr, 0), before.size() + 40);
    EXPECT_EQ(to_hex(buffer), to_hex(message(before, Bytes(40 + 16, untouched_byte))));
}

TEST(encode_imported, two_in_one_message_count_the_segments_of_both) {
    const Letter letter{{5, 2}, {6, 3}, {0x03}};
    Bytes buffer(64, untouched_byte);
    std::uint32_t segments = 0;
    ASSERT_EQ(encode_ext(&letter, buffer.data(), buffer.size(), nullptr, &segments, 0), 2u + 5 + 2 + 6);
    EXPECT_EQ(segments, 1u + 2 + 3);
}

// Once for the length of what it is nested in, once for its draft. Written field by field, each level above it would
// measure it anew.
TEST(encode_imported, below_a_message_with_a_list_is_measured_twice_if_nobody_counts) {
    const Bag bag{{{{5, 0}, {6, 0}, {0x03}}, {0x01}}, nullptr, 0, {0x01}};
    Bytes buffer(64, untouched_byte);
    measurings_of_stamps = 0;
    ASSERT_EQ(encode_ext(&bag, buffer.data(), buffer.size(), nullptr, nullptr, 0), 2u + 2 + 2 + 5 + 2 + 6);
    EXPECT_EQ(measurings_of_stamps, 2u * 2);
}

}  // namespace
}  // namespace test
}  // namespace vesk
