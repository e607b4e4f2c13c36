// SNMP index, client handles and administration.
#include <gtest/gtest.h>

#include <cstddef>

#include "tests/support/families.hpp"

namespace vesk::test {
namespace {

// ---- Client handles ------------------------------------------------------------------------------------------------

TEST(clients_hdl_info, fields_1_2_and_5_keep_64_bits_and_the_others_32) {
    expect_numbers_keep_64_bits<vesk_clients_hdl_info>({1, 2, 5});
    expect_numbers_keep_32_bits<vesk_clients_hdl_info>({3, 4, 6, 7, 8, 9, 10, 11, 12, 13});

    const Decoded<vesk_clients_hdl_info> handle(message(number_field(1, ~std::uint64_t{0}),
                                                        number_field(2, std::uint64_t{1} << 63),
                                                        number_field(3, (std::uint64_t{1} << 32) + 5)));
    ASSERT_EQ(handle.code, VESK_OK);
    EXPECT_EQ(handle->f1, ~std::uint64_t{0});
    EXPECT_EQ(handle->f2, std::uint64_t{1} << 63);
    EXPECT_EQ(handle->f3, 5u);
    EXPECT_EQ(to_hex(encoded(handle.message)), to_hex(hex("08 FF FF FF FF FF FF FF FF FF 01"
                                                          "10 80 80 80 80 80 80 80 80 80 01  18 05")));
}

TEST(clients_hdl_info, bits_8_to_13_stand_in_the_second_byte) {
    const Decoded<vesk_clients_hdl_info> handle(message(number_field(9, 1), text_field(14, "client")));
    ASSERT_EQ(handle.code, VESK_OK);
    EXPECT_EQ(presence_of(handle.message), "00 21");
}

TEST(resp_clients_hdl_data, free_gives_back_each_string_and_then_the_array) {
    Decoded<vesk_resp_clients_hdl_data> response(message(message_field(1, text_field(14, "a")),
                                                         message_field(1, number_field(1, 1)),
                                                         message_field(1, text_field(14, "third"))));
    ASSERT_EQ(response.code, VESK_OK);
    response.ledger.clear_history();
    vesk_resp_clients_hdl_data_free_ext(&response.message, Ledger::release, &response.ledger, 0);
    EXPECT_EQ(response.ledger.history(), (std::vector<Request>{given_back(sizeof "a"), given_back(sizeof "third"),
                                                               given_back(3 * sizeof(vesk_clients_hdl_info))}));
    EXPECT_EQ(response->clients_hdl_list, nullptr);
    EXPECT_EQ(response->clients_hdl_list_count, 0u);
    EXPECT_EQ(response.ledger.blocks_out(), 0u);
}

TEST(resp_clients_hdl_data, list_is_written_only_with_its_bit_and_elements) {
    vesk_clients_hdl_info handles[2] = {};
    vesk_resp_clients_hdl_data response = {};
    response.clients_hdl_list = handles;
    response.clients_hdl_list_count = 2;
    EXPECT_EQ(to_hex(encoded(response)), "");
    VESK_MARK(&response, VESK_RESP_CLIENTS_HDL_DATA_CLIENTS_HDL_LIST);
    EXPECT_EQ(to_hex(encoded(response)), "0a 00 0a 00");
    response.clients_hdl_list_count = 0;
    EXPECT_EQ(to_hex(encoded(response)), "");
}

TEST(resp_clients_hdl_data, second_run_behind_an_unknown_field_is_malformed) {
    const Bytes handle = message_field(1, number_field(1, 1));
    EXPECT_EQ(decode_code<vesk_resp_clients_hdl_data>(message(handle, number_field(2, 1), handle)), VESK_MALFORMED);
}

TEST(resp_clients_hdl_data, presence_follows_the_count_at_once) {
    EXPECT_EQ(offsetof(vesk_resp_clients_hdl_data, present),
              offsetof(vesk_resp_clients_hdl_data, clients_hdl_list_count) + 4);
}

// ---- Administration ------------------------------------------------------------------------------------------------

TEST(inv_debug_msg, flag_received_as_5_is_stored_and_written_as_1) {
    const Decoded<vesk_inv_debug_msg> debug(hex("08 05"));
    ASSERT_EQ(debug.code, VESK_OK);
    EXPECT_EQ(debug->f1, 1);
    EXPECT_EQ(to_hex(encoded(debug.message)), "08 01");
    expect_flags_become_1<vesk_inv_debug_msg>({1}, 5);
}

TEST(req_admin_memory_data, repeated_string_is_malformed) {
    const Decoded<vesk_req_admin_memory_data> request(
        message(text_field(2, "heap"), number_field(1, 1), text_field(2, "pool")));
    EXPECT_EQ(request.code, VESK_MALFORMED);
    EXPECT_STREQ(request->f2, "heap");
    expect_repetition_is_malformed<vesk_req_admin_memory_data>({2});
    expect_repetition_is_malformed<vesk_clients_hdl_info>({14});
}

TEST(administration, present_string_that_is_null_is_not_written) {
    expect_null_is_not_written<vesk_req_admin_memory_data>({VESK_REQ_ADMIN_MEMORY_DATA_F2});
    expect_null_is_not_written<vesk_clients_hdl_info>({VESK_CLIENTS_HDL_INFO_F14});
}

// ---- SNMP index and rack resources ---------------------------------------------------------------------------------

TEST(administration, empty_blocks_are_written_only_if_present) {
    expect_empty_is_written_only_if_present<vesk_inv_fru_snmp_idx_req>(VESK_INV_FRU_SNMP_IDX_REQ_POLICY, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_fru_snmp_idx_req>(VESK_INV_FRU_SNMP_IDX_REQ_EID, "12 00");
    expect_empty_is_written_only_if_present<vesk_inv_fru_snmp_idx_data>(VESK_INV_FRU_SNMP_IDX_DATA_SNMP_IDX_REQ,
                                                                        "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_rack_resource_req>(VESK_INV_RACK_RESOURCE_REQ_POLICY, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_rack_resource_req>(VESK_INV_RACK_RESOURCE_REQ_EID, "12 00");
    expect_empty_is_written_only_if_present<vesk_inv_rack_resource_resp>(VESK_INV_RACK_RESOURCE_RESP_EID, "0a 00");
}

TEST(inv_fru_snmp_idx_data, request_that_it_answers_is_written_without_its_bit) {
    vesk_inv_fru_snmp_idx_data answer = {};
    answer.snmp_idx_req.policy.f1 = literal("all");
    VESK_MARK(&answer.snmp_idx_req.policy, VESK_INV_POLICY_F1);
    answer.snmp_idx_req.eid.f1 = 7;
    VESK_MARK(&answer.snmp_idx_req.eid, VESK_DRIN_EID_ST_F1);
    EXPECT_EQ(to_hex(encoded(answer)), "0a 0b 0a 05 0a 03 61 6c 6c 12 02 08 07");
}

}  // namespace
}  // namespace vesk::test
