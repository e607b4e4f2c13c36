// Varints, tags and the skip of an unknown field.
#include "runtime/wire.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/bytes.hpp"

namespace vesk::test {
namespace {

struct Read {
    std::size_t consumed;  // 0 if the reader refused
    std::uint64_t value;
};

constexpr std::uint64_t untouched_value = 0x5A5A5A5A;

Read read32(const Bytes& input) {
    std::uint32_t value = untouched_value;
    const std::uint8_t* behind = read_varint32(input.data(), input.data() + input.size(), &value);
    return {behind == nullptr ? 0 : static_cast<std::size_t>(behind - input.data()), value};
}

Read read64(const Bytes& input) {
    std::uint64_t value = untouched_value;
    const std::uint8_t* behind = read_long_varint64(input.data(), input.data() + input.size(), &value);
    return {behind == nullptr ? 0 : static_cast<std::size_t>(behind - input.data()), value};
}

struct ReadCase {
    const char* name;
    const char* input;
    std::size_t consumed;
    std::uint64_t value;
};

void expect_reads(Read (*read)(const Bytes&), std::initializer_list<ReadCase> cases) {
    for (const ReadCase& row : cases) {
        const Read result = read(hex(row.input));
        EXPECT_EQ(result.consumed, row.consumed) << row.name << ": " << row.input;
        EXPECT_EQ(result.value, row.value) << row.name << ": " << row.input;
    }
}

TEST(read_varint32, every_width_is_read) {
    expect_reads(read32, {
                             {"zero", "00", 1, 0},
                             {"largest of one byte", "7F", 1, 0x7F},
                             {"smallest of two bytes", "80 01", 2, 0x80},
                             {"three hundred", "AC 02", 2, 300},
                             {"largest of two bytes", "FF 7F", 2, 0x3FFF},
                             {"three bytes", "80 80 01", 3, 0x4000},
                             {"four bytes", "80 80 80 01", 4, 0x200000},
                             {"five bytes", "80 80 80 80 01", 5, 0x10000000},
                             {"largest", "FF FF FF FF 0F", 5, 0xFFFFFFFF},
                             {"bytes behind it stay", "AC 02 FF", 2, 300},
                         });
}

TEST(read_varint32, ten_byte_negative_keeps_low_bits) {
    expect_reads(read32, {{"-1 in ten bytes", "FF FF FF FF FF FF FF FF FF 01", 10, 0xFFFFFFFF}});
}

TEST(read_varint32, fifth_byte_gives_only_its_low_four_bits) {
    expect_reads(read32, {{"7F as fifth byte", "80 80 80 80 7F", 5, 0xF0000000},
                          {"FF as fifth byte", "80 80 80 80 FF 00", 6, 0xF0000000}});
}

TEST(read_varint32, extra_continuation_bytes_are_stepped_over) {
    expect_reads(read32, {{"150 in twelve bytes", "96 81 80 80 80 80 80 80 80 80 80 00", 12, 150}});
}

TEST(read_varint32, end_inside_the_varint_is_refused_and_stores_nothing) {
    expect_reads(read32, {
                             {"empty", "", 0, untouched_value},
                             {"after one byte", "80", 0, untouched_value},
                             {"after two bytes", "80 80", 0, untouched_value},
                             {"after three bytes", "80 80 80", 0, untouched_value},
                             {"after four bytes", "80 80 80 80", 0, untouched_value},
                             {"after five bytes", "80 80 80 80 80", 0, untouched_value},
                             {"inside extra bytes", "80 80 80 80 80 80 80", 0, untouched_value},
                         });
}

TEST(read_long_varint64, every_width_is_read) {
    expect_reads(read64, {
                             {"zero", "00", 1, 0},
                             {"2^40 + 1", "81 80 80 80 80 20", 6, (std::uint64_t{1} << 40) + 1},
                             {"nine bytes", "FF FF FF FF FF FF FF FF 7F", 9, 0x7FFFFFFFFFFFFFFF},
                             {"largest", "FF FF FF FF FF FF FF FF FF 01", 10, 0xFFFFFFFFFFFFFFFF},
                         });
}

TEST(read_long_varint64, tenth_byte_gives_only_its_lowest_bit) {
    expect_reads(read64, {{"7E as tenth byte", "80 80 80 80 80 80 80 80 80 7E", 10, 0},
                          {"7F as tenth byte", "80 80 80 80 80 80 80 80 80 7F", 10, std::uint64_t{1} << 63}});
}

TEST(read_long_varint64, extra_continuation_bytes_are_stepped_over) {
    expect_reads(read64, {{"twelve bytes", "96 81 80 80 80 80 80 80 80 80 80 00", 12, 150}});
}

TEST(read_long_varint64, end_inside_the_varint_is_refused_and_stores_nothing) {
    Bytes input;
    for (std::size_t length = 0; length <= 12; ++length) {
        const Read result = read64(input);
        EXPECT_EQ(result.consumed, 0u) << "after " << length << " bytes";
        EXPECT_EQ(result.value, untouched_value);
        input.push_back(0x80);
    }
}

TEST(read_length, content_must_lie_before_the_end) {
    const Bytes input = hex("03 61 62 63");
    const Varint length = read_length(input.data(), input.data() + 4);
    EXPECT_EQ(length.at, input.data() + 1);
    EXPECT_EQ(length.value, 3u);
    EXPECT_EQ(read_length(input.data(), input.data() + 3).at, nullptr);
    EXPECT_EQ(read_length(input.data(), input.data()).at, nullptr);
}

TEST(read_length, long_one_is_read_and_held_to_the_end) {
    Bytes input = hex("80 02");
    input.resize(2 + 256, 0x61);
    const Varint length = read_length(input.data(), input.data() + input.size());
    EXPECT_EQ(length.at, input.data() + 2);
    EXPECT_EQ(length.value, 256u);
    EXPECT_EQ(read_length(input.data(), input.data() + input.size() - 1).at, nullptr);
    EXPECT_EQ(read_length(input.data(), input.data() + 1).at, nullptr) << "the length itself runs past the end";
}

struct SkipCase {
    const char* name;
    std::uint32_t wire_type;
    const char* input;
    std::int32_t code;
    std::size_t consumed;
};

TEST(skip_field, every_wire_type_by_its_rule) {
    for (const SkipCase& row : std::initializer_list<SkipCase>{
             {"varint", 0, "AC 02 08", VESK_OK, 2},
             {"over-long varint", 0, "80 80 80 80 80 80 80 80 80 80 00", VESK_OK, 11},
             {"varint cut short", 0, "80 80", VESK_MALFORMED, 0},
             {"varint at the end", 0, "", VESK_MALFORMED, 0},
             {"fixed64", 1, "01 02 03 04 05 06 07 08 09", VESK_OK, 8},
             {"fixed64 up to the end", 1, "01 02 03 04 05 06 07 08", VESK_OK, 8},
             {"length", 2, "02 61 62 63", VESK_OK, 3},
             {"length up to the end", 2, "02 61 62", VESK_OK, 3},
             {"length of nothing", 2, "00 61", VESK_OK, 1},
             {"over-long length", 2, "81 80 80 80 80 80 00 61 62", VESK_OK, 8},
             {"length cut short", 2, "80", VESK_MALFORMED, 0},
             {"length at the end", 2, "", VESK_MALFORMED, 0},
             {"fixed32", 5, "01 02 03 04 05", VESK_OK, 4},
             {"fixed32 up to the end", 5, "01 02 03 04", VESK_OK, 4},
             {"group start", 3, "00", VESK_UNKNOWN_WIRE_TYPE, 0},
             {"group end", 4, "00", VESK_UNKNOWN_WIRE_TYPE, 0},
             {"type 6", 6, "00", VESK_UNKNOWN_WIRE_TYPE, 0},
             {"type 7", 7, "00", VESK_UNKNOWN_WIRE_TYPE, 0},
         }) {
        const Bytes input = hex(row.input);
        const Step step = skip_field(row.wire_type, input.data(), input.data() + input.size());
        EXPECT_EQ(step.code, row.code) << row.name;
        if (row.code == VESK_OK) {
            EXPECT_EQ(static_cast<std::size_t>(step.at - input.data()), row.consumed) << row.name;
        }
    }
}

// A position that would lie behind the input stands at its end: either ends the field loop.
void expect_skip_ends_input(std::uint32_t wire_type, const char* digits) {
    const Bytes input = hex(digits);
    const std::uint8_t* end = input.data() + input.size();
    const Step step = skip_field(wire_type, input.data(), end);
    EXPECT_EQ(step.code, VESK_OK);
    EXPECT_EQ(step.at, end);
}

TEST(skip_field, fixed32_with_three_bytes_left_succeeds_and_ends_the_input) { expect_skip_ends_input(5, "01 02 03"); }
TEST(skip_field, fixed64_with_seven_bytes_left_succeeds_and_ends_the_input) {
    expect_skip_ends_input(1, "01 02 03 04 05 06 07");
}
TEST(skip_field, length_past_the_end_succeeds_and_ends_the_input) { expect_skip_ends_input(2, "FF FF FF FF 0F 61"); }

struct Written {
    std::uint64_t position;
    Bytes buffer;
};

// Writes into a buffer of `room` bytes that stands inside a larger one of EE.
Written write(std::uint64_t value, std::size_t room) {
    Bytes bytes(room + 2, 0xEE);
    const std::uint64_t position = write_varint(value, 0, {bytes.data(), room});
    return {position, bytes};
}

TEST(write_varint, every_width_is_written) {
    for (std::uint64_t value :
         {std::uint64_t{0}, std::uint64_t{0x7F}, std::uint64_t{0x80}, std::uint64_t{300}, std::uint64_t{0x3FFF},
          std::uint64_t{0x4000}, std::uint64_t{0xFFFFFFFF}, (std::uint64_t{1} << 40) + 1, ~std::uint64_t{0}}) {
        const Bytes expected = varint(value);
        Written written = write(value, 16);
        EXPECT_EQ(written.position, expected.size());
        written.buffer.resize(expected.size());
        EXPECT_EQ(to_hex(written.buffer), to_hex(expected));
        EXPECT_EQ(measure_varint(value), expected.size());
    }
}

TEST(write_varint, short_buffer_gets_what_fits_and_the_rest_is_counted) {
    const Written written = write(300, 1);
    EXPECT_EQ(written.position, 2u);
    EXPECT_EQ(to_hex(written.buffer), "ac ee ee");
}

TEST(write_varint, every_short_buffer_gets_what_fits) {
    for (std::uint64_t value : {std::uint64_t{0}, std::uint64_t{300}, std::uint64_t{0xFFFFFFFF}, ~std::uint64_t{0}}) {
        const Bytes whole = varint(value);
        for (std::size_t room = 0; room <= whole.size() + 1; ++room) {
            Bytes expected(room + 2, 0xEE);
            for (std::size_t i = 0; i < room && i < whole.size(); ++i) expected[i] = whole[i];
            const Written written = write(value, room);
            EXPECT_EQ(written.position, whole.size());
            EXPECT_EQ(to_hex(written.buffer), to_hex(expected)) << value << " into " << room;
        }
    }
}

TEST(write_varint, position_behind_the_buffer_stores_nothing) {
    Bytes bytes(8, 0xEE);
    EXPECT_EQ(write_varint(300, 4, {bytes.data(), 4}), 6u);
    EXPECT_EQ(write_varint(300, 5, {bytes.data(), 4}), 7u);
    EXPECT_EQ(to_hex(bytes), "ee ee ee ee ee ee ee ee");
}

TEST(measure_varint, is_what_write_varint_takes_at_the_edges_of_every_group) {
    for (unsigned bits = 0; bits <= 64; ++bits) {
        const std::uint64_t largest = bits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
        EXPECT_EQ(measure_varint(largest), varint(largest).size());
        EXPECT_EQ(measure_varint(largest + 1), varint(largest + 1).size());
    }
}

TEST(write_varint, null_buffer_measures) {
    EXPECT_EQ(write_varint(0xFFFFFFFF, 7, {nullptr, 0}), 12u);
    EXPECT_EQ(write_varint(~std::uint64_t{0}, 7, {nullptr, 0}), 17u);
}

TEST(write_varint, tag_of_field_16_takes_two_bytes) {
    Written written = write(make_tag(16, length_type), 2);
    EXPECT_EQ(make_tag(16, length_type), 130u);
    EXPECT_EQ(to_hex(written.buffer), "82 01 ee ee");
}

TEST(write_varint, tags_of_fields_32_to_34_take_two_bytes) {
    EXPECT_EQ(to_hex(write(make_tag(32, varint_type), 2).buffer), "80 02 ee ee");
    EXPECT_EQ(to_hex(write(make_tag(33, varint_type), 2).buffer), "88 02 ee ee");
    EXPECT_EQ(to_hex(write(make_tag(34, varint_type), 2).buffer), "90 02 ee ee");
}

TEST(write_length, only_the_low_32_bits_are_written) {
    Bytes bytes(8, 0xEE);
    EXPECT_EQ(write_length((std::uint64_t{7} << 32) + 5, 0, {bytes.data(), bytes.size()}), 1u);
    EXPECT_EQ(bytes[0], 5);
    EXPECT_EQ(measure_length((std::uint64_t{7} << 32) + 5), 1u);
}

// ---- Reading in words ----------------------------------------------------------------------------------------------

// Varints of every width, with and without extra continuation bytes, cut short, and bytes that never end.
std::vector<Bytes> varints_of_all_shapes() {
    std::vector<Bytes> shapes{hex("FF FF FF FF FF FF FF FF FF FF"), hex("80 80 80 80 80 80 80 80 80 80 80 80")};
    for (unsigned bits = 0; bits <= 64; ++bits) {
        const std::uint64_t largest = bits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
        for (const std::uint64_t value : {largest, largest + 1, largest & 0xA5A5A5A5A5A5A5A5}) {
            shapes.push_back(varint(value));
            shapes.push_back(over_long(value, 11));
        }
    }
    return shapes;
}

// The range ends at every place in and behind the varint, and the input at every place from there on.
template <class Value>
void expect_words_read_like_bytes(const std::uint8_t* (*read_varint)(const std::uint8_t*, const std::uint8_t*, Value*),
                                  Varint (*read_word)(const std::uint8_t*, const std::uint8_t*, Input)) {
    for (const Bytes& shape : varints_of_all_shapes()) {
        for (std::size_t before = 0; before <= 9; ++before) {
            for (std::size_t range = 0; range <= shape.size() + 1; ++range) {
                for (std::size_t behind = 0; behind <= 9; ++behind) {
                    Bytes input(before, 0x80);
                    input.insert(input.end(), shape.begin(), shape.end());
                    input.resize(before + range);
                    input.resize(before + range + behind, 0xFF);
                    input.shrink_to_fit();  // so that a sanitizer sees a read behind the end
                    const std::uint8_t* const at = input.data() + before;
                    const std::uint8_t* const end = at + range;
                    Value value = 0;
                    const std::uint8_t* const expected = read_varint(at, end, &value);
                    const Varint read = read_word(at, end, input_between(input.data(), input.data() + input.size()));
                    ASSERT_EQ(read.at, expected) << to_hex(shape) << " in a range of " << range << " bytes";
                    if (expected != nullptr) {
                        ASSERT_EQ(read.value, value) << to_hex(shape) << " in a range of " << range << " bytes";
                    }
                }
            }
        }
    }
}

TEST(read_word_varint32, every_varint_in_every_range_is_read_as_by_read_varint32) {
    expect_words_read_like_bytes<std::uint32_t>(read_varint32, read_word_varint32);
}

TEST(read_word_varint64, every_varint_in_every_range_is_read_as_by_read_long_varint64) {
    expect_words_read_like_bytes<std::uint64_t>(read_long_varint64, read_word_varint64);
}

TEST(read_long_tag, any_tag_is_read_as_by_read_varint32) {
    for (const Bytes& shape : varints_of_all_shapes()) {
        for (std::size_t length = 1; length <= shape.size(); ++length) {
            std::uint32_t tag = 0;
            const std::uint8_t* const expected = read_varint32(shape.data(), shape.data() + length, &tag);
            const Varint read = read_long_tag(shape.data(), shape.data() + length);
            if (shape[0] < 0x80) continue;
            ASSERT_EQ(read.at, expected) << to_hex(shape);
            if (expected != nullptr) {
                ASSERT_EQ(read.value, tag) << to_hex(shape);
            }
        }
    }
}

// ---- Putting -------------------------------------------------------------------------------------------------------

template <class Value>
void expect_word_is_put_before(Value value) {
    Bytes bytes(24, 0xEE);
    std::uint8_t* const end = bytes.data() + 14;
    const std::uint8_t* const begin = put_varint_before(end, value);
    EXPECT_EQ(to_hex(Bytes(begin, const_cast<const std::uint8_t*>(end))), to_hex(varint(value)));
    EXPECT_EQ(to_hex(Bytes(bytes.begin(), bytes.begin() + 4)), "ee ee ee ee") << "more is spoiled than the word";
    EXPECT_EQ(to_hex(Bytes(bytes.begin() + 14, bytes.end())), to_hex(Bytes(10, 0xEE)));
}

TEST(put_varint_before, every_width_is_put_and_no_more_than_8_bytes_before_its_end_are_spoiled) {
    for (unsigned bits = 0; bits <= 64; ++bits) {
        const std::uint64_t largest = bits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
        for (const std::uint64_t value : {largest, largest + 1, largest & 0xA5A5A5A5A5A5A5A5}) {
            expect_word_is_put_before(value);
            expect_word_is_put_before(static_cast<std::uint32_t>(value));
        }
    }
}

TEST(put_bytes, every_length_is_copied_and_nothing_else_is_touched) {
    for (std::size_t length = 0; length <= 300; ++length) {
        Bytes data(length);
        for (std::size_t i = 0; i < length; ++i) data[i] = static_cast<std::uint8_t>(i * 7 + 1);
        data.shrink_to_fit();  // so that a sanitizer sees a read behind the end
        Bytes bytes(length + 16, 0xEE);
        ASSERT_EQ(put_bytes(bytes.data() + 8, data.data(), length), bytes.data() + 8 + length);
        EXPECT_EQ(to_hex(Bytes(bytes.begin(), bytes.begin() + 8)), to_hex(Bytes(8, 0xEE)));
        EXPECT_EQ(to_hex(Bytes(bytes.begin() + 8, bytes.end() - 8)), to_hex(data));
        EXPECT_EQ(to_hex(Bytes(bytes.end() - 8, bytes.end())), to_hex(Bytes(8, 0xEE)));
    }
}

}  // namespace
}  // namespace vesk::test
