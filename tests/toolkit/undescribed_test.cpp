// With an identifier of another library, which does not describe itself: undescribed_identifier.c, loaded in the
// stand-in's place.
#include <gtest/gtest.h>
#include <vesk/client_service.h>
#include <vesk/vesk_toolkit.h>

#include <cstring>

#include "tests/support/bytes.hpp"

namespace vesk::test {
namespace {

vesk_report check(const Bytes& input, const vesk_options* options) {
    vesk_report report;
    report.size = sizeof report;
    vesk_check(vesk_type_named("pem_data"), input.data(), input.size(), 0, &report, options);
    return report;
}

Bytes with_identifier(const Bytes& identifier) {
    return message(message_field(1, message(message_field(1, identifier), text_field(2, "ab"))), number_field(3, 1));
}

TEST(undescribed, identifier_is_not_found_by_name) {
    EXPECT_EQ(vesk_type_named("drin_eid_st"), nullptr);
    EXPECT_EQ(vesk_type_named("drin_eid_element"), nullptr);
}

TEST(undescribed, identifier_without_options_is_opaque_and_the_rest_is_told) {
    const vesk_report report = check(with_identifier({5, 1}), nullptr);
    EXPECT_EQ(report.code, VESK_OPAQUE);
    EXPECT_EQ(report.opaque, 1u);
    EXPECT_EQ(report.cost.bytes, 3u);
    EXPECT_STREQ(report.path, "");
}

TEST(undescribed, error_elsewhere_is_told_beside_an_opaque_identifier) {
    Bytes input = with_identifier({5});
    input.push_back(0x80);
    const vesk_report report = check(input, nullptr);
    EXPECT_EQ(report.code, VESK_MALFORMED);
    EXPECT_EQ(report.opaque, 1u);
    EXPECT_EQ(report.at, input.size() - 1);
}

TEST(undescribed, scratch_memory_tries_the_librarys_own_decode) {
    alignas(16) unsigned char scratch[256];
    vesk_options options = vesk_default_options();
    options.scratch = scratch;
    options.scratch_size = sizeof scratch;
    const vesk_report report = check(with_identifier({5}), &options);
    EXPECT_EQ(report.code, VESK_OK);
    EXPECT_EQ(report.opaque, 0u);
    EXPECT_EQ(report.cost.bytes, 5u + 3u);
    EXPECT_EQ(report.cost.blocks, 2u);
    EXPECT_EQ(report.cost.largest, 5u);
}

TEST(undescribed, error_of_the_librarys_own_is_passed_on_with_the_identifiers_place) {
    alignas(16) unsigned char scratch[256];
    vesk_options options = vesk_default_options();
    options.scratch = scratch;
    options.scratch_size = sizeof scratch;
    const vesk_report report = check(with_identifier({0xFF}), &options);
    EXPECT_EQ(report.code, -42);
    EXPECT_EQ(report.at, 2u);
    EXPECT_STREQ(report.path, "entity_common.eid");
}

TEST(undescribed, identifier_that_needs_more_than_the_scratch_memory_is_opaque) {
    alignas(16) unsigned char scratch[sizeof(vesk_drin_eid_st) + 64];
    vesk_options options = vesk_default_options();
    options.scratch = scratch;
    options.scratch_size = sizeof scratch;
    EXPECT_EQ(check(with_identifier({200}), &options).code, VESK_OPAQUE);
    EXPECT_EQ(check(with_identifier({20}), &options).code, VESK_OK);
    options.scratch_size = sizeof(vesk_drin_eid_st) - 8;
    EXPECT_EQ(check(with_identifier({0}), &options).code, VESK_OPAQUE);
    std::memset(scratch, 0, sizeof scratch);  // is the caller's again: no address sanitizer objects
}

struct Judge {
    std::uint64_t calls = 0;
    static std::int32_t check(const void* bytes, std::uint64_t length, std::uint32_t flags, vesk_cost* cost,
                              void* context) {
        Judge& judge = *static_cast<Judge*>(context);
        ++judge.calls;
        EXPECT_EQ(length, 2u);
        EXPECT_EQ(flags, 0u);
        EXPECT_EQ(cost->bytes + cost->blocks + cost->largest, 0u);
        if (static_cast<const std::uint8_t*>(bytes)[0] == 9) return VESK_WRONG_WIRE_TYPE;
        *cost = {100, 4, 50};
        return VESK_OK;
    }
};

TEST(undescribed, callback_says_what_an_identifier_costs) {
    Judge judge;
    vesk_options options = vesk_default_options();
    options.check_identifier = Judge::check;
    options.context = &judge;
    const vesk_report good = check(with_identifier({1, 1}), &options);
    EXPECT_EQ(good.code, VESK_OK);
    EXPECT_EQ(good.cost.bytes, 103u);
    EXPECT_EQ(good.cost.blocks, 5u);
    EXPECT_EQ(good.cost.largest, 50u);
    EXPECT_EQ(check(with_identifier({9, 9}), &options).code, VESK_WRONG_WIRE_TYPE);
    EXPECT_EQ(judge.calls, 2u);
}

TEST(undescribed, peek_stops_at_an_identifier_and_finds_what_lies_beside_it) {
    const Bytes input = with_identifier({5, 1});
    const vesk_type* const type = vesk_type_named("pem_data");
    vesk_options options = vesk_default_options();
    options.flags = VESK_FIRST_OCCURRENCE;
    vesk_value value;
    value.size = sizeof value;
    EXPECT_EQ(vesk_peek(type, "entity_common.eid.f1", input.data(), input.size(), &value, &options), VESK_OPAQUE);
    ASSERT_EQ(vesk_peek(type, "entity_common.eid", input.data(), input.size(), &value, &options), VESK_OK);
    EXPECT_EQ(value.length, 2u);
    EXPECT_EQ(value.type, nullptr);
    EXPECT_EQ(vesk_peek(type, "f3", input.data(), input.size(), &value, &options), VESK_OK);
    EXPECT_EQ(vesk_peek(type, "f3", input.data(), input.size(), &value, nullptr), VESK_OPAQUE);
}

}  // namespace
}  // namespace vesk::test
