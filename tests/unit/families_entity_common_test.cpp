// Entity common data: the status and power blocks, fru_common_attribute and entity_common_data.
#include <gtest/gtest.h>

#include "tests/support/api.hpp"

namespace vesk::test {
namespace {

TEST(entity_admin_status_data, nothing_present_encodes_to_nothing) {
    vesk_entity_admin_status_data status = {};
    EXPECT_EQ(to_hex(encoded(status)), "");
    status.f1 = 7;  // without its bit a value is not written
    EXPECT_EQ(to_hex(encoded(status)), "");
}

TEST(entity_admin_status_data, empty_input_decodes_to_zeros) {
    const Decoded<vesk_entity_admin_status_data> status(hex(""));
    ASSERT_EQ(status.code, VESK_OK);
    EXPECT_EQ(status->f1, 0u);
    EXPECT_EQ(status->f2, 0u);
    EXPECT_EQ(status->f3, 0u);
    EXPECT_EQ(status->f4, 0u);
    EXPECT_TRUE(has_no_presence(status.message));
}

// ---- entity_common_data --------------------------------------------------------------------------------------------

TEST(entity_common_data, flag_received_as_5_is_stored_and_written_as_1) {
    for (const std::uint32_t number : {6u, 7u, 8u, 13u}) {
        const Decoded<vesk_entity_common_data> entity(number_field(number, 5));
        ASSERT_EQ(entity.code, VESK_OK) << number;
        EXPECT_EQ(entity->f6, number == 6) << number;
        EXPECT_EQ(entity->f7, number == 7) << number;
        EXPECT_EQ(entity->f8, number == 8) << number;
        EXPECT_EQ(entity->f13, number == 13) << number;
        EXPECT_EQ(to_hex(encoded(entity.message)), to_hex(number_field(number, 1))) << number;
    }
}

TEST(entity_common_data, flag_received_as_0_is_present_and_written) {
    for (const std::uint32_t number : {6u, 7u, 8u, 13u}) {
        const Decoded<vesk_entity_common_data> entity(number_field(number, 0));
        ASSERT_EQ(entity.code, VESK_OK) << number;
        EXPECT_EQ(to_hex(encoded(entity.message)), to_hex(number_field(number, 0))) << number;
    }
}

TEST(entity_common_data, f20_keeps_64_bits) {
    for (const std::uint64_t value : {(std::uint64_t{1} << 40) + 1, ~std::uint64_t{0}}) {
        const Decoded<vesk_entity_common_data> entity(number_field(20, value));
        ASSERT_EQ(entity.code, VESK_OK);
        EXPECT_EQ(entity->f20, value);
        EXPECT_TRUE(VESK_HAS(&entity.message, VESK_ENTITY_COMMON_DATA_F20));
        EXPECT_EQ(to_hex(encoded(entity.message)), to_hex(number_field(20, value)));
    }
}

TEST(entity_common_data, tags_take_one_byte_up_to_field_15_and_two_from_field_16) {
    vesk_entity_common_data entity = {};
    char empty[] = "";
    entity.f2 = entity.f3 = entity.f5 = empty;
    std::memset(entity.present, 0xFF, sizeof entity.present);
    EXPECT_EQ(to_hex(encoded(entity)), to_hex(hex("0A 00  12 00  1A 00  20 00  2A 00  30 00  38 00  40 00  4A 00  52 00"
                                                  "58 00  60 00  68 00  70 00  78 00"
                                                  "80 01 00  88 01 00  92 01 00  9A 01 00  A0 01 00")));
}

TEST(entity_common_data, repeated_string_is_malformed) {
    for (const std::uint32_t number : {2u, 3u, 5u}) {
        EXPECT_EQ(decode_code<vesk_entity_common_data>(text_field(number, "a")), VESK_OK);
        EXPECT_EQ(decode_code<vesk_entity_common_data>(message(text_field(number, "a"), text_field(number, "b"))),
                  VESK_MALFORMED)
            << number;
    }
}

TEST(entity_common_data, fields_from_21_on_are_skipped) {
    const Bytes known = number_field(4, 9);
    const Decoded<vesk_entity_common_data> entity(message(number_field(21, 5), tag(21, fixed64_type),
                                                          hex("01 02 03 04 05 06 07 08"), text_field(22, "north"),
                                                          tag(1000, fixed32_type), hex("01 02 03 04"), known));
    ASSERT_EQ(entity.code, VESK_OK);
    EXPECT_EQ(to_hex(encoded(entity.message)), to_hex(known));
}

// ---- fru_common_attribute ------------------------------------------------------------------------------------------

TEST(fru_common_attribute, empty_status_blocks_are_written_only_if_present) {
    vesk_fru_common_attribute fru = {};
    fru.f1 = 3;
    VESK_MARK(&fru, VESK_FRU_COMMON_ATTRIBUTE_F1);
    EXPECT_EQ(to_hex(encoded(fru)), "08 03");
    VESK_MARK(&fru, VESK_FRU_COMMON_ATTRIBUTE_OPER_STATUS);
    EXPECT_EQ(to_hex(encoded(fru)), "08 03 4a 00");
    VESK_MARK(&fru, VESK_FRU_COMMON_ATTRIBUTE_ADMIN_STATUS);
    EXPECT_EQ(to_hex(encoded(fru)), "08 03 4a 00 52 00");
}

TEST(fru_common_attribute, empty_status_block_is_present_after_decode) {
    const Decoded<vesk_fru_common_attribute> fru(hex("4A 00"));
    ASSERT_EQ(fru.code, VESK_OK);
    EXPECT_TRUE(VESK_HAS(&fru.message, VESK_FRU_COMMON_ATTRIBUTE_OPER_STATUS));
    EXPECT_FALSE(VESK_HAS(&fru.message, VESK_FRU_COMMON_ATTRIBUTE_ADMIN_STATUS));
    EXPECT_TRUE(has_no_presence(fru->oper_status));
}

TEST(fru_common_attribute, repeated_string_is_malformed) {
    for (const std::uint32_t number : {3u, 4u, 7u, 8u}) {
        const Decoded<vesk_fru_common_attribute> fru(
            message(text_field(number, "north"), number_field(1, 2), text_field(number, "south")));
        EXPECT_EQ(fru.code, VESK_MALFORMED) << number;
        EXPECT_EQ(to_hex(encoded(fru.message)), to_hex(message(number_field(1, 2), text_field(number, "north"))))
            << "what stood before the error stays: " << number;
    }
}

TEST(fru_common_attribute, fields_from_11_on_are_skipped) {
    const Bytes known = number_field(1, 9);
    const Decoded<vesk_fru_common_attribute> fru(message(number_field(11, 5), tag(11, fixed64_type),
                                                         hex("01 02 03 04 05 06 07 08"), text_field(11, "north"),
                                                         tag(11, fixed32_type), hex("01 02 03 04"), known));
    ASSERT_EQ(fru.code, VESK_OK);
    EXPECT_EQ(to_hex(encoded(fru.message)), to_hex(known));
}

}  // namespace
}  // namespace vesk::test
