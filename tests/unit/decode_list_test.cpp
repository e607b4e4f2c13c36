// A list is one unbroken run of fields of one number, counted first, allocated once, then decoded.
#include <gtest/gtest.h>

#include "runtime/decode.hpp"
#include "tests/support/messages.hpp"

namespace vesk::test {
namespace {

constexpr std::uint32_t leds = 8;     // the list of LEDs in a response; LEDs have a string, field 5
constexpr std::uint32_t craft = 9;    // the list of craft panels
constexpr std::uint32_t idproms = 7;  // the list of ID-PROMs, whose EEPROM has bytes

Bytes led(std::string_view colour) { return message_field(leds, text_field(5, colour)); }

// A response decoded from `input`, of which one allocation may fail. Freed at the end; the ledger finds what is lost.
struct Response {
    explicit Response(Bytes bytes, std::uint64_t failing_request = 0, std::uint32_t flags = 0)
        : input(std::move(bytes)), flags(flags), message(filled_with<vesk_resp_inv_data>(0x5A)) {
        if (failing_request != 0) ledger.fail_request(failing_request);
        code = vesk_resp_inv_data_decode_ext(&message, input.data(), input.size(), Ledger::alloc, &ledger, flags);
    }
    Response(const Response&) = delete;
    Response& operator=(const Response&) = delete;
    ~Response() { vesk_resp_inv_data_free_ext(&message, Ledger::release, &ledger, flags); }
    const vesk_resp_inv_data* operator->() const { return &message; }
    bool has_leds() const { return VESK_HAS(&message, VESK_RESP_INV_DATA_LED_LIST); }

    Bytes input;
    std::uint32_t flags;
    Ledger ledger;
    vesk_resp_inv_data message;
    std::int32_t code;
};

void expect_no_leds(const Response& response) {
    EXPECT_EQ(response->led_list, nullptr);
    EXPECT_EQ(response->led_list_count, 0u);
    EXPECT_FALSE(response.has_leds());
}

// ---- A run ---------------------------------------------------------------------------------------------------------

TEST(decode_list, three_elements_are_one_block_of_three) {
    const Response response(message(led("red"), led("amber"), led("green")));
    ASSERT_EQ(response.code, VESK_OK);
    EXPECT_TRUE(response.has_leds());
    ASSERT_EQ(response->led_list_count, 3u);
    EXPECT_STREQ(response->led_list[0].f5, "red");
    EXPECT_STREQ(response->led_list[1].f5, "amber");
    EXPECT_STREQ(response->led_list[2].f5, "green");
    EXPECT_EQ(response.ledger.history(),
              (std::vector<Request>{asked_for(3 * sizeof(vesk_led_data)), asked_for(4), asked_for(6), asked_for(6)}));
}

TEST(decode_list, one_element_is_a_run) {
    const Response response(led("red"));
    ASSERT_EQ(response.code, VESK_OK);
    EXPECT_EQ(response->led_list_count, 1u);
}

TEST(decode_list, empty_elements_count) {
    const Response response(message(hex("42 00"), led("red"), hex("42 00")));
    ASSERT_EQ(response.code, VESK_OK);
    ASSERT_EQ(response->led_list_count, 3u);
    EXPECT_TRUE(has_no_presence(response->led_list[0]));
    EXPECT_STREQ(response->led_list[1].f5, "red");
    EXPECT_TRUE(has_no_presence(response->led_list[2]));
    EXPECT_EQ(response->led_list[2].f5, nullptr);
}

TEST(decode_list, the_field_behind_the_run_is_read) {
    const Response response(message(led("red"), led("green"), number_field(3, 7), message_field(craft, Bytes{})));
    ASSERT_EQ(response.code, VESK_OK);
    EXPECT_EQ(response->led_list_count, 2u);
    EXPECT_EQ(response->f3, 7u);
    EXPECT_EQ(response->craft_list_count, 1u);
}

TEST(decode_list, two_runs_of_different_lists_touch) {
    const Response response(message(message_field(craft, Bytes{}), led("red"), led("green")));
    ASSERT_EQ(response.code, VESK_OK);
    EXPECT_EQ(response->craft_list_count, 1u);
    EXPECT_EQ(response->led_list_count, 2u);
}

TEST(decode_list, unknown_field_behind_the_run_is_skipped) {
    const Response response(message(led("red"), number_field(300, 7), number_field(3, 7)));
    ASSERT_EQ(response.code, VESK_OK);
    EXPECT_EQ(response->led_list_count, 1u);
    EXPECT_EQ(response->f3, 7u);
}

TEST(decode_list, over_long_tags_and_lengths_are_part_of_the_run) {
    const Response response(message(led("red"), over_long(leds << 3 | length_type, 9), over_long(7, 8),
                                    text_field(5, "amber"), led("green")));
    ASSERT_EQ(response.code, VESK_OK);
    ASSERT_EQ(response->led_list_count, 3u);
    EXPECT_STREQ(response->led_list[1].f5, "amber");
    EXPECT_STREQ(response->led_list[2].f5, "green");
}

TEST(decode_list, list_inside_an_element_is_a_run_of_its_own) {
    const Bytes eid = message(message_field(6, number_field(1, 1)), message_field(6, number_field(1, 2)));
    const Bytes element = message_field(craft, message_field(1, message_field(1, eid)));
    const Response response(message(element, element));
    ASSERT_EQ(response.code, VESK_OK);
    ASSERT_EQ(response->craft_list_count, 2u);
    for (std::uint32_t i = 0; i < 2; ++i) {
        ASSERT_EQ(response->craft_list[i].entity_common.eid.element_list_count, 2u);
        EXPECT_EQ(response->craft_list[i].entity_common.eid.element_list[1].f1, 2u);
    }
}

TEST(decode_list, flags_reach_the_elements) {
    const Bytes input = message_field(idproms, message_field(3, bytes_field(20, hex("01 02"))));
    const Response owned(input);
    const Response referring(input, 0, VESK_BYTES_BY_REFERENCE);
    EXPECT_TRUE(owned.ledger.owns(owned->idprom_list[0].eeprom.f20));
    EXPECT_EQ(referring->idprom_list[0].eeprom.f20, referring.input.data() + 7);
}

// ---- Field numbers and wire types ----------------------------------------------------------------------------------

TEST(decode_list, later_element_with_wire_type_0_is_part_of_the_run) {
    const Response response(message(led("red"), tag(leds, varint_type), sized(text_field(5, "green")), led("blue")));
    ASSERT_EQ(response.code, VESK_OK);
    ASSERT_EQ(response->led_list_count, 3u);
    EXPECT_STREQ(response->led_list[1].f5, "green");
    EXPECT_STREQ(response->led_list[2].f5, "blue");
}

TEST(decode_list, later_element_with_any_wire_type_is_part_of_the_run) {
    for (std::uint32_t wire_type = 0; wire_type < 8; ++wire_type) {
        const Response response(message(led("red"), tag(leds, wire_type), sized(text_field(5, "green"))));
        EXPECT_EQ(response.code, VESK_OK) << "wire type " << wire_type;
        ASSERT_EQ(response->led_list_count, 2u);
        EXPECT_STREQ(response->led_list[1].f5, "green");
    }
}

TEST(decode_list, first_element_with_another_wire_type_is_refused) {
    const Response response(message(tag(leds, varint_type), sized(text_field(5, "red")), led("green")));
    EXPECT_EQ(response.code, VESK_WRONG_WIRE_TYPE);
    expect_no_leds(response);
}

// ---- Broken runs ---------------------------------------------------------------------------------------------------

TEST(decode_list, second_run_is_refused) {
    const Response response(message(led("red"), led("green"), number_field(1, 5), led("blue")));
    EXPECT_EQ(response.code, VESK_MALFORMED);
    EXPECT_EQ(response->led_list_count, 2u);  // the first run stays
    EXPECT_STREQ(response->led_list[1].f5, "green");
    EXPECT_TRUE(response.has_leds());
    EXPECT_EQ(response->f1, 5u);
    EXPECT_EQ(response.ledger.requests_made(), 3u);
}

TEST(decode_list, second_run_behind_an_unknown_field_or_another_list_is_refused) {
    EXPECT_EQ(Response(message(led("red"), number_field(300, 7), led("blue"))).code, VESK_MALFORMED);
    EXPECT_EQ(Response(message(led("red"), message_field(craft, Bytes{}), led("blue"))).code, VESK_MALFORMED);
}

TEST(decode_list, second_run_with_another_wire_type_has_the_wrong_one) {
    EXPECT_EQ(Response(message(led("red"), number_field(1, 5), number_field(leds, 0))).code, VESK_WRONG_WIRE_TYPE);
}

// ---- Errors while counting: nothing is allocated -------------------------------------------------------------------

TEST(decode_list, error_while_counting_allocates_nothing) {
    struct Row {
        const char* name;
        Bytes input;
    };
    for (const Row& row : {
             Row{"first length missing", hex("42")},
             Row{"first length cut short", hex("42 80")},
             Row{"first length past the end", hex("42 02 18")},
             Row{"largest length", hex("42 FF FF FF FF 0F")},
             Row{"third length missing", message(led("red"), led("green"), hex("42"))},
             Row{"third length cut short", message(led("red"), led("green"), hex("42 80"))},
             Row{"third length past the end", message(led("red"), led("green"), hex("42 05 2A 03 61"))},
             Row{"tag behind the run cut short", message(led("red"), led("green"), hex("80"))},
         }) {
        const Response response(message(number_field(1, 5), row.input));
        EXPECT_EQ(response.code, VESK_MALFORMED) << row.name;
        EXPECT_EQ(response.ledger.requests_made(), 0u) << row.name;
        EXPECT_EQ(response->f1, 5u) << row.name;
        expect_no_leds(response);
    }
}

TEST(decode_list, content_is_not_looked_at_while_counting) {
    const Response response(message(message_field(leds, hex("FF")), led("green")));
    EXPECT_EQ(response.code, VESK_MALFORMED);
    EXPECT_EQ(response.ledger.history(), std::vector<Request>{asked_for(2 * sizeof(vesk_led_data))});
}

TEST(decode_list, failed_allocation_leaves_the_list_empty) {
    const Response response(message(number_field(1, 5), led("red"), led("green"), number_field(2, 6)), 1);
    EXPECT_EQ(response.code, VESK_NO_MEMORY);
    EXPECT_EQ(response.ledger.history(), std::vector<Request>{asked_for(2 * sizeof(vesk_led_data))});
    EXPECT_EQ(response->f1, 5u);
    EXPECT_EQ(response->f2, 0u);
    expect_no_leds(response);
}

// ---- Errors inside an element: the list stays, its bit is clear ----------------------------------------------------

TEST(decode_list, error_inside_the_third_element_keeps_list_and_count_but_not_the_bit) {
    const Bytes third = message_field(leds, message(text_field(5, "blue"), number_field(3, 7), hex("20")));
    const Response response(message(led("red"), led("green"), third, led("white"), led("black")));
    EXPECT_EQ(response.code, VESK_MALFORMED);
    EXPECT_FALSE(response.has_leds());
    ASSERT_EQ(response->led_list_count, 5u);
    EXPECT_STREQ(response->led_list[0].f5, "red");
    EXPECT_STREQ(response->led_list[1].f5, "green");
    EXPECT_STREQ(response->led_list[2].f5, "blue");
    EXPECT_EQ(response->led_list[2].f3, 7u);
    EXPECT_EQ(response->led_list[3].f5, nullptr);
    EXPECT_TRUE(has_no_presence(response->led_list[3]));
    EXPECT_EQ(response->led_list[4].entity_common.f2, nullptr);
    EXPECT_EQ(response.ledger.blocks_out(), 4u);  // and all come back: the ledger checks
}

TEST(decode_list, elements_behind_the_error_are_zero_bytes) {
    const Response response(message(message_field(leds, hex("FF")), led("green"), led("blue")));
    EXPECT_EQ(response.code, VESK_MALFORMED);
    ASSERT_EQ(response->led_list_count, 3u);
    const unsigned char* second = reinterpret_cast<const unsigned char*>(&response->led_list[1]);
    for (std::size_t i = 0; i < 2 * sizeof(vesk_led_data); ++i) ASSERT_EQ(second[i], 0) << "byte " << i;
}

TEST(decode_list, every_code_of_an_element_comes_back_unchanged) {
    EXPECT_EQ(Response(message(led("red"), message_field(leds, hex("18")))).code, VESK_MALFORMED);
    EXPECT_EQ(Response(message(led("red"), message_field(leds, hex("4B")))).code, VESK_UNKNOWN_WIRE_TYPE);
    EXPECT_EQ(Response(message(led("red"), message_field(leds, hex("1A")))).code, VESK_WRONG_WIRE_TYPE);
    EXPECT_EQ(Response(message(led("red"), led("green")), 3).code, VESK_NO_MEMORY);
}

TEST(decode_list, error_inside_a_list_inside_an_element_keeps_both_lists) {
    const Bytes eid = message(message_field(6, number_field(1, 1)), message_field(6, hex("0D")));
    const Bytes element = message_field(craft, message_field(1, message_field(1, eid)));
    const Response response(message(message_field(craft, Bytes{}), element));
    EXPECT_EQ(response.code, VESK_WRONG_WIRE_TYPE);
    ASSERT_EQ(response->craft_list_count, 2u);
    const vesk_drin_eid_st& inner = response->craft_list[1].entity_common.eid;
    EXPECT_EQ(inner.element_list_count, 2u);
    EXPECT_EQ(inner.present[0], 0);
    EXPECT_EQ(response->craft_list[1].present[0], 0);
    EXPECT_FALSE(VESK_HAS(&response.message, VESK_RESP_INV_DATA_CRAFT_LIST));
}

// A memory that makes the input's second byte, a length, take in all that is left of it.
struct LengtheningMemory {
    Ledger ledger;
    Bytes input;
};

void* alloc_and_lengthen(std::uint64_t size, void* context) {
    LengtheningMemory& memory = *static_cast<LengtheningMemory*>(context);
    memory.input[1] = static_cast<std::uint8_t>(memory.input.size() - 2);
    return Ledger::alloc(size, &memory.ledger);
}

// More about input that changes is tried in tests/trust.
TEST(decode_list, elements_that_are_gone_since_they_were_counted_are_malformed) {
    const Bytes element = message_field(leds, number_field(3, 7));
    LengtheningMemory memory{{}, message(element, element, element)};
    vesk_resp_inv_data response;
    EXPECT_EQ(vesk_resp_inv_data_decode_ext(&response, memory.input.data(), memory.input.size(), alloc_and_lengthen,
                                            &memory, 0),
              VESK_MALFORMED);
    ASSERT_EQ(response.led_list_count, 3u);
    EXPECT_EQ(response.led_list[0].f3, 7u);
    EXPECT_TRUE(has_no_presence(response.led_list[1]));
    EXPECT_EQ(response.led_list[2].f3, 0u);
    EXPECT_TRUE(has_no_presence(response));
    vesk_resp_inv_data_free_ext(&response, Ledger::release, &memory.ledger, 0);
}

// ---- The order of the checks ---------------------------------------------------------------------------------------

TEST(decode_list, order_of_its_checks) {
    struct Row {
        const char* name;
        bool holds_one;
        bool has_alloc;
        const char* input;  // behind the tag of an element with number 6
        std::int32_t code;
        std::uint64_t requests;
    };
    for (const Row& row : std::initializer_list<Row>{
             {"second run before null callback", true, false, "00", VESK_MALFORMED, 0},
             {"second run before failing callback", true, true, "00", VESK_MALFORMED, 0},
             {"null callback before a missing length", false, false, "", VESK_NO_MEMORY, 0},
             {"null callback before a length cut short", false, false, "80", VESK_NO_MEMORY, 0},
             {"null callback before a length past the end", false, false, "05 08", VESK_NO_MEMORY, 0},
             {"null callback before an error inside", false, false, "01 0A", VESK_NO_MEMORY, 0},
             {"length past the end before failing callback", false, true, "05 08", VESK_MALFORMED, 0},
             {"tag cut short before failing callback", false, true, "00 80", VESK_MALFORMED, 0},
             {"failing callback before an error inside", false, true, "01 0A", VESK_NO_MEMORY, 1},
         }) {
        Ledger ledger;
        ledger.fail_from_now_on();
        vesk_entity_admin_status_data first = {};
        vesk_entity_admin_status_data* array = row.holds_one ? &first : nullptr;
        std::uint32_t count = row.holds_one ? 1 : 0;
        const Bytes input = hex(row.input);
        const std::uint8_t* const end = input.data() + input.size();
        const Allocator allocator{row.has_alloc ? Ledger::alloc : nullptr, &ledger};
        Source source{input_between(input.data(), end), allocator, 0, VESK_OK};
        EXPECT_EQ(
            decode_list(array, &array, &count, 6, decoder_of<vesk_entity_admin_status_data>, input.data(), end, source),
            nullptr)
            << row.name;
        EXPECT_EQ(source.code, row.code) << row.name;
        EXPECT_EQ(ledger.requests_made(), row.requests) << row.name;
        EXPECT_EQ(array, row.holds_one ? &first : nullptr) << row.name;
        EXPECT_EQ(count, row.holds_one ? 1u : 0u) << row.name;
    }
}

}  // namespace
}  // namespace vesk::test
