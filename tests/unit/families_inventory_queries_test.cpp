// Inventory queries: the requests, resp_inv_data with its seventeen lists, and resp_inv_data_by_eid.
#include <gtest/gtest.h>

#include "tests/support/api.hpp"

namespace vesk::test {
namespace {

// ---- Lists ---------------------------------------------------------------------------------------------------------

Bytes pem(std::uint32_t f3) { return message_field(11, number_field(3, f3)); }
Bytes led(std::uint32_t f3) { return message_field(8, number_field(3, f3)); }

TEST(resp_inv_data, empty_response_encodes_to_nothing) {
    const vesk_resp_inv_data response = {};
    EXPECT_EQ(to_hex(encoded(response)), "");
}

TEST(resp_inv_data, three_elements_in_a_row_are_one_list_and_keep_their_order) {
    const Bytes input = message(pem(10), pem(20), pem(30));
    const Decoded<vesk_resp_inv_data> response(input);
    ASSERT_EQ(response.code, VESK_OK);
    ASSERT_EQ(response->pem_list_count, 3u);
    EXPECT_EQ(response->pem_list[0].f3, 10u);
    EXPECT_EQ(response->pem_list[1].f3, 20u);
    EXPECT_EQ(response->pem_list[2].f3, 30u);
    EXPECT_TRUE(VESK_HAS(&response.message, VESK_RESP_INV_DATA_PEM_LIST));
    EXPECT_EQ(response.ledger.history(), (std::vector<Request>{{Request::What::alloc, 3 * sizeof(vesk_pem_data)}}));
    EXPECT_EQ(to_hex(encoded(response.message)), to_hex(input));
}

TEST(resp_inv_data, second_run_of_a_list_is_malformed) {
    const Decoded<vesk_resp_inv_data> response(message(pem(10), led(1), pem(20)));
    EXPECT_EQ(response.code, VESK_MALFORMED);
    EXPECT_EQ(response->pem_list_count, 1u);
    EXPECT_EQ(response->led_list_count, 1u);
}

TEST(resp_inv_data, run_is_broken_by_an_unknown_field_too) {
    EXPECT_EQ(decode_code<vesk_resp_inv_data>(message(pem(10), number_field(22, 0), pem(20))), VESK_MALFORMED);
}

TEST(resp_inv_data, present_list_without_elements_is_not_written) {
    vesk_resp_inv_data response = {};
    VESK_MARK(&response, VESK_RESP_INV_DATA_PEM_LIST);
    EXPECT_EQ(to_hex(encoded(response)), "");
}

TEST(resp_inv_data, list_without_its_bit_is_not_written) {
    vesk_pem_data pems[2] = {};
    vesk_resp_inv_data response = {};
    response.pem_list = pems;
    response.pem_list_count = 2;
    EXPECT_EQ(to_hex(encoded(response)), "");
}

TEST(resp_inv_data, empty_element_is_read_as_a_cleared_record) {
    const Bytes input = message(pem(10), hex("5A 00"), pem(30));
    const Decoded<vesk_resp_inv_data> response(input);
    ASSERT_EQ(response.code, VESK_OK);
    ASSERT_EQ(response->pem_list_count, 3u);
    EXPECT_TRUE(has_no_presence(response->pem_list[1]));
    EXPECT_EQ(response->pem_list[1].f3, 0u);
    EXPECT_EQ(to_hex(encoded(response.message)), to_hex(input));
}

TEST(resp_inv_data, empty_element_is_written_as_tag_and_zero) {
    vesk_pem_data pems[2] = {};
    vesk_resp_inv_data response = {};
    response.pem_list = pems;
    response.pem_list_count = 2;
    VESK_MARK(&response, VESK_RESP_INV_DATA_PEM_LIST);
    EXPECT_EQ(to_hex(encoded(response)), "5a 00 5a 00");
}

TEST(resp_inv_data, later_element_with_wire_type_0_is_read_as_a_length) {
    // 58 is the tag of field 11 with wire type 0; what follows it is a length and an element all the same.
    const Decoded<vesk_resp_inv_data> response(hex("5A 02 18 0A  58 02 18 14  08 01"));
    ASSERT_EQ(response.code, VESK_OK);
    ASSERT_EQ(response->pem_list_count, 2u);
    EXPECT_EQ(response->pem_list[1].f3, 20u);
    EXPECT_EQ(response->f1, 1u);
    EXPECT_EQ(to_hex(encoded(response.message)), "08 01 5a 02 18 0a 5a 02 18 14");
}

TEST(resp_inv_data, first_element_with_wire_type_0_is_refused) {
    EXPECT_EQ(decode_code<vesk_resp_inv_data>(hex("58 02 18 14")), VESK_WRONG_WIRE_TYPE);
}

TEST(resp_inv_data, error_of_an_element_ends_the_decode) {
    const Decoded<vesk_resp_inv_data> response(hex("5A 02 18 0A  5A 02 1A 00  08 01"));
    EXPECT_EQ(response.code, VESK_WRONG_WIRE_TYPE);
    EXPECT_EQ(response->pem_list_count, 2u);
    EXPECT_FALSE(VESK_HAS(&response.message, VESK_RESP_INV_DATA_PEM_LIST));
    EXPECT_FALSE(VESK_HAS(&response.message, VESK_RESP_INV_DATA_F1));
}

TEST(resp_inv_data, element_past_the_end_is_malformed_before_anything_is_allocated) {
    const Decoded<vesk_resp_inv_data> response(hex("5A 02 18 0A  5A 03 18 14"));
    EXPECT_EQ(response.code, VESK_MALFORMED);
    EXPECT_EQ(response->pem_list, nullptr);
    EXPECT_EQ(response.ledger.requests_made(), 0u);
}

TEST(resp_inv_data, list_without_a_callback_or_a_block_is_out_of_memory) {
    const Bytes input = pem(10);
    vesk_resp_inv_data response;
    EXPECT_EQ(vesk_resp_inv_data_decode_ext(&response, input.data(), input.size(), nullptr, nullptr, 0),
              VESK_NO_MEMORY);
    Ledger ledger;
    ledger.fail_from_now_on();
    EXPECT_EQ(vesk_resp_inv_data_decode_ext(&response, input.data(), input.size(), Ledger::alloc, &ledger, 0),
              VESK_NO_MEMORY);
    EXPECT_EQ(response.pem_list, nullptr);
}

TEST(resp_inv_data, lists_stand_in_their_own_order_with_two_byte_tags_from_field_16) {
    Bytes input;
    for (std::uint32_t number = 5; number <= 21; ++number) input = message(input, message_field(number, {}));
    const Decoded<vesk_resp_inv_data> response(input);
    ASSERT_EQ(response.code, VESK_OK);
    EXPECT_EQ(to_hex(encoded(response.message)),
              to_hex(hex("2A 00  32 00  3A 00  42 00  4A 00  52 00  5A 00  62 00  6A 00  72 00  7A 00"
                         "82 01 00  8A 01 00  92 01 00  9A 01 00  A2 01 00  AA 01 00")));
    EXPECT_EQ(to_hex(Bytes(response->present, response->present + 3)), "f0 ff 1f");
}

// ---- One record of each kind ---------------------------------------------------------------------------------------

TEST(resp_inv_data_by_eid, lookup_error_alone_sets_only_bit_19) {
    const Bytes input = message_field(20, message(message_field(1, number_field(1, 7)), number_field(2, 404)));
    const Decoded<vesk_resp_inv_data_by_eid> response(input);
    ASSERT_EQ(response.code, VESK_OK);
    EXPECT_EQ(to_hex(Bytes(response->present, response->present + 3)), "00 00 08");
    EXPECT_EQ(response->lookup_error.eid.f1, 7u);
    EXPECT_EQ(response->lookup_error.f2, 404u);
    EXPECT_EQ(to_hex(encoded(response.message)), to_hex(input));
}

TEST(resp_inv_data_by_eid, records_stand_in_their_own_order_with_two_byte_tags_from_field_16) {
    vesk_resp_inv_data_by_eid response = {};
    std::memset(response.present, 0xFF, sizeof response.present);
    EXPECT_EQ(to_hex(encoded(response)),
              to_hex(hex("08 00  10 00  1A 00  22 00  2A 00  32 00  3A 00  42 00  4A 00  52 00  5A 00  62 00  6A 00"
                         "72 00  7A 00  82 01 00  8A 01 00  92 01 00  9A 01 00  A2 01 00")));
}

TEST(resp_inv_data_by_eid, record_that_occurs_again_replaces_the_first) {
    const Decoded<vesk_resp_inv_data_by_eid> response(
        message(message_field(9, number_field(3, 10)), message_field(9, number_field(4, 20))));
    ASSERT_EQ(response.code, VESK_OK);
    EXPECT_EQ(to_hex(encoded(response.message)), to_hex(message_field(9, number_field(4, 20))));
}

// ---- Requests ------------------------------------------------------------------------------------------------------

TEST(inventory_requests, flag_received_as_5_is_written_as_1) {
    EXPECT_EQ(to_hex(encoded(Decoded<vesk_req_inv_data>(number_field(5, 5)).message)), "28 01");
    EXPECT_EQ(to_hex(encoded(Decoded<vesk_req_inv_data_by_type>(number_field(4, 5)).message)), "20 01");
    EXPECT_EQ(to_hex(encoded(Decoded<vesk_req_inv_data_by_type>(number_field(5, 5)).message)), "28 01");
    EXPECT_EQ(to_hex(encoded(Decoded<vesk_req_inv_data_by_eid>(number_field(3, 5)).message)), "18 01");
}

TEST(req_inv_data, policy_is_read_by_its_own_rules) {
    const Bytes input = message(message_field(3, number_field(1, 7)), message_field(6, text_field(1, "all")));
    const Decoded<vesk_req_inv_data> request(input);
    ASSERT_EQ(request.code, VESK_OK);
    EXPECT_STREQ(request->policy.f1, "all");
    EXPECT_EQ(request->present[0], 0b100100);
    EXPECT_EQ(to_hex(encoded(request.message)), to_hex(input));
    EXPECT_EQ(decode_code<vesk_req_inv_data>(message_field(6, message(text_field(1, "a"), text_field(1, "b")))),
              VESK_MALFORMED);
}

}  // namespace
}  // namespace vesk::test
