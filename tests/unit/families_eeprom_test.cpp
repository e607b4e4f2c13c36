// EEPROM records: eeprom_data and scratch_eeprom, the types with bytes fields.
#include <gtest/gtest.h>

#include "tests/support/api.hpp"

namespace vesk::test {
namespace {

// ---- eeprom_data ---------------------------------------------------------------------------------------------------

TEST(eeprom_data, field_30_alone_takes_a_two_byte_tag) {
    vesk_eeprom_data eeprom = {};
    eeprom.f30 = 300;
    VESK_MARK(&eeprom, VESK_EEPROM_DATA_F30);
    EXPECT_EQ(to_hex(encoded(eeprom)), "f0 01 ac 02");
}

TEST(eeprom_data, tags_take_one_byte_up_to_field_15_and_two_from_field_16) {
    vesk_eeprom_data eeprom = {};
    char empty[] = "";
    for (char** text :
         {&eeprom.f4, &eeprom.f5, &eeprom.f6, &eeprom.f7, &eeprom.f8, &eeprom.f9, &eeprom.f10, &eeprom.f11, &eeprom.f12,
          &eeprom.f13, &eeprom.f14, &eeprom.f15, &eeprom.f16, &eeprom.f22, &eeprom.f26}) {
        *text = empty;
    }
    std::memset(eeprom.present, 0xFF, sizeof eeprom.present);
    EXPECT_EQ(to_hex(encoded(eeprom)),
              to_hex(hex("0A 00  10 00  18 00  22 00  2A 00  32 00  3A 00  42 00  4A 00  52 00  5A 00  62 00  6A 00"
                         "72 00  7A 00  82 01 00  88 01 00  90 01 00  98 01 00  A2 01 00  A8 01 00  B2 01 00"
                         "B8 01 00  C0 01 00  C8 01 00  D2 01 00  D8 01 00  E0 01 00  E8 01 00  F0 01 00")));
}

TEST(eeprom_data, strings_own_a_block_each) {
    Bytes input;
    for (std::uint32_t number = 4; number <= 16; ++number) input = message(input, text_field(number, "text"));
    input = message(input, text_field(22, "text"), text_field(26, "text"));
    const Decoded<vesk_eeprom_data> eeprom(input);
    ASSERT_EQ(eeprom.code, VESK_OK);
    EXPECT_EQ(eeprom.ledger.history(), std::vector<Request>(15, {Request::What::alloc, 5}));
}

TEST(eeprom_data, fields_from_31_on_are_skipped) {
    const Bytes known = number_field(30, 1);
    const Decoded<vesk_eeprom_data> eeprom(message(number_field(31, 5), tag(31, fixed64_type),
                                                   hex("01 02 03 04 05 06 07 08"), text_field(32, "north"),
                                                   tag(1000, fixed32_type), hex("01 02 03 04"), known));
    ASSERT_EQ(eeprom.code, VESK_OK);
    EXPECT_EQ(to_hex(encoded(eeprom.message)), to_hex(known));
}

// ---- Bytes fields --------------------------------------------------------------------------------------------------

TEST(eeprom_data, bytes_past_the_end_are_malformed_and_leave_no_pointer) {
    for (const std::uint32_t flags : {0u, 1u}) {
        const Decoded<vesk_eeprom_data> eeprom(hex("10 01  A2 01 04 DE AD BF"), flags);
        EXPECT_EQ(eeprom.code, VESK_MALFORMED);
        EXPECT_EQ(eeprom->f20, nullptr);
        EXPECT_EQ(eeprom->f20_length, 0u);
        EXPECT_FALSE(VESK_HAS(&eeprom.message, VESK_EEPROM_DATA_F20));
        EXPECT_EQ(eeprom.ledger.requests_made(), 0u);
    }
}

TEST(eeprom_data, bytes_length_that_would_wrap_is_malformed) {
    EXPECT_EQ(decode_code<vesk_eeprom_data>(hex("A2 01 FF FF FF FF 0F")), VESK_MALFORMED);
}

template <class T>
void expect_empty_bytes_are_written_and_read(unsigned bit, const char* digits, std::uint64_t T::*length) {
    for (const std::uint32_t flags : {0u, 1u}) {
        SCOPED_TRACE(std::string(Api<T>::name) + ", flags " + std::to_string(flags));
        T original = {};
        VESK_MARK(&original, bit);
        EXPECT_EQ(to_hex(encoded(original, flags)), digits);

        const Decoded<T> decoded(hex(digits), flags);
        ASSERT_EQ(decoded.code, VESK_OK);
        EXPECT_EQ(decoded.message.*length, 0u);
        EXPECT_TRUE(VESK_HAS(&decoded.message, bit));
        EXPECT_EQ(to_hex(encoded(decoded.message, flags)), digits);
    }
}

TEST(eeprom_records, empty_bytes_are_written_as_tag_and_zero_and_read_as_present) {
    expect_empty_bytes_are_written_and_read(VESK_EEPROM_DATA_F20, "a2 01 00", &vesk_eeprom_data::f20_length);
    expect_empty_bytes_are_written_and_read(VESK_SCRATCH_EEPROM_F2, "12 00", &vesk_scratch_eeprom::f2_length);
}

TEST(eeprom_records, repeated_bytes_are_malformed) {
    for (const std::uint32_t flags : {0u, 1u}) {
        EXPECT_EQ(decode_code<vesk_eeprom_data>(message(text_field(20, "a"), text_field(20, "a")), flags),
                  VESK_MALFORMED);
        EXPECT_EQ(decode_code<vesk_scratch_eeprom>(message(text_field(2, "a"), text_field(2, "a")), flags),
                  VESK_MALFORMED);
    }
}

TEST(scratch_eeprom, copied_bytes_have_a_block_of_their_own) {
    const Decoded<vesk_scratch_eeprom> scratch(hex("12 03 0A 00 0B"));
    ASSERT_EQ(scratch.code, VESK_OK);
    EXPECT_EQ(scratch.ledger.history(), (std::vector<Request>{{Request::What::alloc, 3}}));
    EXPECT_TRUE(scratch.ledger.owns(scratch->f2));
    EXPECT_EQ(scratch->f2_length, 3u);
    EXPECT_EQ(to_hex(Bytes(scratch->f2, scratch->f2 + 3)), "0a 00 0b");
}

TEST(scratch_eeprom, bytes_by_reference_point_into_the_input_and_stay_at_free) {
    Decoded<vesk_scratch_eeprom> scratch(message(text_field(1, "one"), text_field(2, "data"), text_field(4, "four")),
                                         VESK_BYTES_BY_REFERENCE);
    ASSERT_EQ(scratch.code, VESK_OK);
    std::uint8_t* const data = scratch.bytes.data() + 7;  // behind field 1 and the tag and length of field 2
    EXPECT_EQ(scratch->f2, data);
    EXPECT_EQ(scratch->f2_length, 4u);

    scratch.ledger.clear_history();
    vesk_scratch_eeprom_free_ext(&scratch.message, Ledger::release, &scratch.ledger, VESK_BYTES_BY_REFERENCE);
    EXPECT_EQ(scratch.ledger.history(),
              (std::vector<Request>{{Request::What::release, 4}, {Request::What::release, 5}}));
    EXPECT_EQ(scratch->f1, nullptr);
    EXPECT_EQ(scratch->f4, nullptr);
    EXPECT_EQ(scratch->f2, data);
    EXPECT_EQ(scratch->f2_length, 4u);
}

TEST(scratch_eeprom, bytes_listed_by_reference_are_neither_copied_nor_counted) {
    char one[] = "one";
    std::uint8_t data[] = {1, 2, 3, 4, 5};
    vesk_scratch_eeprom scratch = {};
    scratch.f1 = one;
    scratch.f2 = data;
    scratch.f2_length = sizeof data;
    scratch.f3 = 9;
    VESK_MARK(&scratch, VESK_SCRATCH_EEPROM_F1);
    VESK_MARK(&scratch, VESK_SCRATCH_EEPROM_F2);
    VESK_MARK(&scratch, VESK_SCRATCH_EEPROM_F3);

    const Bytes expected = message(text_field(1, "one"), tag(2, length_type), varint(5), number_field(3, 9));
    Bytes buffer(expected.size());
    vesk_segment segments[3];
    std::uint32_t count = 3;
    EXPECT_EQ(vesk_scratch_eeprom_encode_ext(&scratch, buffer.data(), buffer.size(), segments, &count,
                                             VESK_BYTES_BY_REFERENCE),
              expected.size());
    EXPECT_EQ(to_hex(buffer), to_hex(expected));
    ASSERT_EQ(count, 3u);
    EXPECT_EQ(segments[0].data, buffer.data());
    EXPECT_EQ(segments[0].length, 7u);
    EXPECT_EQ(segments[1].data, data);
    EXPECT_EQ(segments[1].length, 5u);
    EXPECT_EQ(segments[2].data, buffer.data() + 7);
    EXPECT_EQ(segments[2].length, 2u);
}

}  // namespace
}  // namespace vesk::test
