// The deep copy: what it owns, which presence bits it has, and how it goes on when a block cannot be had.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/first_difference.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/messages.hpp"

namespace vesk::test {
namespace {

const Bytes four_bytes = hex("00 01 02 FF");

// Every field of a scratch-pad EEPROM.
vesk_scratch_eeprom scratch_pad() {
    vesk_scratch_eeprom scratch = {};
    scratch.f1 = literal("north");
    scratch.f2 = data_of(four_bytes);
    scratch.f2_length = 4;
    scratch.f3 = 300;
    scratch.f4 = literal("");
    scratch.present[0] = 0x0F;
    return scratch;
}

// Every kind of field, nested and in lists.
Bytes every_kind_of_field() {
    const Bytes eid = message(number_field(1, 9), message_field(6, number_field(1, 7)), message_field(6, Bytes{}));
    const Bytes eeprom = message(message_field(1, eid), text_field(4, "serial"), bytes_field(20, four_bytes));
    const Bytes common = message(message_field(1, eid), text_field(2, "east"), number_field(6, 1),
                                 number_field(20, std::uint64_t{1} << 40));
    const Bytes idprom = message(message_field(1, common), message_field(3, eeprom), text_field(4, "id"));
    return message(number_field(1, 1), message_field(7, idprom), message_field(7, Bytes{}),
                   message_field(8, text_field(5, "red")), message_field(8, text_field(5, "green")));
}

// ---- Copies that succeed -------------------------------------------------------------------------------------------

TEST(duplicate, every_kind_is_copied) {
    const Decoded<vesk_resp_inv_data> source(every_kind_of_field());
    ASSERT_EQ(source.code, VESK_OK);
    const Copy<vesk_resp_inv_data> copy(source.message);
    EXPECT_EQ(copy.code, VESK_OK);
    EXPECT_EQ(to_hex(encoded(copy.message)), to_hex(every_kind_of_field()));
    EXPECT_EQ(copy.ledger.blocks_out(), source.ledger.blocks_out());
}

TEST(duplicate, shares_no_block_with_its_source) {
    const vesk_scratch_eeprom source = scratch_pad();
    const Copy<vesk_scratch_eeprom> copy(source);
    EXPECT_TRUE(copy.ledger.owns(copy->f1));
    EXPECT_TRUE(copy.ledger.owns(copy->f2));
    EXPECT_TRUE(copy.ledger.owns(copy->f4));
    const Decoded<vesk_resp_inv_data> response(every_kind_of_field());
    const Copy<vesk_resp_inv_data> other(response.message);
    EXPECT_TRUE(other.ledger.owns(other->idprom_list));
    EXPECT_TRUE(other.ledger.owns(other->idprom_list[0].f4));
    EXPECT_TRUE(other.ledger.owns(other->idprom_list[0].eeprom.f20));
    EXPECT_TRUE(other.ledger.owns(other->idprom_list[0].eeprom.eid.element_list));
    EXPECT_TRUE(other.ledger.owns(other->led_list[1].f5));
}

TEST(duplicate, source_is_left_unchanged) {
    const vesk_scratch_eeprom source = scratch_pad();
    const vesk_scratch_eeprom before = source;
    const Copy<vesk_scratch_eeprom> copy(source);
    EXPECT_EQ(std::memcmp(&source, &before, sizeof before), 0);
}

TEST(duplicate, asks_in_declaration_order_for_exactly_what_it_needs) {
    const vesk_scratch_eeprom source = scratch_pad();
    const Copy<vesk_scratch_eeprom> copy(source);
    EXPECT_EQ(copy.ledger.history(), (std::vector<Request>{asked_for(6), asked_for(4), asked_for(1)}));
}

TEST(duplicate, array_is_asked_for_before_what_its_elements_own) {
    const Decoded<vesk_resp_inv_data> source(
        message(message_field(8, text_field(5, "red")), message_field(8, text_field(5, "green"))));
    const Copy<vesk_resp_inv_data> copy(source.message);
    EXPECT_EQ(copy.ledger.history(),
              (std::vector<Request>{asked_for(2 * sizeof(vesk_led_data)), asked_for(4), asked_for(6)}));
}

TEST(duplicate, destination_is_overwritten_and_not_released) {
    const vesk_scratch_eeprom source = scratch_pad();
    for (unsigned background : {0x00u, 0x5Au, 0xFFu}) {
        const Copy<vesk_scratch_eeprom> copy(source, {}, static_cast<std::uint8_t>(background));
        EXPECT_EQ(copy.code, VESK_OK);
        EXPECT_EQ(to_hex(encoded(copy.message)), to_hex(encoded(source)));
    }
    const Copy<vesk_scratch_eeprom> empty(vesk_scratch_eeprom{}, {}, 0xFF);
    EXPECT_EQ(empty->f1, nullptr);
    EXPECT_EQ(empty->f2, nullptr);
    EXPECT_EQ(empty->f2_length, 0u);
    EXPECT_EQ(empty->f3, 0u);
}

TEST(duplicate, string_ends_at_its_first_nul) {
    const Decoded<vesk_scratch_eeprom> source(text_field(1, std::string_view("a\0bc", 4)));
    const Copy<vesk_scratch_eeprom> copy(source.message);
    EXPECT_STREQ(copy->f1, "a");
    EXPECT_EQ(copy.ledger.history(), std::vector<Request>{asked_for(2)});
}

TEST(duplicate, raw_bool_is_copied_raw) {
    for (unsigned value : {0x00u, 0x01u, 0x02u, 0x80u, 0xFFu}) {
        vesk_entity_common_data source = {};
        source.f6 = static_cast<std::uint8_t>(value);
        EXPECT_EQ(Copy<vesk_entity_common_data>(source)->f6, value);
    }
}

TEST(duplicate, all_64_bits_are_copied) {
    vesk_entity_common_data source = {};
    source.f20 = 0x0123456789ABCDEF;
    EXPECT_EQ(Copy<vesk_entity_common_data>(source)->f20, 0x0123456789ABCDEF);
}

TEST(duplicate, bytes_by_reference_become_an_owned_copy) {
    const Decoded<vesk_scratch_eeprom> source(bytes_field(2, four_bytes), VESK_BYTES_BY_REFERENCE);
    const Copy<vesk_scratch_eeprom> copy(source.message);
    EXPECT_TRUE(copy.ledger.owns(copy->f2));
    EXPECT_EQ(to_hex(Bytes(copy->f2, copy->f2 + copy->f2_length)), to_hex(four_bytes));
}

// ---- Empty fields --------------------------------------------------------------------------------------------------

TEST(duplicate, bytes_of_length_0_lose_their_pointer_and_keep_their_bit) {
    for (std::uint8_t* pointer : {static_cast<std::uint8_t*>(nullptr), unreadable<std::uint8_t>()}) {
        for (std::uint8_t bits : {std::uint8_t{0x00}, std::uint8_t{0x02}}) {
            vesk_scratch_eeprom source = {};
            source.f2 = pointer;
            source.present[0] = bits;
            const Copy<vesk_scratch_eeprom> copy(source);
            EXPECT_EQ(copy.code, VESK_OK);
            EXPECT_EQ(copy->f2, nullptr);
            EXPECT_EQ(copy->f2_length, 0u);
            EXPECT_EQ(copy->present[0] & 0x02, bits);
            EXPECT_EQ(copy.ledger.requests_made(), 0u);
        }
    }
}

TEST(duplicate, null_string_keeps_its_bit) {
    vesk_scratch_eeprom source = {};
    VESK_MARK(&source, VESK_SCRATCH_EEPROM_F1);
    const Copy<vesk_scratch_eeprom> copy(source, {}, 0x00);
    EXPECT_EQ(copy.code, VESK_OK);
    EXPECT_EQ(copy->f1, nullptr);
    EXPECT_EQ(copy->present[0], 1 << VESK_SCRATCH_EEPROM_F1);
    EXPECT_EQ(copy.ledger.requests_made(), 0u);
}

TEST(duplicate, list_with_count_0_loses_its_pointer_and_keeps_its_bit) {
    for (vesk_led_data* pointer : {static_cast<vesk_led_data*>(nullptr), unreadable<vesk_led_data>()}) {
        for (bool present : {false, true}) {
            vesk_resp_inv_data source = {};
            source.led_list = pointer;
            if (present) VESK_MARK(&source, VESK_RESP_INV_DATA_LED_LIST);
            const Copy<vesk_resp_inv_data> copy(source);
            EXPECT_EQ(copy.code, VESK_OK);
            EXPECT_EQ(copy->led_list, nullptr);
            EXPECT_EQ(copy->led_list_count, 0u);
            EXPECT_EQ(VESK_HAS(&copy.message, VESK_RESP_INV_DATA_LED_LIST), present);
            EXPECT_EQ(copy.ledger.requests_made(), 0u);
        }
    }
}

// ---- Presence bits -------------------------------------------------------------------------------------------------

TEST(duplicate_presence, content_with_clear_bits_is_copied_with_clear_bits) {
    vesk_scratch_eeprom source = scratch_pad();
    source.present[0] = 0x00;
    const Copy<vesk_scratch_eeprom> copy(source, {}, 0x00);
    EXPECT_EQ(copy.code, VESK_OK);
    EXPECT_EQ(copy->present[0], 0x00);
    EXPECT_STREQ(copy->f1, "north");
    EXPECT_EQ(copy->f2_length, 4u);
    EXPECT_EQ(copy->f3, 300u);
    EXPECT_STREQ(copy->f4, "");
}

TEST(duplicate_presence, list_with_clear_bit_is_copied_with_clear_bit) {
    const Decoded<vesk_resp_inv_data> source(message_field(8, text_field(5, "red")));
    vesk_resp_inv_data unmarked = source.message;
    VESK_UNMARK(&unmarked, VESK_RESP_INV_DATA_LED_LIST);
    const Copy<vesk_resp_inv_data> copy(unmarked);
    ASSERT_EQ(copy->led_list_count, 1u);
    EXPECT_STREQ(copy->led_list[0].f5, "red");
    EXPECT_FALSE(VESK_HAS(&copy.message, VESK_RESP_INV_DATA_LED_LIST));
}

TEST(duplicate_presence, each_bit_is_copied_and_the_others_of_its_byte_stay) {
    for (unsigned background : {0x00u, 0xFFu, 0x5Au, 0xA5u}) {
        for (unsigned bits = 0; bits < 16; ++bits) {
            vesk_scratch_eeprom source = {};
            source.present[0] = static_cast<std::uint8_t>(bits);
            const Copy<vesk_scratch_eeprom> copy(source, {}, static_cast<std::uint8_t>(background));
            EXPECT_EQ(copy->present[0], (background & 0xF0) | bits);
        }
    }
}

TEST(duplicate_presence, spare_bits_of_the_source_are_not_copied) {
    vesk_scratch_eeprom source = {};
    source.present[0] = 0xF5;
    EXPECT_EQ(Copy<vesk_scratch_eeprom>(source, {}, 0x00)->present[0], 0x05);
}

TEST(duplicate_presence, spare_bits_stay_in_every_byte_and_in_nested_messages) {
    vesk_fru_common_attribute source = {};
    source.present[0] = 0x3C;
    source.present[1] = 0x01;
    source.oper_status.present[0] = 0x11;
    const Copy<vesk_fru_common_attribute> copy(source, {}, 0xFF);
    EXPECT_EQ(copy->present[0], 0x3C);              // eight fields, no spare bit
    EXPECT_EQ(copy->present[1], 0xFD);              // two fields, six spare bits
    EXPECT_EQ(copy->oper_status.present[0], 0xF1);  // five fields
    EXPECT_EQ(copy->admin_status.present[0], 0xF0);
}

TEST(duplicate_presence, spare_bits_of_elements_are_those_of_the_block) {
    vesk_led_data leds[2] = {};  // five fields
    leds[0].present[0] = 0x1F;
    vesk_resp_inv_data source = {};
    source.led_list = leds;
    source.led_list_count = 2;
    const Copy<vesk_resp_inv_data> copy(source);
    ASSERT_EQ(copy->led_list_count, 2u);
    EXPECT_EQ(copy->led_list[0].present[0], (Ledger::fill & 0xE0) | 0x1F);
    EXPECT_EQ(copy->led_list[1].present[0], Ledger::fill & 0xE0);
    EXPECT_EQ(copy->led_list[1].entity_common.present[2], Ledger::fill & 0xF0);  // 20 fields
    EXPECT_EQ(copy->led_list[1].f3, 0u);
    EXPECT_EQ(copy->led_list[1].f5, nullptr);
}

TEST(duplicate_presence, bit_of_a_nested_message_is_copied_either_way) {
    vesk_req_inv_data source = {};
    source.policy.f3 = 7;
    EXPECT_EQ(Copy<vesk_req_inv_data>(source, {}, 0xFF)->present[0], 0xC0);
    VESK_MARK(&source, VESK_REQ_INV_DATA_EID);
    VESK_MARK(&source, VESK_REQ_INV_DATA_POLICY);
    const Copy<vesk_req_inv_data> copy(source, {}, 0x00);
    EXPECT_EQ(copy->present[0], 1 << VESK_REQ_INV_DATA_EID | 1 << VESK_REQ_INV_DATA_POLICY);
    EXPECT_EQ(copy->policy.f3, 7u);
}

// ---- A message onto itself -----------------------------------------------------------------------------------------

TEST(duplicate_onto_itself, is_a_good_copy_and_its_old_blocks_are_as_they_were) {
    std::size_t copied = 0;
    for (const TypeInfo* type : all_types()) {
        SCOPED_TRACE(type->name);
        AnyDecoded message(*type, full_encoding(*type));
        Storage old(*type);
        std::memcpy(old.get(), message.message.get(), type->size);
        Ledger ledger;
        EXPECT_EQ(type->duplicate(message.message.get(), message.message.get(), Ledger::alloc, &ledger), VESK_OK);
        EXPECT_EQ(first_difference(*type, message.message.get(), old.get()), "");
        const std::vector<const void*> blocks = owned_blocks(*type, message.message.get());
        EXPECT_TRUE(std::all_of(blocks.begin(), blocks.end(), [&](const void* block) { return ledger.owns(block); }));
        copied += blocks.size();
        type->free(message.message.get(), Ledger::release, &ledger, 0);
        std::memcpy(message.message.get(), old.get(), type->size);  // with its ledger, which frees it
    }
    EXPECT_GT(copied, 1000u);
}

TEST(duplicate_onto_itself, what_cannot_be_copied_is_empty_and_marked_absent) {
    const Decoded<vesk_resp_inv_data> source(every_kind_of_field());
    vesk_resp_inv_data message = source.message;
    EXPECT_EQ(vesk_resp_inv_data_duplicate(&message, &message, nullptr, nullptr), VESK_NO_MEMORY);
    EXPECT_EQ(message.idprom_list, nullptr);
    EXPECT_EQ(message.idprom_list_count, 0u);
    EXPECT_EQ(message.led_list, nullptr);
    EXPECT_EQ(message.f1, 1u);
    EXPECT_EQ(message.present[0], 1 << VESK_RESP_INV_DATA_F1);
}

// ---- Failures ------------------------------------------------------------------------------------------------------

TEST(duplicate_failure, null_callback_is_enough_for_numbers_and_nested_messages) {
    vesk_req_inv_data source = {};
    source.f1 = 1;
    source.eid.f1 = 9;
    source.policy.f3 = 7;
    source.present[0] = 0x3F;
    vesk_req_inv_data copy = filled_with<vesk_req_inv_data>(0x00);
    EXPECT_EQ(vesk_req_inv_data_duplicate(&copy, &source, nullptr, nullptr), VESK_OK);
    EXPECT_EQ(copy.eid.f1, 9u);
    EXPECT_EQ(copy.policy.f3, 7u);
    EXPECT_EQ(copy.present[0], 0x3F);
}

TEST(duplicate_failure, null_callback_empties_every_field_that_owns_a_block_and_copies_the_rest) {
    const vesk_scratch_eeprom source = scratch_pad();
    vesk_scratch_eeprom copy = filled_with<vesk_scratch_eeprom>(0xFF);
    EXPECT_EQ(vesk_scratch_eeprom_duplicate(&copy, &source, nullptr, nullptr), VESK_NO_MEMORY);
    EXPECT_EQ(copy.f1, nullptr);
    EXPECT_EQ(copy.f2, nullptr);
    EXPECT_EQ(copy.f2_length, 0u);
    EXPECT_EQ(copy.f3, 300u);
    EXPECT_EQ(copy.f4, nullptr);
    EXPECT_EQ(copy.present[0], 0xF0 | 1 << VESK_SCRATCH_EEPROM_F3);
}

TEST(duplicate_failure, null_callback_empties_a_list) {
    const Decoded<vesk_resp_inv_data> source(message(message_field(8, Bytes{}), number_field(4, 3)));
    vesk_resp_inv_data copy = filled_with<vesk_resp_inv_data>(0xFF);
    EXPECT_EQ(vesk_resp_inv_data_duplicate(&copy, &source.message, nullptr, nullptr), VESK_NO_MEMORY);
    EXPECT_EQ(copy.led_list, nullptr);
    EXPECT_EQ(copy.led_list_count, 0u);
    EXPECT_FALSE(VESK_HAS(&copy, VESK_RESP_INV_DATA_LED_LIST));
    EXPECT_EQ(copy.f4, 3u);
}

TEST(duplicate_failure, each_field_that_fails_is_empty_and_the_others_are_copied) {
    const vesk_scratch_eeprom source = scratch_pad();
    for (std::uint64_t n = 1; n <= 3; ++n) {
        const Copy<vesk_scratch_eeprom> copy(source, {n}, 0x00);
        EXPECT_EQ(copy.code, VESK_NO_MEMORY);
        EXPECT_EQ(copy.ledger.requests_made(), 3u) << "it goes on after a failure";
        EXPECT_EQ(copy->f1 == nullptr, n == 1);
        EXPECT_EQ(copy->f2 == nullptr, n == 2);
        EXPECT_EQ(copy->f2_length, n == 2 ? 0u : 4u);
        EXPECT_EQ(copy->f4 == nullptr, n == 3);
        EXPECT_EQ(copy->f3, 300u);
        const unsigned failed = n == 3 ? 1 << VESK_SCRATCH_EEPROM_F4 : 1u << (n - 1);
        EXPECT_EQ(copy->present[0], 0x0F & ~failed);
    }
}

TEST(duplicate_failure, list_that_fails_is_empty_and_the_fields_behind_it_are_copied) {
    const Decoded<vesk_resp_inv_data> source(message(number_field(1, 1), message_field(8, text_field(5, "red")),
                                                     message_field(9, Bytes{}), message_field(21, number_field(3, 7))));
    ASSERT_EQ(source.code, VESK_OK);
    const Copy<vesk_resp_inv_data> copy(source.message, {1}, 0xFF);
    EXPECT_EQ(copy.code, VESK_NO_MEMORY);
    EXPECT_EQ(copy->led_list, nullptr);
    EXPECT_EQ(copy->led_list_count, 0u);
    EXPECT_FALSE(VESK_HAS(&copy.message, VESK_RESP_INV_DATA_LED_LIST));
    EXPECT_EQ(copy->craft_list_count, 1u);
    ASSERT_EQ(copy->container_list_count, 1u);
    EXPECT_EQ(copy->container_list[0].f3, 7u);
    EXPECT_TRUE(VESK_HAS(&copy.message, VESK_RESP_INV_DATA_CONTAINER_LIST));
    EXPECT_EQ(copy.ledger.requests_made(), 3u) << "nothing is asked for on behalf of elements that have no array";
}

TEST(duplicate_failure, element_that_fails_leaves_the_list_and_its_bit) {
    const Decoded<vesk_resp_inv_data> source(message(
        message_field(8, text_field(5, "red")), message_field(8, message(text_field(5, "green"), number_field(3, 7))),
        message_field(8, text_field(5, "blue"))));
    const Copy<vesk_resp_inv_data> copy(source.message, {3});
    EXPECT_EQ(copy.code, VESK_NO_MEMORY);
    EXPECT_TRUE(VESK_HAS(&copy.message, VESK_RESP_INV_DATA_LED_LIST));
    ASSERT_EQ(copy->led_list_count, 3u);
    EXPECT_STREQ(copy->led_list[0].f5, "red");
    EXPECT_EQ(copy->led_list[1].f5, nullptr);
    EXPECT_FALSE(VESK_HAS(&copy->led_list[1], VESK_LED_DATA_F5));
    EXPECT_EQ(copy->led_list[1].f3, 7u);
    EXPECT_STREQ(copy->led_list[2].f5, "blue");
}

TEST(duplicate_failure, nested_message_that_fails_keeps_its_bit) {
    const Decoded<vesk_req_inv_data> source(message_field(6, message(text_field(1, "a"), text_field(2, "b"))));
    const Copy<vesk_req_inv_data> copy(source.message, {1}, 0x00);
    EXPECT_EQ(copy.code, VESK_NO_MEMORY);
    EXPECT_EQ(copy->present[0], 1 << VESK_REQ_INV_DATA_POLICY);
    EXPECT_EQ(copy->policy.present[0], 1 << VESK_INV_POLICY_F2);
    EXPECT_STREQ(copy->policy.f2, "b");
}

TEST(duplicate_failure, each_allocation_failing_in_turn_leaks_nothing) {
    const Decoded<vesk_resp_inv_data> source(every_kind_of_field());
    const std::uint64_t requests = Copy<vesk_resp_inv_data>(source.message).ledger.requests_made();
    EXPECT_EQ(requests, 10u);
    for (std::uint64_t n = 1; n <= requests; ++n) {
        const Copy<vesk_resp_inv_data> copy(source.message, {n});
        EXPECT_EQ(copy.code, VESK_NO_MEMORY) << "request " << n;
        EXPECT_EQ(copy->f1, 1u);
    }
    for (std::uint64_t n = 1; n < requests; ++n) {
        EXPECT_EQ(Copy<vesk_resp_inv_data>(source.message, {n, n + 1}).code, VESK_NO_MEMORY);
    }
}

}  // namespace
}  // namespace vesk::test
