// Event registration and notification: the registrations, the acknowledgement, and notify_event_data, which carries
// any number of five records.
#include <gtest/gtest.h>

#include "tests/support/families.hpp"

namespace vesk::test {
namespace {

TEST(inv_event_ack, number_is_written_only_with_its_bit) {
    vesk_inv_event_ack ack = {};
    ack.f1 = 300;
    EXPECT_EQ(to_hex(encoded(ack)), "");
    VESK_MARK(&ack, VESK_INV_EVENT_ACK_F1);
    EXPECT_EQ(to_hex(encoded(ack)), "08 ac 02");
    ack.f1 = 0;
    EXPECT_EQ(to_hex(encoded(ack)), "08 00");
}

// ---- Registrations -------------------------------------------------------------------------------------------------

TEST(register_event_data, f16_alone_takes_three_bytes) {
    vesk_register_event_data registration = {};
    registration.f16 = 1;
    VESK_MARK(&registration, VESK_REGISTER_EVENT_DATA_F16);
    EXPECT_EQ(to_hex(encoded(registration)), "80 01 01");
    const Decoded<vesk_register_event_data> decoded(hex("80 01 01"));
    ASSERT_EQ(decoded.code, VESK_OK);
    EXPECT_EQ(presence_of(decoded.message), "00 80 00");
}

TEST(register_event_data, field_19_is_skipped_whatever_its_wire_type) {
    const Bytes before = message(number_field(1, 7), number_field(16, 1));
    const Bytes behind = message_field(18, number_field(3, 4));
    for (const Bytes& unknown : {number_field(19, 300), message(tag(19, fixed64_type), hex("01 02 03 04 05 06 07 08")),
                                 text_field(19, "north"), message(tag(19, fixed32_type), hex("01 02 03 04"))}) {
        const Decoded<vesk_register_event_data> registration(message(before, unknown, behind));
        ASSERT_EQ(registration.code, VESK_OK) << to_hex(unknown);
        EXPECT_EQ(to_hex(encoded(registration.message)), to_hex(message(before, behind))) << to_hex(unknown);
        EXPECT_TRUE(has_no_presence(Decoded<vesk_register_event_data>(unknown).message));
    }
}

TEST(register_event_data, tags_take_one_byte_up_to_field_15_and_two_from_field_16) {
    vesk_register_event_data registration = {};
    std::memset(registration.present, 0xFF, sizeof registration.present);
    EXPECT_EQ(to_hex(encoded(registration)),
              to_hex(hex("08 00  10 00  18 00  20 00  28 00  30 00  38 00  40 00  48 00  50 00  58 00  60 00  68 00"
                         "70 00  78 00  80 01 00  8A 01 00  92 01 00")));
}

TEST(registrations, empty_eid_and_policy_are_written_only_if_present) {
    expect_empty_is_written_only_if_present<vesk_register_event_data>(VESK_REGISTER_EVENT_DATA_EID, "8a 01 00");
    expect_empty_is_written_only_if_present<vesk_register_event_data>(VESK_REGISTER_EVENT_DATA_POLICY, "92 01 00");
    expect_empty_is_written_only_if_present<vesk_register_eid_event_data>(VESK_REGISTER_EID_EVENT_DATA_EID, "0a 00");
    expect_empty_is_written_only_if_present<vesk_register_eid_event_data>(VESK_REGISTER_EID_EVENT_DATA_POLICY, "1a 00");
    expect_empty_is_written_only_if_present<vesk_inv_register_fru_op>(VESK_INV_REGISTER_FRU_OP_POLICY, "0a 00");
}

TEST(registrations, flag_received_as_5_is_stored_and_written_as_1) {
    expect_flags_become_1<vesk_register_event_data>({15}, 5);
}

TEST(registrations, policy_is_read_by_its_own_rules) {
    const Bytes policy = message(text_field(1, "a"), text_field(1, "b"));
    EXPECT_EQ(decode_code<vesk_register_event_data>(message_field(18, policy)), VESK_MALFORMED);
    EXPECT_EQ(decode_code<vesk_register_eid_event_data>(message_field(3, policy)), VESK_MALFORMED);
    EXPECT_EQ(decode_code<vesk_inv_register_fru_op>(message_field(1, policy)), VESK_MALFORMED);
}

// ---- notify_event_data ---------------------------------------------------------------------------------------------

TEST(notify_event_data, empty_sensor_alone_takes_two_bytes) {
    vesk_notify_event_data notification = {};
    VESK_MARK(&notification, VESK_NOTIFY_EVENT_DATA_SENSOR);
    EXPECT_EQ(to_hex(encoded(notification)), "3a 00");
}

TEST(notify_event_data, empty_records_are_written_only_if_present) {
    using Notification = vesk_notify_event_data;
    expect_empty_is_written_only_if_present<Notification>(VESK_NOTIFY_EVENT_DATA_EID, "0a 00");
    expect_empty_is_written_only_if_present<Notification>(VESK_NOTIFY_EVENT_DATA_BASE, "1a 00");
    expect_empty_is_written_only_if_present<Notification>(VESK_NOTIFY_EVENT_DATA_POWER_STATUS, "22 00");
    expect_empty_is_written_only_if_present<Notification>(VESK_NOTIFY_EVENT_DATA_SENSOR, "3a 00");
    expect_empty_is_written_only_if_present<Notification>(VESK_NOTIFY_EVENT_DATA_IDPROM, "42 00");
    expect_empty_is_written_only_if_present<Notification>(VESK_NOTIFY_EVENT_DATA_FPGA, "4a 00");
}

TEST(notify_event_data, records_with_content_are_written_without_their_bits) {
    vesk_notify_event_data notification = {};
    notification.fpga.f3 = 9;
    VESK_MARK(&notification.fpga, VESK_INV_FPGA_DATA_F3);
    notification.power_status.f1 = 4;
    VESK_MARK(&notification.power_status, VESK_FRU_POWER_STATUS_DATA_F1);
    EXPECT_EQ(to_hex(encoded(notification)), "22 02 08 04 4a 02 18 09");
}

TEST(notify_event_data, records_may_come_in_any_order_and_are_written_in_their_own) {
    const Bytes base = message_field(3, message_field(1, number_field(4, 3)));
    const Bytes fpga = message_field(9, number_field(3, 9));
    const Decoded<vesk_notify_event_data> ordered(message(base, fpga));
    const Decoded<vesk_notify_event_data> reversed(message(fpga, base));
    for (const Decoded<vesk_notify_event_data>* notification : {&ordered, &reversed}) {
        ASSERT_EQ(notification->code, VESK_OK);
        EXPECT_EQ(notification->message.base.entity_common.f4, 3u);
        EXPECT_EQ(notification->message.fpga.f3, 9u);
        EXPECT_EQ(presence_of(notification->message), "04 01");
        EXPECT_EQ(to_hex(encoded(notification->message)), to_hex(message(base, fpga)));
    }
}

TEST(notify_event_data, any_number_of_records_may_be_present) {
    const Bytes input = message(message_field(1, number_field(1, 1)), number_field(2, 2), message_field(3, Bytes{}),
                                message_field(4, number_field(4, 1)), number_field(5, 5), number_field(6, 6),
                                message_field(7, number_field(16, 1)), message_field(8, text_field(4, "id")),
                                message_field(9, number_field(19, 1)), number_field(10, 10));
    const Decoded<vesk_notify_event_data> notification(input);
    ASSERT_EQ(notification.code, VESK_OK);
    EXPECT_EQ(presence_of(notification.message), "ff 03");
    EXPECT_EQ(to_hex(encoded(notification.message)), to_hex(input));
}

TEST(notify_event_data, record_that_occurs_again_replaces_the_first) {
    for (const std::uint32_t number : {7u, 9u}) {
        const Bytes second = message_field(number, number_field(4, 20));
        EXPECT_EQ(to_hex(reencoded<vesk_notify_event_data>(
                      message(message_field(number, message(number_field(3, 10), number_field(16, 1))), second))),
                  to_hex(second))
            << number;
    }
}

}  // namespace
}  // namespace vesk::test
