// Policy and EID bindings: inv_policy and the six types that bind an entity identifier to something else.
#include <gtest/gtest.h>

#include "tests/support/api.hpp"

namespace vesk::test {
namespace {

// ---- The EID -------------------------------------------------------------------------------------------------------

template <class T>
void expect_empty_eid_is_written_only_if_present(unsigned eid_bit, unsigned f3_bit, const char* without,
                                                 const char* with) {
    SCOPED_TRACE(Api<T>::name);
    T binding = {};
    VESK_MARK(&binding, f3_bit);
    EXPECT_EQ(to_hex(encoded(binding)), without);
    VESK_MARK(&binding, eid_bit);
    EXPECT_EQ(to_hex(encoded(binding)), with);
}

TEST(fru_prefix_data, empty_eid_without_its_bit_is_not_written) {
    char west[] = "west";
    vesk_fru_prefix_data prefix = {};
    prefix.f1 = 1;
    prefix.f3 = west;
    VESK_MARK(&prefix, VESK_FRU_PREFIX_DATA_F1);
    VESK_MARK(&prefix, VESK_FRU_PREFIX_DATA_F3);
    EXPECT_EQ(to_hex(encoded(prefix)), "08 01 1a 04 77 65 73 74");
    VESK_MARK(&prefix, VESK_FRU_PREFIX_DATA_EID);
    EXPECT_EQ(to_hex(encoded(prefix)), "08 01 12 00 1a 04 77 65 73 74");
}

TEST(eid_bindings, empty_eid_is_written_only_if_present) {
    expect_empty_eid_is_written_only_if_present<vesk_container_eid_nodeid_data>(
        VESK_CONTAINER_EID_NODEID_DATA_EID, VESK_CONTAINER_EID_NODEID_DATA_F3, "18 00", "0a 00 18 00");
    expect_empty_eid_is_written_only_if_present<vesk_register_container_eid_data>(
        VESK_REGISTER_CONTAINER_EID_DATA_EID, VESK_REGISTER_CONTAINER_EID_DATA_F3, "18 00", "12 00 18 00");
    expect_empty_eid_is_written_only_if_present<vesk_unregister_fru_type_data>(
        VESK_UNREGISTER_FRU_TYPE_DATA_EID, VESK_UNREGISTER_FRU_TYPE_DATA_F3, "18 00", "12 00 18 00");
    expect_empty_eid_is_written_only_if_present<vesk_fru_snmp_idx_data>(
        VESK_FRU_SNMP_IDX_DATA_EID, VESK_FRU_SNMP_IDX_DATA_F3, "18 00", "12 00 18 00");
}

TEST(fru_prefix_data, eid_with_content_is_written_without_its_bit) {
    vesk_fru_prefix_data prefix = {};
    prefix.eid.f1 = 7;
    VESK_MARK(&prefix.eid, VESK_DRIN_EID_ST_F1);
    EXPECT_EQ(to_hex(encoded(prefix)), "12 02 08 07");
}

TEST(register_container_eid_data, eid_past_the_end_is_malformed) {
    const Decoded<vesk_register_container_eid_data> registration(hex("08 01  12 03 08 07"));
    EXPECT_EQ(registration.code, VESK_MALFORMED);
    EXPECT_TRUE(VESK_HAS(&registration.message, VESK_REGISTER_CONTAINER_EID_DATA_F1));
    EXPECT_FALSE(VESK_HAS(&registration.message, VESK_REGISTER_CONTAINER_EID_DATA_EID));
}

TEST(register_container_eid_data, eid_length_that_would_wrap_is_malformed) {
    EXPECT_EQ(decode_code<vesk_register_container_eid_data>(hex("12 FF FF FF FF 0F")), VESK_MALFORMED);
}

// ---- Strings -------------------------------------------------------------------------------------------------------

TEST(inv_policy, present_string_that_is_null_is_not_written) {
    char south[] = "south";
    for (const bool first : {true, false}) {
        vesk_inv_policy policy = {};
        (first ? policy.f2 : policy.f1) = south;
        VESK_MARK(&policy, VESK_INV_POLICY_F1);
        VESK_MARK(&policy, VESK_INV_POLICY_F2);
        VESK_MARK(&policy, VESK_INV_POLICY_F3);
        const Bytes expected = message(text_field(first ? 2 : 1, "south"), number_field(3, 0));
        EXPECT_EQ(to_hex(encoded(policy)), to_hex(expected)) << "null: f" << (first ? 1 : 2);
    }
}

TEST(inv_policy, repeated_string_is_malformed) {
    EXPECT_EQ(decode_code<vesk_inv_policy>(message(text_field(1, "a"), text_field(1, "a"))), VESK_MALFORMED);
    EXPECT_EQ(decode_code<vesk_inv_policy>(message(text_field(2, "a"), text_field(2, "a"))), VESK_MALFORMED);
}

TEST(container_location_data, repeated_string_is_malformed) {
    const Decoded<vesk_container_location_data> location(message(text_field(3, "north"), text_field(3, "south")));
    EXPECT_EQ(location.code, VESK_MALFORMED);
    EXPECT_STREQ(location->f3, "north");
}

TEST(fru_prefix_data, repeated_string_is_malformed) {
    EXPECT_EQ(decode_code<vesk_fru_prefix_data>(message(text_field(3, "a"), text_field(3, "a"))), VESK_MALFORMED);
}

TEST(container_eid_nodeid_data, repeated_string_is_malformed) {
    EXPECT_EQ(decode_code<vesk_container_eid_nodeid_data>(message(text_field(2, "a"), text_field(2, "a"))),
              VESK_MALFORMED);
}

// ---- Types of one layout -------------------------------------------------------------------------------------------

TEST(eid_bindings, types_of_one_layout_read_each_other) {
    const Bytes text_binding =
        message(number_field(1, 4), message_field(2, number_field(1, 7)), text_field(3, "bay 2"));
    EXPECT_EQ(to_hex(encoded(Decoded<vesk_fru_prefix_data>(text_binding).message)), to_hex(text_binding));
    EXPECT_EQ(to_hex(encoded(Decoded<vesk_container_location_data>(text_binding).message)), to_hex(text_binding));

    const Bytes number_binding =
        message(number_field(1, 4), message_field(2, number_field(1, 7)), number_field(3, 5), number_field(4, 6));
    EXPECT_EQ(to_hex(encoded(Decoded<vesk_unregister_fru_type_data>(number_binding).message)), to_hex(number_binding));
    EXPECT_EQ(to_hex(encoded(Decoded<vesk_fru_snmp_idx_data>(number_binding).message)), to_hex(number_binding));
}

}  // namespace
}  // namespace vesk::test
