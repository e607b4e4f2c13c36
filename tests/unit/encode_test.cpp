// What each kind of field becomes on the wire, and what of it a buffer that is too short receives.
#include <gtest/gtest.h>

#include "tests/support/messages.hpp"

namespace vesk::test {
namespace {

constexpr std::uint64_t two_to_the_32 = std::uint64_t{1} << 32;

// ---- Numbers and flags ---------------------------------------------------------------------------------------------

TEST(encode_message, nothing_present_is_nothing) {
    EXPECT_EQ(measured(vesk_resp_inv_data_by_eid{}), 0u);
    EXPECT_EQ(to_hex(encoded(vesk_scratch_eeprom{})), "");
}

TEST(encode_message, values_without_their_bits_are_not_written) {
    vesk_scratch_eeprom scratch = {};
    scratch.f1 = literal("north");
    scratch.f2 = unreadable<std::uint8_t>();
    scratch.f2_length = 4;
    scratch.f3 = 300;
    EXPECT_EQ(to_hex(encoded(scratch)), "");
}

TEST(encode_message, spare_presence_bits_mean_nothing) {
    vesk_scratch_eeprom scratch = {};
    scratch.f3 = 1;
    scratch.present[0] = 0xF0;  // four fields, bits 0 to 3
    EXPECT_EQ(to_hex(encoded(scratch)), "");
}

TEST(encode_message, is_left_unchanged) {
    const Decoded<vesk_scratch_eeprom> scratch(message(text_field(1, "a"), text_field(2, "b"), number_field(3, 1)));
    const vesk_scratch_eeprom before = scratch.message;
    encoded(scratch.message);
    EXPECT_EQ(std::memcmp(&before, &scratch.message, sizeof before), 0);
}

TEST(encode_message, declaration_order_decides_and_not_the_field_number) {
    vesk_memory_data memory = {};
    memory.f6 = 1;
    memory.f4 = literal("x");
    VESK_MARK(&memory, VESK_MEMORY_DATA_F6);
    VESK_MARK(&memory, VESK_MEMORY_DATA_F4);
    EXPECT_EQ(to_hex(encoded(memory)), to_hex(message(number_field(6, 1), text_field(4, "x"))));
}

TEST(encode_uint32, zero_with_its_bit_is_two_bytes) {
    vesk_entity_admin_status_data status = {};
    VESK_MARK(&status, VESK_ENTITY_ADMIN_STATUS_DATA_F1);
    EXPECT_EQ(to_hex(encoded(status)), "08 00");
}

TEST(encode_uint32, largest_takes_five_bytes) {
    vesk_entity_admin_status_data status = {};
    status.f4 = 0xFFFFFFFF;
    VESK_MARK(&status, VESK_ENTITY_ADMIN_STATUS_DATA_F4);
    EXPECT_EQ(to_hex(encoded(status)), "20 ff ff ff ff 0f");
}

TEST(encode_uint64, every_width_is_written) {
    for (unsigned bits = 0; bits <= 64; ++bits) {
        vesk_entity_common_data common = {};
        common.f20 = bits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
        VESK_MARK(&common, VESK_ENTITY_COMMON_DATA_F20);
        EXPECT_EQ(to_hex(encoded(common)), to_hex(number_field(20, common.f20)));
    }
}

TEST(encode_bool, raw_byte_is_written_as_it_stands) {
    for (unsigned value : {0x00u, 0x01u, 0x02u, 0x7Fu, 0x80u, 0xA5u, 0xFFu}) {
        vesk_entity_common_data common = {};
        common.f6 = static_cast<std::uint8_t>(value);
        VESK_MARK(&common, VESK_ENTITY_COMMON_DATA_F6);
        EXPECT_EQ(to_hex(encoded(common)), to_hex(number_field(6, value)));
    }
}

TEST(encode_tag, fields_from_16_on_take_two_bytes) {
    vesk_entity_common_data common = {};
    VESK_MARK(&common, VESK_ENTITY_COMMON_DATA_F15);
    VESK_MARK(&common, VESK_ENTITY_COMMON_DATA_F16);
    VESK_MARK(&common, VESK_ENTITY_COMMON_DATA_POWER_CONSUMER);
    EXPECT_EQ(to_hex(encoded(common)), "78 00 80 01 00 92 01 00");
}

// ---- Strings -------------------------------------------------------------------------------------------------------

vesk_scratch_eeprom with_string(char* string) {
    vesk_scratch_eeprom scratch = {};
    scratch.f1 = string;
    VESK_MARK(&scratch, VESK_SCRATCH_EEPROM_F1);
    return scratch;
}

TEST(encode_string, null_pointer_with_its_bit_writes_nothing) { EXPECT_EQ(to_hex(encoded(with_string(nullptr))), ""); }

TEST(encode_string, empty_is_tag_and_zero_length) { EXPECT_EQ(to_hex(encoded(with_string(literal("")))), "0a 00"); }

TEST(encode_string, characters_are_written_without_the_terminator) {
    EXPECT_EQ(to_hex(encoded(with_string(literal("abc")))), "0a 03 61 62 63");
    EXPECT_EQ(to_hex(encoded(with_string(literal("ab\0c")))), "0a 02 61 62");
}

TEST(encode_string, long_one_has_a_long_length) {
    const std::string long_text(300, 'x');
    EXPECT_EQ(to_hex(encoded(with_string(literal(long_text.c_str())))), to_hex(text_field(1, long_text)));
}

// ---- Bytes ---------------------------------------------------------------------------------------------------------

// A bytes field and a number behind it.
vesk_scratch_eeprom with_bytes(std::uint8_t* data, std::uint64_t length) {
    vesk_scratch_eeprom scratch = {};
    scratch.f2 = data;
    scratch.f2_length = length;
    scratch.f3 = 7;
    VESK_MARK(&scratch, VESK_SCRATCH_EEPROM_F2);
    VESK_MARK(&scratch, VESK_SCRATCH_EEPROM_F3);
    return scratch;
}

TEST(encode_bytes, data_is_written_as_it_stands) {
    const Bytes data = hex("00 FF 00 61");
    EXPECT_EQ(to_hex(encoded(with_bytes(data_of(data), 4))), "12 04 00 ff 00 61 18 07");
}

TEST(encode_bytes, zero_length_is_tag_and_zero_length_whatever_the_pointer) {
    EXPECT_EQ(to_hex(encoded(with_bytes(nullptr, 0))), "12 00 18 07");
    EXPECT_EQ(to_hex(encoded(with_bytes(unreadable<std::uint8_t>(), 0))), "12 00 18 07");
}

TEST(encode_bytes, by_reference_leaves_the_data_out) {
    const vesk_scratch_eeprom scratch = with_bytes(unreadable<std::uint8_t>(), 5);
    EXPECT_EQ(measured(scratch, VESK_BYTES_BY_REFERENCE), 4u);
    EXPECT_EQ(to_hex(encoded(scratch, VESK_BYTES_BY_REFERENCE)), "12 05 18 07");
}

TEST(encode_bytes, only_the_low_32_bits_of_the_length_reach_the_wire) {
    const vesk_scratch_eeprom scratch = with_bytes(unreadable<std::uint8_t>(), 3 * two_to_the_32 + 5);
    const Output output = encode_into(scratch, 8);  // far too short, so the data is never read
    EXPECT_EQ(output.length, 2 + (3 * two_to_the_32 + 5) + 2);
    EXPECT_EQ(to_hex(output.buffer), "12 05 ee ee ee ee ee ee");
    EXPECT_TRUE(output.stayed_inside);
    EXPECT_EQ(measured(scratch), output.length);
}

TEST(encode_bytes, length_of_2_to_the_32_is_zero_on_the_wire_and_still_advances) {
    const vesk_scratch_eeprom scratch = with_bytes(unreadable<std::uint8_t>(), two_to_the_32);
    const Output output = encode_into(scratch, 4);
    EXPECT_EQ(output.length, 2 + two_to_the_32 + 2);
    EXPECT_EQ(to_hex(output.buffer), "12 00 ee ee");
}

TEST(encode_bytes, length_that_wraps_the_position_adds_nothing) {
    // Behind tag and five bytes of length the position is 6: from 2^64 - 6 on the sum wraps.
    for (std::uint64_t length : {~std::uint64_t{0}, ~std::uint64_t{0} - 1, ~std::uint64_t{0} - 5}) {
        const vesk_scratch_eeprom scratch = with_bytes(unreadable<std::uint8_t>(), length);
        const Output output = encode_into(scratch, 10);
        EXPECT_EQ(output.length, 8u);
        const Bytes expected =
            message(tag(2, length_type), varint(length & 0xFFFFFFFF), number_field(3, 7), hex("EE EE"));
        EXPECT_EQ(to_hex(output.buffer), to_hex(expected));
        EXPECT_EQ(measured(scratch), 8u);
    }
}

TEST(encode_bytes, largest_length_that_does_not_wrap_advances) {
    vesk_scratch_eeprom scratch = with_bytes(unreadable<std::uint8_t>(), ~std::uint64_t{0} - 6);
    VESK_UNMARK(&scratch, VESK_SCRATCH_EEPROM_F3);
    const Output output = encode_into(scratch, 10);
    EXPECT_EQ(output.length, ~std::uint64_t{0});
    EXPECT_EQ(to_hex(output.buffer), "12 f9 ff ff ff 0f ee ee ee ee");
    EXPECT_EQ(measured(scratch), ~std::uint64_t{0});
}

// ---- Nested messages -----------------------------------------------------------------------------------------------

TEST(encode_nested, content_with_clear_bit_is_written) {
    vesk_req_inv_data request = {};
    request.policy.f3 = 7;
    VESK_MARK(&request.policy, VESK_INV_POLICY_F3);
    EXPECT_EQ(to_hex(encoded(request)), to_hex(message_field(6, number_field(3, 7))));
}

TEST(encode_nested, content_with_clear_bits_is_written_through_every_level) {
    vesk_resp_inv_data_by_eid response = {};
    VESK_MARK(&response.fan.entity_common.oper_status, VESK_ENTITY_OPER_STATUS_DATA_F2);
    EXPECT_EQ(to_hex(encoded(response)),
              to_hex(message_field(17, message_field(1, message_field(9, number_field(2, 0))))));
}

TEST(encode_nested, imported_content_with_clear_bit_is_written) {
    vesk_req_inv_data request = {};
    request.eid.f1 = 9;
    VESK_MARK(&request.eid, VESK_DRIN_EID_ST_F1);
    EXPECT_EQ(to_hex(encoded(request)), to_hex(message_field(3, number_field(1, 9))));
}

TEST(encode_nested, empty_with_its_bit_is_tag_and_zero_length) {
    vesk_req_inv_data request = {};
    VESK_MARK(&request, VESK_REQ_INV_DATA_EID);
    VESK_MARK(&request, VESK_REQ_INV_DATA_POLICY);
    EXPECT_EQ(to_hex(encoded(request)), "1a 00 32 00");
}

TEST(encode_nested, empty_with_clear_bit_is_not_written) {
    vesk_req_inv_data request = {};
    request.policy.f3 = 7;  // without its bit
    request.policy.f1 = nullptr;
    VESK_MARK(&request.policy, VESK_INV_POLICY_F1);  // null: writes nothing
    EXPECT_EQ(to_hex(encoded(request)), "");
}

// ---- Lists ---------------------------------------------------------------------------------------------------------

TEST(encode_list, clear_bit_writes_nothing_whatever_the_count) {
    vesk_resp_inv_data response = {};
    response.led_list = unreadable<vesk_led_data>();
    response.led_list_count = 3;
    EXPECT_EQ(to_hex(encoded(response)), "");
}

TEST(encode_list, bit_with_count_0_writes_nothing_whatever_the_pointer) {
    vesk_resp_inv_data response = {};
    VESK_MARK(&response, VESK_RESP_INV_DATA_LED_LIST);
    EXPECT_EQ(to_hex(encoded(response)), "");
    response.led_list = unreadable<vesk_led_data>();
    EXPECT_EQ(to_hex(encoded(response)), "");
}

TEST(encode_list, every_element_is_written_also_an_empty_one) {
    vesk_led_data leds[4] = {};
    leds[0].f3 = 1;
    VESK_MARK(&leds[0], VESK_LED_DATA_F3);
    leds[3].f5 = literal("red");
    VESK_MARK(&leds[3], VESK_LED_DATA_F5);
    vesk_resp_inv_data response = {};
    response.led_list = leds;
    response.led_list_count = 4;
    VESK_MARK(&response, VESK_RESP_INV_DATA_LED_LIST);
    EXPECT_EQ(to_hex(encoded(response)),
              to_hex(message(message_field(8, number_field(3, 1)), message_field(8, Bytes{}), message_field(8, Bytes{}),
                             message_field(8, text_field(5, "red")))));
}

TEST(encode_list, list_inside_an_element_is_written) {
    vesk_drin_eid_element inner[2] = {};
    inner[1].f2 = 300;
    VESK_MARK(&inner[1], VESK_DRIN_EID_ELEMENT_F2);
    vesk_fan_data fan = {};
    fan.entity_common.eid.element_list = inner;
    fan.entity_common.eid.element_list_count = 2;
    VESK_MARK(&fan.entity_common.eid, VESK_DRIN_EID_ST_ELEMENT_LIST);
    vesk_resp_inv_data response = {};
    response.fan_list = &fan;
    response.fan_list_count = 1;
    VESK_MARK(&response, VESK_RESP_INV_DATA_FAN_LIST);
    const Bytes eid = message(message_field(6, Bytes{}), message_field(6, number_field(2, 300)));
    EXPECT_EQ(to_hex(encoded(response)), to_hex(message_field(19, message_field(1, message_field(1, eid)))));
}

// ---- Buffers of every length ---------------------------------------------------------------------------------------

// A stretch of an encoding: stored byte by byte as far as the buffer goes, or whole or not at all.
struct Stretch {
    Bytes bytes;
    bool whole = false;
};

// What a buffer of `room` bytes holds afterwards.
Bytes expected_in(std::size_t room, const std::vector<Stretch>& encoding) {
    Bytes buffer(room, 0xEE);
    std::size_t position = 0;
    for (const Stretch& stretch : encoding) {
        const bool fits = position + stretch.bytes.size() <= room;
        for (std::size_t i = 0; i < stretch.bytes.size() && (fits || !stretch.whole); ++i) {
            if (position + i < room) buffer[position + i] = stretch.bytes[i];
        }
        position += stretch.bytes.size();
    }
    return buffer;
}

template <class T>
void expect_in_every_buffer(const T& message, const std::vector<Stretch>& encoding, std::uint32_t flags = 0) {
    std::size_t length = 0;
    for (const Stretch& stretch : encoding) length += stretch.bytes.size();
    EXPECT_EQ(measured(message, flags), length);
    for (std::size_t room = 0; room <= length + 3; ++room) {
        const Output output = encode_into(message, room, flags);
        EXPECT_EQ(output.length, length) << "room " << room;
        EXPECT_EQ(to_hex(output.buffer), to_hex(expected_in(room, encoding))) << "room " << room;
        EXPECT_TRUE(output.stayed_inside) << "room " << room;
    }
}

Stretch whole(std::string_view characters) { return {Bytes(characters.begin(), characters.end()), true}; }

TEST(encode_buffer, flat_message_at_every_length) {
    const Bytes data = hex("01 02 03 04 05");
    vesk_scratch_eeprom scratch = with_bytes(data_of(data), 5);
    scratch.f1 = literal("north");
    scratch.f3 = 0xFFFFFFFF;
    scratch.f4 = literal("end");
    scratch.present[0] = 0x0F;
    expect_in_every_buffer(
        scratch,
        {{hex("0A 05")}, whole("north"), {hex("12 05")}, {data, true}, {hex("18 FF FF FF FF 0F 22 03")}, whole("end")});
}

TEST(encode_buffer, by_reference_at_every_length) {
    vesk_scratch_eeprom scratch = with_bytes(unreadable<std::uint8_t>(), 5);
    scratch.f4 = literal("end");
    VESK_MARK(&scratch, VESK_SCRATCH_EEPROM_F4);
    expect_in_every_buffer(scratch, {{hex("12 05 18 07 22 03")}, whole("end")}, VESK_BYTES_BY_REFERENCE);
}

TEST(encode_buffer, wide_numbers_and_tags_at_every_length) {
    vesk_entity_common_data common = {};
    common.f16 = 0xFFFFFFFF;
    common.f20 = ~std::uint64_t{0};
    VESK_MARK(&common, VESK_ENTITY_COMMON_DATA_F16);
    VESK_MARK(&common, VESK_ENTITY_COMMON_DATA_F20);
    expect_in_every_buffer(common, {{message(number_field(16, 0xFFFFFFFF), number_field(20, ~std::uint64_t{0}))}});
}

TEST(encode_buffer, nested_messages_and_lists_at_every_length) {
    vesk_led_data leds[2] = {};
    leds[0].f5 = literal("green");
    leds[0].entity_common.f2 = literal("left");
    leds[0].entity_common.eid.f1 = 300;
    leds[1].f3 = 7;
    VESK_MARK(&leds[0].entity_common.eid, VESK_DRIN_EID_ST_F1);
    VESK_MARK(&leds[0].entity_common, VESK_ENTITY_COMMON_DATA_F2);
    VESK_MARK(&leds[0], VESK_LED_DATA_F5);
    VESK_MARK(&leds[1], VESK_LED_DATA_F3);
    vesk_resp_inv_data response = {};
    response.f1 = 1;
    response.led_list = leds;
    response.led_list_count = 2;
    VESK_MARK(&response, VESK_RESP_INV_DATA_F1);
    VESK_MARK(&response, VESK_RESP_INV_DATA_LED_LIST);
    expect_in_every_buffer(response, {{hex("08 01 42 14 0A 0B 0A 03 08 AC 02 12 04")},
                                      whole("left"),
                                      {hex("2A 05")},
                                      whole("green"),
                                      {hex("42 02 18 07")}});
}

TEST(encode_buffer, one_byte_short_lacks_the_last_byte_of_a_number) {
    vesk_scratch_eeprom scratch = with_string(literal("abc"));
    scratch.f3 = 300;
    VESK_MARK(&scratch, VESK_SCRATCH_EEPROM_F3);
    const Output output = encode_into(scratch, 7);
    EXPECT_EQ(output.length, 8u);
    EXPECT_EQ(to_hex(output.buffer), "0a 03 61 62 63 18 ac");
}

TEST(encode_buffer, one_byte_short_lacks_a_closing_string_as_a_whole) {
    const Output output = encode_into(with_string(literal("abc")), 4);
    EXPECT_EQ(output.length, 5u);
    EXPECT_EQ(to_hex(output.buffer), "0a 03 ee ee");
}

TEST(encode_buffer, one_byte_short_lacks_closing_bytes_as_a_whole) {
    const Bytes data = hex("01 02 03");
    vesk_scratch_eeprom scratch = with_bytes(data_of(data), 3);
    VESK_UNMARK(&scratch, VESK_SCRATCH_EEPROM_F3);
    const Output output = encode_into(scratch, 4);
    EXPECT_EQ(output.length, 5u);
    EXPECT_EQ(to_hex(output.buffer), "12 03 ee ee");
}

TEST(encode_buffer, a_string_that_does_not_fit_leaves_room_unused_for_what_follows) {
    vesk_scratch_eeprom scratch = with_string(literal("too long"));
    scratch.f3 = 1;
    VESK_MARK(&scratch, VESK_SCRATCH_EEPROM_F3);
    const Output output = encode_into(scratch, 6);
    EXPECT_EQ(output.length, 12u);
    EXPECT_EQ(to_hex(output.buffer), "0a 08 ee ee ee ee");
}

// No address is computed behind the last one there is, and nothing is stored: there is no memory at this one.
TEST(encode_buffer, an_empty_message_fits_three_bytes_before_the_end_of_the_address_space) {
    void* const last_bytes = reinterpret_cast<void*>(UINTPTR_MAX - 3);
    const vesk_scratch_eeprom scratch = {};
    std::uint32_t segments = 0;
    EXPECT_EQ(vesk_scratch_eeprom_encode_ext(&scratch, last_bytes, ~std::uint64_t{0}, nullptr, &segments, 0), 0u);
    EXPECT_EQ(segments, 0u);
}

}  // namespace
}  // namespace vesk::test
