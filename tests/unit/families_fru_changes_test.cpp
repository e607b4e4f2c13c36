// FRU change records: the insertion or removal of a unit, and the updates of its prefix, location, SNMP range and
// attributes.
#include <gtest/gtest.h>

#include "tests/support/families.hpp"

namespace vesk::test {
namespace {

// ---- inv_fru_oir_data ----------------------------------------------------------------------------------------------

TEST(inv_fru_oir_data, empty_policy_is_written_only_if_present) {
    expect_empty_is_written_only_if_present<vesk_inv_fru_oir_data>(VESK_INV_FRU_OIR_DATA_POLICY, "0a 00");
    vesk_inv_fru_oir_data change = {};
    change.f2 = 4;
    VESK_MARK(&change, VESK_INV_FRU_OIR_DATA_F2);
    EXPECT_EQ(to_hex(encoded(change)), "10 04");
    VESK_MARK(&change, VESK_INV_FRU_OIR_DATA_POLICY);
    EXPECT_EQ(to_hex(encoded(change)), "0a 00 10 04");
}

TEST(inv_fru_oir_data, tags_take_one_byte_up_to_field_15_and_two_from_field_16) {
    vesk_inv_fru_oir_data change = {};
    change.f7 = change.f8 = literal("");
    std::memset(change.present, 0xFF, sizeof change.present);
    EXPECT_EQ(to_hex(encoded(change)),
              to_hex(hex("0A 00  10 00  1A 00  20 00  28 00  30 00  3A 00  42 00  48 00  50 00  58 00  60 00  68 00"
                         "70 00  78 00  80 01 00  88 01 00  90 01 00  98 01 00")));
}

TEST(inv_fru_oir_data, f19_alone_takes_three_bytes) {
    vesk_inv_fru_oir_data change = {};
    change.f19 = 1;
    VESK_MARK(&change, VESK_INV_FRU_OIR_DATA_F19);
    EXPECT_EQ(to_hex(encoded(change)), "98 01 01");
    const Decoded<vesk_inv_fru_oir_data> decoded(hex("98 01 01"));
    ASSERT_EQ(decoded.code, VESK_OK);
    EXPECT_EQ(decoded->f19, 1);
    EXPECT_EQ(presence_of(decoded.message), "00 00 04");
}

TEST(inv_fru_oir_data, policy_stands_in_front_of_the_eid_and_both_are_written_without_their_bits) {
    vesk_inv_fru_oir_data change = {};
    change.eid.f1 = 7;
    VESK_MARK(&change.eid, VESK_DRIN_EID_ST_F1);
    change.policy.f3 = 9;
    VESK_MARK(&change.policy, VESK_INV_POLICY_F3);
    EXPECT_EQ(to_hex(encoded(change)), "0a 02 18 09 1a 02 08 07");
    expect_empty_is_written_only_if_present<vesk_inv_fru_oir_data>(VESK_INV_FRU_OIR_DATA_EID, "1a 00");
}

TEST(inv_fru_oir_data, fields_from_20_on_are_skipped) {
    EXPECT_EQ(to_hex(reencoded<vesk_inv_fru_oir_data>(
                  message(number_field(20, 5), number_field(19, 1), text_field(21, "north")))),
              "98 01 01");
}

// ---- The records together ------------------------------------------------------------------------------------------

TEST(fru_change_records, flag_received_as_7_is_stored_and_written_as_1) {
    expect_flags_become_1<vesk_inv_fru_oir_data>({18, 19}, 7);
    expect_flags_become_1<vesk_inv_fru_prefix_update_data>({4}, 7);
    expect_flags_become_1<vesk_inv_fru_location_update_data>({4}, 7);
    expect_flags_become_1<vesk_inv_fru_attr_update_data>({6, 7}, 7);
    const Decoded<vesk_inv_fru_attr_update_data> update(number_field(7, 7));
    EXPECT_EQ(update->f7, 1);
}

TEST(inv_fru_location_update_data, repeated_text_is_malformed) {
    const Decoded<vesk_inv_fru_location_update_data> update(
        message(text_field(2, "bay 2"), number_field(3, 1), text_field(2, "bay 3")));
    EXPECT_EQ(update.code, VESK_MALFORMED);
    EXPECT_STREQ(update->f2, "bay 2");
    EXPECT_EQ(update->f3, 1u);
    expect_repetition_is_malformed<vesk_inv_fru_location_update_data>({2});
}

TEST(fru_change_records, repeated_string_is_malformed) {
    expect_repetition_is_malformed<vesk_inv_fru_oir_data>({7, 8});
    expect_repetition_is_malformed<vesk_inv_fru_prefix_update_data>({2});
    expect_repetition_is_malformed<vesk_inv_fru_attr_update_data>({4, 5});
}

TEST(fru_change_records, present_string_that_is_null_is_not_written) {
    expect_null_is_not_written<vesk_inv_fru_oir_data>({VESK_INV_FRU_OIR_DATA_F7, VESK_INV_FRU_OIR_DATA_F8});
    expect_null_is_not_written<vesk_inv_fru_prefix_update_data>({VESK_INV_FRU_PREFIX_UPDATE_DATA_F2});
    expect_null_is_not_written<vesk_inv_fru_location_update_data>({VESK_INV_FRU_LOCATION_UPDATE_DATA_F2});
    expect_null_is_not_written<vesk_inv_fru_attr_update_data>(
        {VESK_INV_FRU_ATTR_UPDATE_DATA_F4, VESK_INV_FRU_ATTR_UPDATE_DATA_F5});
}

TEST(fru_change_records, empty_eid_is_written_only_if_present) {
    expect_empty_is_written_only_if_present<vesk_inv_fru_prefix_update_data>(0, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_fru_location_update_data>(0, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_fru_snmp_range_update_data>(0, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_fru_attr_update_data>(0, "0a 00");
}

TEST(fru_change_records, prefix_and_location_updates_read_each_other) {
    const Bytes update =
        message(message_field(1, number_field(1, 7)), text_field(2, "bay 2"), number_field(3, 5), number_field(4, 1));
    EXPECT_EQ(to_hex(reencoded<vesk_inv_fru_prefix_update_data>(update)), to_hex(update));
    EXPECT_EQ(to_hex(reencoded<vesk_inv_fru_location_update_data>(update)), to_hex(update));
}

}  // namespace
}  // namespace vesk::test
