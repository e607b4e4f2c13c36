// What free gives back, in which order, and what it leaves in the message.
#include <gtest/gtest.h>

#include "tests/support/messages.hpp"

namespace vesk::test {
namespace {

constexpr std::uint32_t by_reference = VESK_BYTES_BY_REFERENCE;

// A message that was decoded with `flags`, and is freed by the test.
template <class T>
struct Filled {
    explicit Filled(Bytes bytes, std::uint32_t flags = 0) : input(std::move(bytes)) {
        EXPECT_EQ(Api<T>::decode(&message, input.data(), input.size(), Ledger::alloc, &ledger, flags), VESK_OK);
        ledger.clear_history();
    }
    void free(std::uint32_t flags = 0) { Api<T>::free(&message, Ledger::release, &ledger, flags); }

    Bytes input;
    Ledger ledger;
    T message;
};

Bytes scratch_pad() {
    return message(text_field(1, "north"), bytes_field(2, hex("01 02 03")), number_field(3, 300), text_field(4, ""));
}

TEST(free_message, gives_every_block_back_in_declaration_order) {
    Filled<vesk_scratch_eeprom> scratch(scratch_pad());
    scratch.free();
    EXPECT_EQ(scratch.ledger.blocks_out(), 0u);
    EXPECT_EQ(scratch.ledger.history(), (std::vector<Request>{given_back(6), given_back(3), given_back(1)}));
}

TEST(free_message, pointers_are_null_afterwards_and_all_else_stays) {
    Filled<vesk_scratch_eeprom> scratch(scratch_pad());
    scratch.message.present[0] = 0x5F;
    scratch.free();
    EXPECT_EQ(scratch.message.f1, nullptr);
    EXPECT_EQ(scratch.message.f2, nullptr);
    EXPECT_EQ(scratch.message.f2_length, 3u);
    EXPECT_EQ(scratch.message.f3, 300u);
    EXPECT_EQ(scratch.message.f4, nullptr);
    EXPECT_EQ(scratch.message.present[0], 0x5F);
}

TEST(free_message, presence_bits_do_not_decide) {
    Filled<vesk_scratch_eeprom> scratch(scratch_pad());
    scratch.message.present[0] = 0;
    scratch.free();
    EXPECT_EQ(scratch.ledger.blocks_out(), 0u);
    EXPECT_EQ(scratch.message.present[0], 0);
}

TEST(free_message, second_call_releases_nothing) {
    const Bytes led = message_field(8, message(text_field(5, "red"), message_field(1, text_field(2, "x"))));
    Filled<vesk_resp_inv_data> response(message(led, led));
    response.free();
    response.ledger.clear_history();
    response.free();
    EXPECT_TRUE(response.ledger.history().empty());
    vesk_resp_inv_data_free_ext(&response.message, nullptr, nullptr, 0);  // owns nothing, so it needs no callback
}

TEST(free_message, cleared_message_needs_no_callback) {
    vesk_resp_inv_data response = {};
    vesk_resp_inv_data_free_ext(&response, nullptr, nullptr, 0);
    vesk_idprom_data idprom = {};
    vesk_idprom_data_free_ext(&idprom, nullptr, nullptr, 0);
}

TEST(free_message, message_of_numbers_is_left_as_it_is) {
    vesk_entity_oper_status_data status = filled_with<vesk_entity_oper_status_data>(0x5A);
    const vesk_entity_oper_status_data before = status;
    vesk_entity_oper_status_data_free_ext(&status, nullptr, nullptr, 0);
    EXPECT_EQ(std::memcmp(&status, &before, sizeof before), 0);
}

TEST(free_message, can_be_decoded_into_again) {
    Filled<vesk_scratch_eeprom> scratch(scratch_pad());
    scratch.free();
    const Bytes& input = scratch.input;
    EXPECT_EQ(
        vesk_scratch_eeprom_decode_ext(&scratch.message, input.data(), input.size(), Ledger::alloc, &scratch.ledger, 0),
        VESK_OK);
    EXPECT_EQ(to_hex(encoded(scratch.message)), to_hex(input));
    scratch.free();
}

// ---- What a callback finds in the message --------------------------------------------------------------------------

// A release callback that looks at something of the message each time, before the block is gone.
template <class Look>
struct Watcher {
    Look look;
    std::vector<decltype(std::declval<Look>()())> seen = {};

    static void release(void*, void* context) {
        Watcher& watcher = *static_cast<Watcher*>(context);
        watcher.seen.push_back(watcher.look());
    }
};

TEST(free_callback, finds_the_block_in_its_member_and_null_in_those_before_it) {
    vesk_scratch_eeprom scratch = {};
    const Bytes data = hex("01");
    scratch.f1 = literal("a");
    scratch.f2 = data_of(data);
    scratch.f4 = literal("b");
    const vesk_scratch_eeprom before = scratch;
    const auto look = [&] { return std::vector<const void*>{scratch.f1, scratch.f2, scratch.f4}; };
    Watcher<decltype(look)> watcher{look};
    vesk_scratch_eeprom_free_ext(&scratch, watcher.release, &watcher, 0);
    EXPECT_EQ(watcher.seen,
              (std::vector<std::vector<const void*>>{
                  {before.f1, before.f2, before.f4}, {nullptr, before.f2, before.f4}, {nullptr, nullptr, before.f4}}));
}

TEST(free_callback, finds_array_and_count_in_the_list_until_it_has_the_array) {
    vesk_led_data leds[2] = {};
    leds[0].f5 = literal("red");
    leds[1].f5 = literal("amber");
    vesk_resp_inv_data response = {};
    response.led_list = leds;
    response.led_list_count = 2;
    const auto look = [&] {
        EXPECT_EQ(response.led_list, leds);
        EXPECT_EQ(response.led_list_count, 2u);
        return (leds[0].f5 != nullptr) + (leds[1].f5 != nullptr);
    };
    Watcher<decltype(look)> watcher{look};
    vesk_resp_inv_data_free_ext(&response, watcher.release, &watcher, 0);
    EXPECT_EQ(watcher.seen, (std::vector<int>{2, 1, 0}));
    EXPECT_EQ(response.led_list, nullptr);
    EXPECT_EQ(response.led_list_count, 0u);
}

// ---- Bytes ---------------------------------------------------------------------------------------------------------

TEST(free_bytes, block_of_0_bytes_goes_back) {
    Filled<vesk_scratch_eeprom> scratch(bytes_field(2, {}));
    ASSERT_NE(scratch.message.f2, nullptr);
    scratch.free();
    EXPECT_EQ(scratch.ledger.history(), std::vector<Request>{given_back(0)});
    EXPECT_EQ(scratch.message.f2, nullptr);
}

TEST(free_bytes, by_reference_are_left_alone) {
    Filled<vesk_scratch_eeprom> scratch(scratch_pad(), by_reference);
    const std::uint8_t* data = scratch.message.f2;
    scratch.free(by_reference);
    EXPECT_EQ(scratch.ledger.history(), (std::vector<Request>{given_back(6), given_back(1)}));
    EXPECT_EQ(scratch.message.f2, data);
    EXPECT_EQ(scratch.message.f2_length, 3u);
}

TEST(free_bytes, by_reference_are_left_alone_in_nested_messages_and_elements) {
    const Bytes idprom =
        message(message_field(3, message(bytes_field(20, hex("01 02")), text_field(22, "x"))), text_field(4, "id"));
    Filled<vesk_resp_inv_data> response(message_field(7, idprom), by_reference);
    EXPECT_EQ(response.ledger.blocks_out(), 3u);
    response.free(by_reference);
    EXPECT_EQ(response.ledger.blocks_out(), 0u);
    EXPECT_EQ(response.message.idprom_list, nullptr);
}

TEST(free_bytes, null_pointer_with_a_length_is_not_released) {
    vesk_scratch_eeprom scratch = {};
    scratch.f2_length = 5;
    vesk_scratch_eeprom_free_ext(&scratch, nullptr, nullptr, 0);
    EXPECT_EQ(scratch.f2_length, 5u);
}

// ---- Nested messages and lists -------------------------------------------------------------------------------------

TEST(free_nested, content_with_clear_bit_goes_back) {
    Filled<vesk_req_inv_data> request(message_field(6, text_field(1, "a")));
    request.message.present[0] = 0;
    request.message.policy.present[0] = 0;
    request.free();
    EXPECT_EQ(request.ledger.blocks_out(), 0u);
    EXPECT_EQ(request.message.policy.f1, nullptr);
}

TEST(free_list, elements_go_before_the_array_in_order) {
    Filled<vesk_resp_inv_data> response(
        message(message_field(8, text_field(5, "red")), message_field(8, text_field(5, "amber"))));
    response.free();
    EXPECT_EQ(response.ledger.history(),
              (std::vector<Request>{given_back(4), given_back(6), given_back(2 * sizeof(vesk_led_data))}));
    EXPECT_EQ(response.message.led_list, nullptr);
    EXPECT_EQ(response.message.led_list_count, 0u);
    EXPECT_TRUE(VESK_HAS(&response.message, VESK_RESP_INV_DATA_LED_LIST));
}

TEST(free_list, clear_bit_does_not_keep_the_array) {
    Filled<vesk_resp_inv_data> response(message_field(8, text_field(5, "red")));
    VESK_UNMARK(&response.message, VESK_RESP_INV_DATA_LED_LIST);
    response.free();
    EXPECT_EQ(response.ledger.blocks_out(), 0u);
}

TEST(free_list, array_with_count_0_goes_back) {
    Ledger ledger;
    vesk_resp_inv_data response = {};
    response.led_list = static_cast<vesk_led_data*>(Ledger::alloc(sizeof(vesk_led_data), &ledger));
    vesk_resp_inv_data_free_ext(&response, Ledger::release, &ledger, 0);
    EXPECT_EQ(ledger.blocks_out(), 0u);
    EXPECT_EQ(response.led_list, nullptr);
}

TEST(free_list, null_array_with_a_count_is_left_alone) {
    vesk_resp_inv_data response = {};
    response.led_list_count = 3;
    vesk_resp_inv_data_free_ext(&response, nullptr, nullptr, 0);
    EXPECT_EQ(response.led_list_count, 3u);
}

TEST(free_list, list_inside_an_element_goes_back) {
    const Bytes eid = message(message_field(6, number_field(1, 1)), message_field(6, Bytes{}));
    Filled<vesk_resp_inv_data> response(message_field(9, message_field(1, message_field(1, eid))));
    response.free();
    EXPECT_EQ(response.ledger.history(), (std::vector<Request>{given_back(2 * sizeof(vesk_drin_eid_element)),
                                                               given_back(sizeof(vesk_craft_data))}));
}

}  // namespace
}  // namespace vesk::test
