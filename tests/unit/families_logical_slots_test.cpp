// Logical slots and sensor data records: the database records with lists, and logic_slot_data with two identifiers.
#include <gtest/gtest.h>

#include <cstddef>

#include "tests/support/families.hpp"

namespace vesk::test {
namespace {

Bytes identity(std::uint32_t field, std::uint32_t f1) { return message_field(field, number_field(1, f1)); }

// ---- Runs ----------------------------------------------------------------------------------------------------------

TEST(logic_slot_data, second_run_of_a_list_is_malformed) {
    const Decoded<vesk_logic_slot_data> slot(message(identity(25, 1), number_field(24, 1), identity(25, 2)));
    EXPECT_EQ(slot.code, VESK_MALFORMED);
    EXPECT_EQ(slot->sdr_identity_count, 1u);
    EXPECT_EQ(presence_of(slot.message), "00 00 80 01") << "what stood before the second run stays";

    EXPECT_EQ(decode_code<vesk_logic_slot_data>(message(identity(25, 1), identity(26, 1), identity(25, 2))),
              VESK_MALFORMED);
    EXPECT_EQ(decode_code<vesk_logic_slot_data>(message(identity(26, 1), number_field(24, 1), identity(26, 2))),
              VESK_MALFORMED);
    EXPECT_EQ(decode_code<vesk_logic_slot_data>(message(identity(26, 1), identity(25, 1), number_field(1, 1))),
              VESK_OK);
}

TEST(sdr_data_object, second_run_of_its_list_is_malformed) {
    EXPECT_EQ(decode_code<vesk_sdr_data_object>(message(identity(3, 1), number_field(4, 1), identity(3, 2))),
              VESK_MALFORMED);
    EXPECT_EQ(
        decode_code<vesk_inv_sdr_data>(message_field(1, message(identity(3, 1), number_field(5, 1), identity(3, 2)))),
        VESK_MALFORMED);
}

TEST(logic_slot_data, three_identities_keep_their_order) {
    const Bytes input = message(identity(25, 30), identity(25, 10), identity(25, 20));
    const Decoded<vesk_logic_slot_data> slot(input);
    ASSERT_EQ(slot.code, VESK_OK);
    ASSERT_EQ(slot->sdr_identity_count, 3u);
    EXPECT_EQ(slot->sdr_identity[0].f1, 30u);
    EXPECT_EQ(slot->sdr_identity[1].f1, 10u);
    EXPECT_EQ(slot->sdr_identity[2].f1, 20u);
    EXPECT_EQ(slot.ledger.history(), std::vector<Request>{asked_for(3 * sizeof(vesk_sdr_identity_info))});
    EXPECT_EQ(to_hex(encoded(slot.message)), "ca 01 02 08 1e ca 01 02 08 0a ca 01 02 08 14");
}

TEST(logic_slot_data, three_slices_keep_their_order) {
    const Bytes input = message(identity(26, 30), identity(26, 10), identity(26, 20));
    const Decoded<vesk_logic_slot_data> slot(input);
    ASSERT_EQ(slot.code, VESK_OK);
    ASSERT_EQ(slot->sdr_slice_count, 3u);
    EXPECT_EQ(slot->sdr_slice[0].f1, 30u);
    EXPECT_EQ(slot->sdr_slice[2].f1, 20u);
    EXPECT_EQ(to_hex(encoded(slot.message)), "d2 01 02 08 1e d2 01 02 08 0a d2 01 02 08 14");
}

TEST(sdr_data_object, three_identities_keep_their_order) {
    const Bytes input = message(text_field(5, "skipped"), identity(3, 30), identity(3, 10), identity(3, 20));
    const Decoded<vesk_sdr_data_object> object(input);
    ASSERT_EQ(object.code, VESK_OK);
    ASSERT_EQ(object->sdr_identity_count, 3u);
    EXPECT_EQ(object->sdr_identity[0].f1, 30u);
    EXPECT_EQ(object->sdr_identity[1].f1, 10u);
    EXPECT_EQ(object->sdr_identity[2].f1, 20u);
    EXPECT_EQ(to_hex(encoded(object.message)), "1a 02 08 1e 1a 02 08 0a 1a 02 08 14");
}

TEST(logic_slot_data, two_lists_may_touch) {
    const Bytes input = message(identity(25, 1), identity(25, 2), identity(26, 3), identity(26, 4), identity(26, 5));
    const Decoded<vesk_logic_slot_data> slot(input);
    ASSERT_EQ(slot.code, VESK_OK);
    EXPECT_EQ(slot->sdr_identity_count, 2u);
    EXPECT_EQ(slot->sdr_slice_count, 3u);
    EXPECT_EQ(presence_of(slot.message), "00 00 00 03") << "bits 24 and 25";
    EXPECT_EQ(to_hex(encoded(slot.message)), to_hex(input));
}

// ---- Elements ------------------------------------------------------------------------------------------------------

TEST(logic_slot_data, empty_elements_are_kept) {
    const Bytes input = hex("CA 01 00  CA 01 02 08 07  CA 01 00  D2 01 00");
    const Decoded<vesk_logic_slot_data> slot(input);
    ASSERT_EQ(slot.code, VESK_OK);
    ASSERT_EQ(slot->sdr_identity_count, 3u);
    EXPECT_TRUE(has_no_presence(slot->sdr_identity[0]));
    EXPECT_EQ(slot->sdr_identity[0].f3, nullptr);
    EXPECT_EQ(slot->sdr_identity[1].f1, 7u);
    EXPECT_TRUE(has_no_presence(slot->sdr_identity[2]));
    ASSERT_EQ(slot->sdr_slice_count, 1u);
    EXPECT_TRUE(has_no_presence(slot->sdr_slice[0]));
    EXPECT_EQ(to_hex(encoded(slot.message)), to_hex(input));
}

TEST(sdr_data_object, empty_elements_are_kept) {
    const Decoded<vesk_sdr_data_object> object(hex("1A 00 1A 00"));
    ASSERT_EQ(object.code, VESK_OK);
    ASSERT_EQ(object->sdr_identity_count, 2u);
    EXPECT_TRUE(has_no_presence(object->sdr_identity[0]));
    EXPECT_TRUE(has_no_presence(object->sdr_identity[1]));
    EXPECT_EQ(to_hex(encoded(object.message)), "1a 00 1a 00");
}

TEST(logic_slot_data, error_of_an_element_leaves_the_list_without_its_bit) {
    const Decoded<vesk_logic_slot_data> slot(message(identity(25, 1), message_field(25, text_field(1, "a"))));
    EXPECT_EQ(slot.code, VESK_WRONG_WIRE_TYPE);
    EXPECT_EQ(slot->sdr_identity_count, 2u);
    EXPECT_TRUE(has_no_presence(slot.message));
}

TEST(logic_slot_data, repeated_string_of_an_element_is_malformed) {
    expect_repetition_is_malformed<vesk_sdr_identity_info>({3});
    EXPECT_EQ(decode_code<vesk_logic_slot_data>(message_field(25, message(text_field(3, "a"), text_field(3, "b")))),
              VESK_MALFORMED);
}

TEST(logic_slot_data, free_gives_back_each_string_and_then_the_array) {
    Decoded<vesk_logic_slot_data> slot(message(message_field(25, text_field(3, "a")), message_field(25, Bytes{}),
                                               message_field(25, text_field(3, "ccc")), identity(26, 1)));
    ASSERT_EQ(slot.code, VESK_OK);
    slot.ledger.clear_history();
    vesk_logic_slot_data_free_ext(&slot.message, Ledger::release, &slot.ledger, 0);
    EXPECT_EQ(slot.ledger.history(),
              (std::vector<Request>{given_back(2), given_back(4), given_back(3 * sizeof(vesk_sdr_identity_info)),
                                    given_back(sizeof(vesk_inv_sdr_slice_info))}));
    EXPECT_EQ(slot->sdr_identity, nullptr);
    EXPECT_EQ(slot->sdr_identity_count, 0u);
}

TEST(logic_slot_data, copy_that_lacks_a_list_has_everything_else) {
    const Bytes input = message(number_field(1, 1), text_field(7, "slot"), identity(25, 2), identity(26, 3));
    const Decoded<vesk_logic_slot_data> slot(input);
    ASSERT_EQ(slot.code, VESK_OK);
    const Copy<vesk_logic_slot_data> copy(slot.message, {2}, 0x00);
    EXPECT_EQ(copy.code, VESK_NO_MEMORY);
    EXPECT_EQ(copy->sdr_identity, nullptr);
    EXPECT_EQ(copy->sdr_identity_count, 0u);
    EXPECT_EQ(to_hex(encoded(copy.message)),
              to_hex(message(number_field(1, 1), text_field(7, "slot"), identity(26, 3))));
}

// ---- Presence: a list and a single nested message differ -----------------------------------------------------------

TEST(sdr_data_object, list_is_written_only_with_its_bit_and_elements) {
    vesk_sdr_identity_info identities[2] = {};
    vesk_sdr_data_object object = {};
    object.f4 = 7;
    VESK_MARK(&object, VESK_SDR_DATA_OBJECT_F4);
    object.sdr_identity = identities;
    object.sdr_identity_count = 2;
    EXPECT_EQ(to_hex(encoded(object)), "20 07") << "clear bit, two elements";
    VESK_MARK(&object, VESK_SDR_DATA_OBJECT_SDR_IDENTITY);
    object.sdr_identity_count = 0;
    EXPECT_EQ(to_hex(encoded(object)), "20 07") << "set bit, no elements";
    object.sdr_identity_count = 2;
    EXPECT_EQ(to_hex(encoded(object)), "1a 00 1a 00 20 07");
}

TEST(logic_slot_data, lists_are_written_only_with_their_bits_and_elements) {
    vesk_sdr_identity_info identities[2] = {};
    vesk_inv_sdr_slice_info slices[2] = {};
    vesk_logic_slot_data slot = {};
    slot.sdr_identity = identities;
    slot.sdr_identity_count = 2;
    slot.sdr_slice = slices;
    slot.sdr_slice_count = 2;
    EXPECT_EQ(to_hex(encoded(slot)), "");
    VESK_MARK(&slot, VESK_LOGIC_SLOT_DATA_SDR_SLICE);
    EXPECT_EQ(to_hex(encoded(slot)), "d2 01 00 d2 01 00");
    slot.sdr_slice_count = 0;
    VESK_MARK(&slot, VESK_LOGIC_SLOT_DATA_SDR_IDENTITY);
    EXPECT_EQ(to_hex(encoded(slot)), "ca 01 00 ca 01 00");
}

TEST(logic_slot_data, event_with_content_is_written_without_its_bit) {
    vesk_logic_slot_data slot = {};
    slot.event.f6 = 5;
    VESK_MARK(&slot.event, VESK_EVENT_DATA_F6);
    EXPECT_EQ(to_hex(encoded(slot)), "92 01 02 30 05");
    expect_empty_is_written_only_if_present<vesk_logic_slot_data>(VESK_LOGIC_SLOT_DATA_EVENT, "92 01 00");
}

// ---- Without a callback --------------------------------------------------------------------------------------------

template <class T>
void expect_no_memory_without_a_callback(const Bytes& input) {
    for (const std::uint32_t flags : {0u, 1u}) {
        T message;
        EXPECT_EQ(Api<T>::decode(&message, input.data(), input.size(), nullptr, nullptr, flags), VESK_NO_MEMORY)
            << Api<T>::name << ", flags " << flags << ": " << to_hex(input);
    }
}

TEST(logic_slot_data, list_without_a_callback_is_out_of_memory_also_with_bytes_by_reference) {
    expect_no_memory_without_a_callback<vesk_logic_slot_data>(identity(25, 1));
    expect_no_memory_without_a_callback<vesk_logic_slot_data>(hex("CA 01 00"));
    expect_no_memory_without_a_callback<vesk_logic_slot_data>(identity(26, 1));
    expect_no_memory_without_a_callback<vesk_sdr_data_object>(identity(3, 1));
    expect_no_memory_without_a_callback<vesk_inv_sdr_data>(message_field(1, identity(3, 1)));

    // The byte block in front of the list is exempt, the list is not.
    const Bytes input = message(bytes_field(19, hex("DE AD")), identity(25, 1));
    vesk_logic_slot_data slot;
    EXPECT_EQ(
        vesk_logic_slot_data_decode_ext(&slot, input.data(), input.size(), nullptr, nullptr, VESK_BYTES_BY_REFERENCE),
        VESK_NO_MEMORY);
    EXPECT_EQ(slot.f19, input.data() + 3);
    EXPECT_EQ(presence_of(slot), "00 00 04 00");
    EXPECT_EQ(slot.sdr_identity, nullptr);
}

// ---- Two identifiers in one record ---------------------------------------------------------------------------------

void expect_cleared(const vesk_drin_eid_st& eid) {
    EXPECT_EQ(eid.f1, 0u);
    EXPECT_EQ(eid.f2, 0u);
    EXPECT_EQ(eid.f3, 0u);
    EXPECT_EQ(eid.f4, 0u);
    EXPECT_EQ(eid.f5, 0u);
    EXPECT_EQ(eid.element_list, nullptr);
    EXPECT_EQ(eid.element_list_count, 0u);
    EXPECT_TRUE(has_no_presence(eid));
}

TEST(logic_slot_data, second_eid_alone_leaves_the_first_cleared) {
    const Bytes content = message(number_field(1, 9), message_field(6, number_field(1, 7)));
    const Decoded<vesk_logic_slot_data> slot(message_field(6, content));
    ASSERT_EQ(slot.code, VESK_OK);
    EXPECT_EQ(presence_of(slot.message), "20 00 00 00") << "bit 5";
    EXPECT_EQ(slot->eid_b.f1, 9u);
    ASSERT_EQ(slot->eid_b.element_list_count, 1u);
    EXPECT_EQ(slot->eid_b.element_list[0].f1, 7u);
    expect_cleared(slot->eid_a);
    EXPECT_EQ(to_hex(encoded(slot.message)), to_hex(message_field(6, content)));
}

TEST(logic_slot_data, first_eid_alone_leaves_the_second_cleared) {
    const Decoded<vesk_logic_slot_data> slot(message_field(2, number_field(1, 9)));
    ASSERT_EQ(slot.code, VESK_OK);
    EXPECT_EQ(presence_of(slot.message), "02 00 00 00") << "bit 1";
    EXPECT_EQ(slot->eid_a.f1, 9u);
    expect_cleared(slot->eid_b);
}

TEST(logic_slot_data, two_eids_and_that_of_the_event_own_their_lists) {
    const auto eid = [](std::uint32_t f1) {
        return message(number_field(1, f1), message_field(6, number_field(2, f1)));
    };
    const Bytes input =
        message(message_field(2, eid(1)), message_field(6, eid(2)), message_field(18, message_field(1, eid(3))));
    const Decoded<vesk_logic_slot_data> slot(input);
    ASSERT_EQ(slot.code, VESK_OK);
    EXPECT_EQ(slot.ledger.history(), std::vector<Request>(3, asked_for(sizeof(vesk_drin_eid_element))));
    EXPECT_EQ(slot->eid_a.element_list[0].f2, 1u);
    EXPECT_EQ(slot->eid_b.element_list[0].f2, 2u);
    EXPECT_EQ(slot->event.eid.element_list[0].f2, 3u);
    const Copy<vesk_logic_slot_data> copy(slot.message);
    EXPECT_NE(copy->eid_a.element_list, slot->eid_a.element_list);
    EXPECT_NE(copy->eid_b.element_list, slot->eid_b.element_list);
    EXPECT_EQ(to_hex(encoded(copy.message)), to_hex(input));
}

TEST(logic_slot_data, empty_eids_are_written_only_if_present) {
    expect_empty_is_written_only_if_present<vesk_logic_slot_data>(VESK_LOGIC_SLOT_DATA_EID_A, "12 00");
    expect_empty_is_written_only_if_present<vesk_logic_slot_data>(VESK_LOGIC_SLOT_DATA_EID_B, "32 00");
}

// ---- The other fields ----------------------------------------------------------------------------------------------

TEST(logic_slot_data, flag_received_as_2_is_stored_and_written_as_1) {
    expect_flags_become_1<vesk_logic_slot_data>({23, 24}, 2);
}

TEST(logic_slot_data, repeated_string_or_bytes_are_malformed) {
    expect_repetition_is_malformed<vesk_logic_slot_data>({7, 8, 12, 17, 19});
}

TEST(logic_slot_data, present_string_that_is_null_is_not_written) {
    expect_null_is_not_written<vesk_logic_slot_data>(
        {VESK_LOGIC_SLOT_DATA_F7, VESK_LOGIC_SLOT_DATA_F8, VESK_LOGIC_SLOT_DATA_F12, VESK_LOGIC_SLOT_DATA_F17});
    expect_null_is_not_written<vesk_sdr_identity_info>({VESK_SDR_IDENTITY_INFO_F3});
}

TEST(logic_slot_data, tags_take_one_byte_up_to_field_15_and_two_from_field_16) {
    vesk_logic_slot_data slot = {};
    vesk_sdr_identity_info identity = {};
    vesk_inv_sdr_slice_info slice = {};
    slot.f7 = slot.f8 = slot.f12 = slot.f17 = literal("");
    slot.sdr_identity = &identity;
    slot.sdr_slice = &slice;
    slot.sdr_identity_count = slot.sdr_slice_count = 1;
    std::memset(slot.present, 0xFF, sizeof slot.present);
    EXPECT_EQ(to_hex(encoded(slot)),
              to_hex(hex("08 00  12 00  18 00  20 00  28 00  32 00  3A 00  42 00  48 00  50 00  58 00  62 00  68 00"
                         "70 00  78 00  80 01 00  8A 01 00  92 01 00  9A 01 00  A0 01 00  A8 01 00  B0 01 00"
                         "B8 01 00  C0 01 00  CA 01 00  D2 01 00")));
}

TEST(logic_slot_data, fields_from_27_on_are_skipped) {
    const Bytes known = identity(26, 1);
    EXPECT_EQ(to_hex(reencoded<vesk_logic_slot_data>(
                  message(number_field(27, 5), text_field(31, "north"), known, text_field(27, "")))),
              to_hex(known));
}

// ---- A list's count has no gap behind it ---------------------------------------------------------------------------

TEST(sdr_data_object, number_behind_the_list_follows_its_count_at_once) {
    EXPECT_EQ(offsetof(vesk_sdr_data_object, f4), offsetof(vesk_sdr_data_object, sdr_identity_count) + 4);
    const Bytes input = message(identity(3, 1), identity(3, 2), number_field(4, 0xFFFFFFFF));
    const Decoded<vesk_sdr_data_object> object(input);
    ASSERT_EQ(object.code, VESK_OK);
    EXPECT_EQ(object->sdr_identity_count, 2u);
    EXPECT_EQ(object->f4, 0xFFFFFFFFu);
    const Copy<vesk_sdr_data_object> copy(object.message);
    EXPECT_EQ(copy->sdr_identity_count, 2u);
    EXPECT_EQ(copy->f4, 0xFFFFFFFFu);
}

TEST(logic_slot_data, presence_follows_the_last_count_at_once) {
    EXPECT_EQ(offsetof(vesk_logic_slot_data, present), offsetof(vesk_logic_slot_data, sdr_slice_count) + 4);
    EXPECT_EQ(offsetof(vesk_logic_slot_data, sdr_slice),
              offsetof(vesk_logic_slot_data, sdr_identity) + 2 * sizeof(void*));
    static_assert(sizeof(vesk_logic_slot_data::present) == 4);
}

}  // namespace
}  // namespace vesk::test
