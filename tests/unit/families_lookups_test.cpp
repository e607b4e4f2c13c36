// Lookups of EIDs and containers: requests, and responses with a list. The list of resp_eid is the one whose elements
// are entity identifiers themselves.
#include <gtest/gtest.h>

#include <cstddef>

#include "tests/support/families.hpp"

namespace vesk::test {
namespace {

// ---- req_eid -------------------------------------------------------------------------------------------------------

TEST(req_eid, nothing_present_encodes_to_nothing) {
    const vesk_req_eid request = {};
    EXPECT_EQ(to_hex(encoded(request)), "");
}

TEST(req_eid, eid_with_content_is_written_without_its_bit) {
    vesk_req_eid request = {};
    request.eid.f1 = 7;
    VESK_MARK(&request.eid, VESK_DRIN_EID_ST_F1);
    EXPECT_EQ(to_hex(encoded(request)), "0a 02 08 07");
    vesk_req_container_eid_nodeid container = {};
    container.eid = request.eid;
    EXPECT_EQ(to_hex(encoded(container)), "0a 02 08 07");
}

TEST(req_eid, empty_eid_and_policy_are_written_only_if_present) {
    expect_empty_is_written_only_if_present<vesk_req_eid>(VESK_REQ_EID_EID, "0a 00");
    expect_empty_is_written_only_if_present<vesk_req_eid>(VESK_REQ_EID_POLICY, "12 00");
    expect_empty_is_written_only_if_present<vesk_req_container_eid_nodeid>(VESK_REQ_CONTAINER_EID_NODEID_EID, "0a 00");
}

TEST(lookups, flag_received_as_2_is_stored_and_written_as_1) {
    expect_flags_become_1<vesk_req_eid>({6}, 2);
    expect_flags_become_1<vesk_req_container_eid_nodeid>({3}, 2);
}

// ---- resp_eid: a list of identifiers -------------------------------------------------------------------------------

Bytes found(const Bytes& eid) { return message_field(4, eid); }

TEST(resp_eid, second_run_of_eids_is_malformed) {
    const Decoded<vesk_resp_eid> response(
        message(found(number_field(1, 1)), found({}), number_field(3, 9), found(number_field(1, 2))));
    EXPECT_EQ(response.code, VESK_MALFORMED);
    EXPECT_EQ(response->eid_list_count, 2u);
    EXPECT_EQ(response->f3, 9u);
}

TEST(resp_eid, eids_are_one_block_and_keep_their_order) {
    const Bytes input = message(found(number_field(1, 30)), found({}), found(number_field(5, 20)));
    const Decoded<vesk_resp_eid> response(input);
    ASSERT_EQ(response.code, VESK_OK);
    ASSERT_EQ(response->eid_list_count, 3u);
    EXPECT_EQ(response->eid_list[0].f1, 30u);
    EXPECT_TRUE(has_no_presence(response->eid_list[1]));
    EXPECT_EQ(response->eid_list[2].f5, 20u);
    EXPECT_EQ(response.ledger.history(), std::vector<Request>{asked_for(3 * sizeof(vesk_drin_eid_st))});
    EXPECT_EQ(to_hex(encoded(response.message)), to_hex(input));
}

TEST(resp_eid, list_is_written_only_with_its_bit_and_elements) {
    vesk_drin_eid_st eids[2] = {};
    eids[1].f1 = 7;
    VESK_MARK(&eids[1], VESK_DRIN_EID_ST_F1);
    vesk_resp_eid response = {};
    response.eid_list = eids;
    response.eid_list_count = 2;
    EXPECT_EQ(to_hex(encoded(response)), "") << "clear bit, two elements";
    VESK_MARK(&response, VESK_RESP_EID_EID_LIST);
    EXPECT_EQ(to_hex(encoded(response)), "22 00 22 02 08 07");
    response.eid_list_count = 0;
    EXPECT_EQ(to_hex(encoded(response)), "") << "set bit, no elements";
}

TEST(resp_eid, list_without_a_callback_or_a_block_is_out_of_memory) {
    const Bytes input = found(number_field(1, 1));
    vesk_resp_eid response;
    for (const std::uint32_t flags : {0u, 1u}) {
        EXPECT_EQ(vesk_resp_eid_decode_ext(&response, input.data(), input.size(), nullptr, nullptr, flags),
                  VESK_NO_MEMORY);
    }
    Ledger ledger;
    ledger.fail_request(1);
    EXPECT_EQ(vesk_resp_eid_decode_ext(&response, input.data(), input.size(), Ledger::alloc, &ledger, 0),
              VESK_NO_MEMORY);
    EXPECT_EQ(response.eid_list, nullptr);
    EXPECT_EQ(response.eid_list_count, 0u);
}

// An EID whose own list has `count` elements.
Bytes eid_with_elements(std::size_t count) {
    Bytes eid = number_field(1, 1);
    for (std::size_t i = 0; i < count; ++i) eid = message(eid, message_field(6, number_field(1, i)));
    return eid;
}

TEST(resp_eid, lists_inside_the_eids_go_back_before_the_array) {
    Decoded<vesk_resp_eid> response(message(found(eid_with_elements(2)), found({}), found(eid_with_elements(1))));
    ASSERT_EQ(response.code, VESK_OK);
    response.ledger.clear_history();
    vesk_resp_eid_free_ext(&response.message, Ledger::release, &response.ledger, 0);
    EXPECT_EQ(response.ledger.history(), (std::vector<Request>{given_back(2 * sizeof(vesk_drin_eid_element)),
                                                               given_back(sizeof(vesk_drin_eid_element)),
                                                               given_back(3 * sizeof(vesk_drin_eid_st))}));
    EXPECT_EQ(response->eid_list, nullptr);
    EXPECT_EQ(response->eid_list_count, 0u);
}

TEST(resp_eid, copy_has_lists_of_its_own) {
    const Bytes input = message(found(eid_with_elements(2)), found({}), found(eid_with_elements(1)));
    const Decoded<vesk_resp_eid> response(input);
    ASSERT_EQ(response.code, VESK_OK);
    const Copy<vesk_resp_eid> copy(response.message);
    EXPECT_EQ(copy.code, VESK_OK);
    EXPECT_NE(copy->eid_list, response->eid_list);
    EXPECT_NE(copy->eid_list[0].element_list, response->eid_list[0].element_list);
    EXPECT_EQ(to_hex(encoded(copy.message)), to_hex(input));

    const Copy<vesk_resp_eid> without_list(response.message, {1});
    EXPECT_EQ(without_list.code, VESK_NO_MEMORY);
    EXPECT_EQ(to_hex(encoded(without_list.message)), "");
    const Copy<vesk_resp_eid> without_an_inner_list(response.message, {2});
    EXPECT_EQ(without_an_inner_list.code, VESK_NO_MEMORY);
    EXPECT_EQ(to_hex(encoded(without_an_inner_list.message)),
              to_hex(message(found(number_field(1, 1)), found({}), found(eid_with_elements(1)))));
}

TEST(resp_eid, request_that_it_answers_has_an_eid_and_a_policy_of_its_own) {
    const Bytes input =
        message(message_field(2, message(message_field(1, number_field(1, 7)), message_field(2, text_field(1, "all")))),
                found(number_field(1, 8)));
    const Decoded<vesk_resp_eid> response(input);
    ASSERT_EQ(response.code, VESK_OK);
    EXPECT_EQ(response->req_eid.eid.f1, 7u);
    EXPECT_STREQ(response->req_eid.policy.f1, "all");
    EXPECT_EQ(response->eid_list[0].f1, 8u);
    EXPECT_EQ(presence_of(response.message), "0a");
    EXPECT_EQ(to_hex(encoded(response.message)), to_hex(input));
}

TEST(resp_eid, presence_follows_the_count_at_once) {
    EXPECT_EQ(offsetof(vesk_resp_eid, present), offsetof(vesk_resp_eid, eid_list_count) + 4);
}

// ---- resp_container_eid_nodeid -------------------------------------------------------------------------------------

TEST(resp_container_eid_nodeid, free_gives_back_each_record_and_then_the_array) {
    Decoded<vesk_resp_container_eid_nodeid> response(
        message(message_field(1, message(message_field(1, eid_with_elements(1)), text_field(2, "rack"))),
                message_field(1, Bytes{}), message_field(1, text_field(2, "a shelf"))));
    ASSERT_EQ(response.code, VESK_OK);
    response.ledger.clear_history();
    vesk_resp_container_eid_nodeid_free_ext(&response.message, Ledger::release, &response.ledger, 0);
    EXPECT_EQ(
        response.ledger.history(),
        (std::vector<Request>{given_back(sizeof(vesk_drin_eid_element)), given_back(sizeof "rack"),
                              given_back(sizeof "a shelf"), given_back(3 * sizeof(vesk_container_eid_nodeid_data))}));
    EXPECT_EQ(response->container_eid_nodeid_list, nullptr);
    EXPECT_EQ(response->container_eid_nodeid_list_count, 0u);
    EXPECT_EQ(response.ledger.blocks_out(), 0u);
}

TEST(resp_container_eid_nodeid, numbers_behind_the_list_follow_its_count_at_once) {
    using Response = vesk_resp_container_eid_nodeid;
    EXPECT_EQ(offsetof(Response, f2), offsetof(Response, container_eid_nodeid_list_count) + 4);
    EXPECT_EQ(offsetof(Response, f3), offsetof(Response, f2) + 4);
    const Bytes input = message(message_field(1, Bytes{}), message_field(1, number_field(3, 1)),
                                number_field(2, 0xFFFFFFFF), number_field(3, 0xFFFFFFFE));
    const Decoded<Response> response(input);
    ASSERT_EQ(response.code, VESK_OK);
    EXPECT_EQ(response->container_eid_nodeid_list_count, 2u);
    EXPECT_EQ(response->f2, 0xFFFFFFFFu);
    EXPECT_EQ(response->f3, 0xFFFFFFFEu);
    EXPECT_EQ(to_hex(encoded(Copy<Response>(response.message).message)), to_hex(input));
}

TEST(resp_container_eid_nodeid, second_run_of_its_list_is_malformed) {
    const Bytes record = message_field(1, number_field(3, 7));
    EXPECT_EQ(decode_code<vesk_resp_container_eid_nodeid>(message(record, number_field(2, 1), record)), VESK_MALFORMED);
}

}  // namespace
}  // namespace vesk::test
