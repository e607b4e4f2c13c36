// Events and FRU type registration: event_context_data, event_data with two of them, register_fru_type_data.
#include <gtest/gtest.h>

#include "tests/support/families.hpp"

namespace vesk::test {
namespace {

// ---- event_data: two context blocks of one type --------------------------------------------------------------------

TEST(event_data, empty_context_blocks_are_written_only_if_present) {
    vesk_event_data event = {};
    event.f4 = literal("up");
    event.f6 = 5;
    VESK_MARK(&event, VESK_EVENT_DATA_F4);
    VESK_MARK(&event, VESK_EVENT_DATA_F6);
    EXPECT_EQ(to_hex(encoded(event)), "22 02 75 70 30 05");
    VESK_MARK(&event, VESK_EVENT_DATA_CONTEXT_B);
    EXPECT_EQ(to_hex(encoded(event)), "1a 00 22 02 75 70 30 05");
    VESK_MARK(&event, VESK_EVENT_DATA_CONTEXT_A);
    EXPECT_EQ(to_hex(encoded(event)), "12 00 1a 00 22 02 75 70 30 05");
}

TEST(event_data, empty_context_block_is_present_after_decode) {
    const Decoded<vesk_event_data> event(hex("1A 00"));
    ASSERT_EQ(event.code, VESK_OK);
    EXPECT_EQ(event->present[0], 1 << VESK_EVENT_DATA_CONTEXT_B);
    EXPECT_TRUE(has_no_presence(event->context_b));
}

TEST(event_data, context_blocks_with_content_are_written_without_their_bits) {
    vesk_event_data event = {};
    event.context_a.f1 = 7;
    VESK_MARK(&event.context_a, VESK_EVENT_CONTEXT_DATA_F1);
    EXPECT_EQ(to_hex(encoded(event)), "12 02 08 07");
    event.context_b.f2 = 8;
    VESK_MARK(&event.context_b, VESK_EVENT_CONTEXT_DATA_F2);
    EXPECT_EQ(to_hex(encoded(event)), "12 02 08 07 1a 02 10 08");
}

TEST(event_data, context_blocks_do_not_touch_each_other) {
    const Bytes a = message_field(2, message(number_field(1, 10), text_field(3, "cause")));
    const Bytes b = message_field(3, message(number_field(2, 20), text_field(3, "effect")));

    const Decoded<vesk_event_data> both(message(b, a));
    ASSERT_EQ(both.code, VESK_OK);
    EXPECT_EQ(both->context_a.f1, 10u);
    EXPECT_STREQ(both->context_a.f3, "cause");
    EXPECT_EQ(both->context_a.present[0], 0b101);
    EXPECT_EQ(both->context_b.f2, 20u);
    EXPECT_STREQ(both->context_b.f3, "effect");
    EXPECT_EQ(both->context_b.present[0], 0b110);
    EXPECT_EQ(to_hex(encoded(both.message)), to_hex(message(a, b)));

    const Decoded<vesk_event_data> only_b(b);
    ASSERT_EQ(only_b.code, VESK_OK);
    EXPECT_EQ(only_b->present[0], 1 << VESK_EVENT_DATA_CONTEXT_B);
    EXPECT_EQ(only_b->context_a.f3, nullptr);
    EXPECT_TRUE(has_no_presence(only_b->context_a));
}

TEST(event_data, context_block_that_occurs_again_replaces_the_first) {
    for (const std::uint32_t number : {2u, 3u}) {
        EXPECT_EQ(to_hex(reencoded<vesk_event_data>(
                      message(message_field(number, message(number_field(1, 1), number_field(2, 2))),
                              number_field(6, 9), message_field(number, number_field(2, 3))))),
                  to_hex(message(message_field(number, number_field(2, 3)), number_field(6, 9))))
            << number;
    }
}

TEST(event_data, copy_has_both_context_blocks) {
    const Bytes input = message(message_field(2, text_field(3, "cause")), message_field(3, text_field(3, "effect")));
    const Decoded<vesk_event_data> event(input);
    const Copy<vesk_event_data> copy(event.message);
    EXPECT_EQ(copy.code, VESK_OK);
    EXPECT_NE(copy->context_a.f3, event->context_a.f3);
    EXPECT_EQ(to_hex(encoded(copy.message)), to_hex(input));

    const Copy<vesk_event_data> without_cause(event.message, {1});
    EXPECT_EQ(without_cause.code, VESK_NO_MEMORY);
    EXPECT_EQ(to_hex(encoded(without_cause.message)),
              to_hex(message(hex("12 00"), message_field(3, text_field(3, "effect")))));
}

TEST(event_data, empty_eid_is_written_only_if_present) {
    expect_empty_is_written_only_if_present<vesk_event_data>(VESK_EVENT_DATA_EID, "0a 00");
    expect_empty_is_written_only_if_present<vesk_register_fru_type_data>(VESK_REGISTER_FRU_TYPE_DATA_EID, "12 00");
}

TEST(event_data, f6_keeps_64_bits) {
    expect_numbers_keep_64_bits<vesk_event_data>({6});
    const Decoded<vesk_event_data> event(number_field(6, (std::uint64_t{1} << 32) + 7));
    ASSERT_EQ(event.code, VESK_OK);
    EXPECT_EQ(event->f6, (std::uint64_t{1} << 32) + 7);
    EXPECT_EQ(event->present[0], 1 << VESK_EVENT_DATA_F6);
}

TEST(events, repeated_string_is_malformed) {
    expect_repetition_is_malformed<vesk_event_context_data>({3});
    expect_repetition_is_malformed<vesk_event_data>({4, 5});
    expect_repetition_is_malformed<vesk_register_fru_type_data>({6, 11});
}

TEST(events, present_string_that_is_null_is_not_written) {
    expect_null_is_not_written<vesk_event_context_data>({VESK_EVENT_CONTEXT_DATA_F3});
    expect_null_is_not_written<vesk_event_data>({VESK_EVENT_DATA_F4, VESK_EVENT_DATA_F5});
    expect_null_is_not_written<vesk_register_fru_type_data>(
        {VESK_REGISTER_FRU_TYPE_DATA_F6, VESK_REGISTER_FRU_TYPE_DATA_F11});
}

// ---- register_fru_type_data ----------------------------------------------------------------------------------------

TEST(register_fru_type_data, f16_received_as_2_is_stored_as_1_and_written_with_a_two_byte_tag) {
    const Decoded<vesk_register_fru_type_data> registration(hex("80 01 02"));
    ASSERT_EQ(registration.code, VESK_OK);
    EXPECT_EQ(registration->f16, 1);
    EXPECT_EQ(presence_of(registration.message), "00 80");
    EXPECT_EQ(to_hex(encoded(registration.message)), "80 01 01");
}

TEST(register_fru_type_data, present_bytes_without_data_are_tag_and_zero) {
    for (const std::uint32_t flags : {0u, 1u}) {
        vesk_register_fru_type_data registration = {};
        VESK_MARK(&registration, VESK_REGISTER_FRU_TYPE_DATA_F13);
        EXPECT_EQ(to_hex(encoded(registration, flags)), "6a 00") << flags;

        const Decoded<vesk_register_fru_type_data> decoded(hex("6A 00"), flags);
        ASSERT_EQ(decoded.code, VESK_OK);
        EXPECT_EQ(decoded->f13_length, 0u);
        EXPECT_EQ(presence_of(decoded.message), "00 10");
    }
}

TEST(register_fru_type_data, repeated_bytes_are_malformed) {
    expect_repetition_is_malformed<vesk_register_fru_type_data>({13});
}

TEST(register_fru_type_data, bytes_by_reference_point_into_the_input_and_stay_at_free) {
    Decoded<vesk_register_fru_type_data> registration(message(number_field(1, 1), bytes_field(13, hex("0A 00 0B"))),
                                                      VESK_BYTES_BY_REFERENCE);
    ASSERT_EQ(registration.code, VESK_OK);
    EXPECT_EQ(registration->f13, registration.bytes.data() + 4);
    EXPECT_EQ(registration->f13_length, 3u);
    vesk_register_fru_type_data_free_ext(&registration.message, Ledger::release, &registration.ledger,
                                         VESK_BYTES_BY_REFERENCE);
    EXPECT_TRUE(registration.ledger.history().empty());
    EXPECT_EQ(registration->f13, registration.bytes.data() + 4);
}

TEST(register_fru_type_data, only_field_16_takes_a_two_byte_tag) {
    vesk_register_fru_type_data registration = {};
    registration.f6 = registration.f11 = literal("");
    std::memset(registration.present, 0xFF, sizeof registration.present);
    EXPECT_EQ(to_hex(encoded(registration)),
              to_hex(hex("08 00  12 00  18 00  20 00  28 00  32 00  38 00  40 00  48 00  50 00  5A 00  62 00  6A 00"
                         "70 00  78 00  80 01 00")));
}

TEST(register_fru_type_data, event_that_occurs_again_replaces_the_first) {
    const Bytes first = message_field(12, message(message_field(2, number_field(1, 1)), number_field(6, 2)));
    const Bytes second = message_field(12, message_field(3, number_field(1, 3)));
    EXPECT_EQ(to_hex(reencoded<vesk_register_fru_type_data>(message(first, second))), to_hex(second));
}

TEST(register_fru_type_data, own_eid_and_that_of_the_event_are_two) {
    const Bytes input = message(message_field(2, number_field(1, 7)),
                                message_field(12, message_field(1, message(number_field(1, 8), number_field(2, 9)))));
    const Decoded<vesk_register_fru_type_data> registration(input);
    ASSERT_EQ(registration.code, VESK_OK);
    EXPECT_EQ(registration->eid.f1, 7u);
    EXPECT_EQ(registration->eid.present[0], 0b01);
    EXPECT_EQ(registration->event.eid.f1, 8u);
    EXPECT_EQ(registration->event.eid.present[0], 0b11);
    EXPECT_EQ(to_hex(encoded(registration.message)), to_hex(input));
}

}  // namespace
}  // namespace vesk::test
