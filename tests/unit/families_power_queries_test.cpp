// Power queries: the power usage of units, and the power of the system with its two lists.
#include <gtest/gtest.h>

#include <cstddef>

#include "tests/support/families.hpp"

namespace vesk::test {
namespace {

// ---- resp_system_power_data ----------------------------------------------------------------------------------------

Bytes shelf(std::uint32_t f3) { return message_field(7, number_field(3, f3)); }
Bytes pem(std::uint32_t f3) { return message_field(8, number_field(3, f3)); }

TEST(resp_system_power_data, second_run_of_a_list_is_malformed) {
    const Decoded<vesk_resp_system_power_data> response(message(shelf(1), pem(2), shelf(3)));
    EXPECT_EQ(response.code, VESK_MALFORMED);
    EXPECT_EQ(response->power_shelf_list_count, 1u);
    EXPECT_EQ(response->pem_list_count, 1u);
    EXPECT_EQ(decode_code<vesk_resp_system_power_data>(message(pem(1), shelf(2), pem(3))), VESK_MALFORMED);
    EXPECT_EQ(decode_code<vesk_resp_system_power_data>(message(pem(1), number_field(9, 2), pem(3))), VESK_MALFORMED);
}

TEST(resp_system_power_data, one_list_behind_the_other_keeps_both_orders) {
    const Bytes shelves = message(shelf(30), shelf(10), shelf(20));
    const Bytes pems = message(pem(6), pem(5));
    for (const Bytes& input : {message(shelves, pems), message(pems, shelves)}) {
        const Decoded<vesk_resp_system_power_data> response(input);
        ASSERT_EQ(response.code, VESK_OK);
        ASSERT_EQ(response->power_shelf_list_count, 3u);
        EXPECT_EQ(response->power_shelf_list[0].f3, 30u);
        EXPECT_EQ(response->power_shelf_list[1].f3, 10u);
        EXPECT_EQ(response->power_shelf_list[2].f3, 20u);
        ASSERT_EQ(response->pem_list_count, 2u);
        EXPECT_EQ(response->pem_list[0].f3, 6u);
        EXPECT_EQ(response->pem_list[1].f3, 5u);
        EXPECT_EQ(presence_of(response.message), "c0 00");
        EXPECT_EQ(to_hex(encoded(response.message)), to_hex(message(shelves, pems)));
    }
}

TEST(resp_system_power_data, f14_alone) {
    vesk_resp_system_power_data response = {};
    response.f14 = literal("ab");
    VESK_MARK(&response, VESK_RESP_SYSTEM_POWER_DATA_F14);
    EXPECT_EQ(to_hex(encoded(response)), "72 02 61 62");
    const Decoded<vesk_resp_system_power_data> decoded(hex("72 02 61 62"));
    ASSERT_EQ(decoded.code, VESK_OK);
    EXPECT_STREQ(decoded->f14, "ab");
    EXPECT_EQ(presence_of(decoded.message), "00 20");
}

TEST(resp_system_power_data, number_behind_the_lists_follows_a_count_at_once) {
    using Response = vesk_resp_system_power_data;
    EXPECT_EQ(offsetof(Response, pem_list), offsetof(Response, power_shelf_list) + 2 * sizeof(void*));
    EXPECT_EQ(offsetof(Response, f9), offsetof(Response, pem_list_count) + 4);
    const Bytes input = message(pem(1), pem(2), number_field(9, 0xFFFFFFFF), number_field(13, 13));
    const Decoded<Response> response(input);
    ASSERT_EQ(response.code, VESK_OK);
    EXPECT_EQ(response->pem_list_count, 2u);
    EXPECT_EQ(response->f9, 0xFFFFFFFFu);
    EXPECT_EQ(to_hex(encoded(Copy<Response>(response.message).message)), to_hex(input));
}

TEST(resp_system_power_data, list_without_a_callback_or_a_block_is_out_of_memory) {
    for (const Bytes& input : {shelf(1), pem(1)}) {
        vesk_resp_system_power_data response;
        EXPECT_EQ(vesk_resp_system_power_data_decode_ext(&response, input.data(), input.size(), nullptr, nullptr, 0),
                  VESK_NO_MEMORY);
        Ledger ledger;
        ledger.fail_request(1);
        EXPECT_EQ(
            vesk_resp_system_power_data_decode_ext(&response, input.data(), input.size(), Ledger::alloc, &ledger, 0),
            VESK_NO_MEMORY);
        EXPECT_EQ(response.power_shelf_list, nullptr);
        EXPECT_EQ(response.pem_list, nullptr);
    }
}

// ---- resp_fru_power_data -------------------------------------------------------------------------------------------

TEST(resp_fru_power_data, list_is_written_only_with_its_bit_and_elements) {
    vesk_fru_power_usage_data usages[2] = {};
    vesk_resp_fru_power_data response = {};
    VESK_MARK(&response, VESK_RESP_FRU_POWER_DATA_POWER_USAGE_LIST);
    EXPECT_EQ(to_hex(encoded(response)), "") << "set bit, no elements";
    response.power_usage_list = usages;
    EXPECT_EQ(to_hex(encoded(response)), "") << "set bit, an array, no elements";
    response.power_usage_list_count = 2;
    EXPECT_EQ(to_hex(encoded(response)), "1a 00 1a 00");
    response.present[0] = 0;
    EXPECT_EQ(to_hex(encoded(response)), "") << "clear bit, two elements";
}

TEST(resp_fru_power_data, second_run_of_its_list_is_malformed) {
    const Bytes usage = message_field(3, number_field(2, 7));
    EXPECT_EQ(decode_code<vesk_resp_fru_power_data>(message(usage, usage)), VESK_OK);
    EXPECT_EQ(decode_code<vesk_resp_fru_power_data>(message(usage, number_field(2, 1), usage)), VESK_MALFORMED);
}

// ---- The other types -----------------------------------------------------------------------------------------------

TEST(fru_power_usage_data, present_string_that_is_null_is_not_written) {
    expect_null_is_not_written<vesk_fru_power_usage_data>({VESK_FRU_POWER_USAGE_DATA_F5, VESK_FRU_POWER_USAGE_DATA_F6});
    vesk_fru_power_usage_data usage = {};
    usage.f4 = 9;
    usage.f6 = literal("W");
    for (const unsigned bit :
         {VESK_FRU_POWER_USAGE_DATA_F4, VESK_FRU_POWER_USAGE_DATA_F5, VESK_FRU_POWER_USAGE_DATA_F6})
        VESK_MARK(&usage, bit);
    EXPECT_EQ(to_hex(encoded(usage)), "20 09 32 01 57");
}

TEST(power_queries, repeated_string_is_malformed) {
    expect_repetition_is_malformed<vesk_fru_power_usage_data>({5, 6});
    expect_repetition_is_malformed<vesk_resp_system_power_data>({14});
}

TEST(power_queries, flag_received_as_2_is_stored_and_written_as_1) {
    expect_flags_become_1<vesk_fru_power_status_data>({4}, 2);
    expect_flags_become_1<vesk_req_fru_power_data>({4}, 2);
    expect_flags_become_1<vesk_req_system_power_data>({5}, 2);
}

TEST(power_queries, empty_eid_is_written_only_if_present) {
    expect_empty_is_written_only_if_present<vesk_fru_power_usage_data>(VESK_FRU_POWER_USAGE_DATA_EID, "0a 00");
    expect_empty_is_written_only_if_present<vesk_req_fru_power_data>(VESK_REQ_FRU_POWER_DATA_EID, "1a 00");
    expect_empty_is_written_only_if_present<vesk_req_system_power_data>(VESK_REQ_SYSTEM_POWER_DATA_EID, "22 00");
}

}  // namespace
}  // namespace vesk::test
