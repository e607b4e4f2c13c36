// The inventory database's records of an entity and of its sensors. inv_db_base_entity_data is the one type with field
// numbers above 31.
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/families.hpp"

namespace vesk::test {
namespace {

// ---- inv_db_base_entity_data: tags and presence of 34 fields -------------------------------------------------------

TEST(inv_db_base_entity_data, fields_32_to_34_alone_have_the_varint_tags_of_256_264_and_272) {
    vesk_inv_db_base_entity_data entity = {};
    entity.f32 = 1;
    entity.f33 = 300;
    entity.f34 = 0xFFFFFFFF;
    VESK_MARK(&entity, VESK_INV_DB_BASE_ENTITY_DATA_F32);
    VESK_MARK(&entity, VESK_INV_DB_BASE_ENTITY_DATA_F33);
    VESK_MARK(&entity, VESK_INV_DB_BASE_ENTITY_DATA_F34);
    const Bytes expected = hex("80 02 01  88 02 AC 02  90 02 FF FF FF FF 0F");
    EXPECT_EQ(to_hex(encoded(entity)), to_hex(expected));

    const Decoded<vesk_inv_db_base_entity_data> decoded(expected);
    ASSERT_EQ(decoded.code, VESK_OK);
    EXPECT_EQ(decoded->f32, 1u);
    EXPECT_EQ(decoded->f33, 300u);
    EXPECT_EQ(decoded->f34, 0xFFFFFFFFu);
    EXPECT_EQ(presence_of(decoded.message), "00 00 00 80 03") << "bits 31, 32 and 33";
    EXPECT_EQ(to_hex(encoded(decoded.message)), to_hex(expected));
}

TEST(inv_db_base_entity_data, presence_takes_five_bytes_one_bit_per_field) {
    static_assert(sizeof(vesk_inv_db_base_entity_data::present) == 5);
    for (const auto& [number, presence] : std::vector<std::pair<std::uint32_t, const char*>>{
             {2, "02 00 00 00 00"},
             {16, "00 80 00 00 00"},
             {17, "00 00 01 00 00"},
             {31, "00 00 00 40 00"},
             {32, "00 00 00 80 00"},
             {33, "00 00 00 00 01"},
             {34, "00 00 00 00 02"},
         }) {
        const Decoded<vesk_inv_db_base_entity_data> entity(number_field(number, 5));
        EXPECT_EQ(entity.code, VESK_OK) << number;
        EXPECT_EQ(presence_of(entity.message), presence) << number;
        EXPECT_EQ(to_hex(encoded(entity.message)), to_hex(number_field(number, 5)));
    }
}

TEST(inv_db_base_entity_data, tags_take_one_byte_up_to_field_15_and_two_from_field_16) {
    vesk_inv_db_base_entity_data entity = {};
    entity.f4 = entity.f5 = entity.f13 = entity.f14 = entity.f15 = entity.f29 = literal("");
    std::memset(entity.present, 0xFF, sizeof entity.present);
    EXPECT_EQ(to_hex(encoded(entity)),
              to_hex(hex("0A 00  10 00  18 00  22 00  2A 00  30 00  38 00  40 00  48 00  50 00  58 00  60 00  6A 00"
                         "72 00  7A 00  80 01 00  88 01 00  90 01 00  98 01 00  A0 01 00  A8 01 00  B0 01 00"
                         "B8 01 00  C2 01 00  CA 01 00  D2 01 00  D8 01 00  E0 01 00  EA 01 00  F0 01 00  F8 01 00"
                         "80 02 00  88 02 00  90 02 00")));
}

TEST(inv_db_base_entity_data, over_long_tags_of_fields_32_to_34_are_accepted) {
    EXPECT_EQ(to_hex(reencoded<vesk_inv_db_base_entity_data>(
                  message(over_long(272, 5), varint(3), over_long(256, 3), varint(1), over_long(264, 10), varint(2)))),
              "80 02 01 88 02 02 90 02 03");
}

TEST(inv_db_base_entity_data, wrong_wire_type_of_fields_32_to_34_is_refused) {
    for (const std::uint32_t number : {32u, 33u, 34u}) {
        for (const std::uint32_t wire_type : {1u, 2u, 3u, 4u, 5u, 6u, 7u}) {
            EXPECT_EQ(decode_code<vesk_inv_db_base_entity_data>(message(tag(number, wire_type), hex("00"))),
                      VESK_WRONG_WIRE_TYPE)
                << number << ", wire type " << wire_type;
        }
    }
}

TEST(inv_db_base_entity_data, field_35_is_skipped_whatever_its_wire_type) {
    const Bytes before = message(number_field(2, 7), text_field(29, "slot"));
    const Bytes behind = message(number_field(33, 8), number_field(34, 9));
    for (const Bytes& unknown : {number_field(35, 300), message(tag(35, fixed64_type), hex("01 02 03 04 05 06 07 08")),
                                 text_field(35, "north"), message(tag(35, fixed32_type), hex("01 02 03 04"))}) {
        const Decoded<vesk_inv_db_base_entity_data> entity(message(before, unknown, behind));
        ASSERT_EQ(entity.code, VESK_OK) << to_hex(unknown);
        EXPECT_EQ(entity->f34, 9u);
        EXPECT_EQ(to_hex(encoded(entity.message)), to_hex(message(before, behind))) << to_hex(unknown);
    }
    for (const std::uint32_t wire_type : {3u, 4u, 6u, 7u}) {
        EXPECT_EQ(decode_code<vesk_inv_db_base_entity_data>(message(before, tag(35, wire_type), behind)),
                  VESK_UNKNOWN_WIRE_TYPE);
    }
}

TEST(inv_db_base_entity_data, numbers_that_share_low_bits_with_a_field_are_skipped) {
    // 64 and 32 (288 and 32) agree in the low five (eight) bits of their numbers, and so do the others.
    for (const std::uint32_t number : {0u, 35u, 64u, 65u, 66u, 288u, 289u, 290u}) {
        const Decoded<vesk_inv_db_base_entity_data> entity(number_field(number, 5));
        EXPECT_EQ(entity.code, VESK_OK) << number;
        EXPECT_TRUE(has_no_presence(entity.message)) << number;
    }
}

// ---- inv_db_base_entity_data: its strings and blocks ---------------------------------------------------------------

TEST(inv_db_base_entity_data, present_string_that_is_null_is_not_written) {
    expect_null_is_not_written<vesk_inv_db_base_entity_data>(
        {VESK_INV_DB_BASE_ENTITY_DATA_F4, VESK_INV_DB_BASE_ENTITY_DATA_F5, VESK_INV_DB_BASE_ENTITY_DATA_F13,
         VESK_INV_DB_BASE_ENTITY_DATA_F14, VESK_INV_DB_BASE_ENTITY_DATA_F15, VESK_INV_DB_BASE_ENTITY_DATA_F29});

    vesk_inv_db_base_entity_data entity = {};
    entity.f5 = literal("east");
    VESK_MARK(&entity, VESK_INV_DB_BASE_ENTITY_DATA_F4);
    VESK_MARK(&entity, VESK_INV_DB_BASE_ENTITY_DATA_F5);
    EXPECT_EQ(to_hex(encoded(entity)), to_hex(text_field(5, "east"))) << "its neighbour is written";
}

TEST(inv_db_base_entity_data, repeated_string_is_malformed) {
    expect_repetition_is_malformed<vesk_inv_db_base_entity_data>({4, 5, 13, 14, 15, 29});
}

TEST(inv_db_base_entity_data, empty_blocks_are_written_only_if_present) {
    using Entity = vesk_inv_db_base_entity_data;
    expect_empty_is_written_only_if_present<Entity>(VESK_INV_DB_BASE_ENTITY_DATA_EID, "0a 00");
    expect_empty_is_written_only_if_present<Entity>(VESK_INV_DB_BASE_ENTITY_DATA_POWER_CONSUMER, "c2 01 00");
    expect_empty_is_written_only_if_present<Entity>(VESK_INV_DB_BASE_ENTITY_DATA_POWER_PRODUCER, "ca 01 00");
    expect_empty_is_written_only_if_present<Entity>(VESK_INV_DB_BASE_ENTITY_DATA_I2C_NODE, "d2 01 00");
}

TEST(inv_db_power_info_data, power_zone_is_written_if_present_or_not_empty) {
    expect_empty_is_written_only_if_present<vesk_inv_db_power_info_data>(VESK_INV_DB_POWER_INFO_DATA_POWER_ZONE,
                                                                         "0a 00");
    vesk_inv_db_power_info_data info = {};
    info.power_zone.f6 = 5;
    VESK_MARK(&info.power_zone, VESK_INV_DB_POWER_ZONE_DATA_F6);
    EXPECT_EQ(to_hex(encoded(info)), "0a 02 30 05");
}

// ---- Numbers and flags of the family -------------------------------------------------------------------------------

TEST(database_entity_records, flag_received_as_2_is_stored_and_written_as_1) {
    expect_flags_become_1<vesk_inv_db_power_zone_data>({2, 3, 5}, 2);
    expect_flags_become_1<vesk_inv_db_i2c_node_data>({6}, 2);
    expect_flags_become_1<vesk_inv_db_base_entity_data>({7, 8, 9, 10, 11, 12, 30}, 2);
    expect_flags_become_1<vesk_inv_db_threshold_data>({7, 8, 9}, 2);
    expect_flags_become_1<vesk_inv_db_base_sensor_data>({7, 8}, 2);

    const Decoded<vesk_inv_db_base_entity_data> entity(number_field(9, 2));
    EXPECT_EQ(entity->f9, 1);
}

TEST(database_entity_records, f6_of_a_sensor_and_f23_of_an_entity_keep_64_bits) {
    expect_numbers_keep_64_bits<vesk_inv_db_base_sensor_data>({6});
    expect_numbers_keep_64_bits<vesk_inv_db_base_entity_data>({23});
    const Decoded<vesk_inv_db_base_entity_data> entity(number_field(23, ~std::uint64_t{0}));
    EXPECT_EQ(entity->f23, ~std::uint64_t{0});
    const Decoded<vesk_inv_db_base_sensor_data> sensor(number_field(6, ~std::uint64_t{0}));
    EXPECT_EQ(sensor->f6, ~std::uint64_t{0});
}

TEST(database_entity_records, every_other_number_keeps_32_bits) {
    expect_numbers_keep_32_bits<vesk_inv_db_power_zone_data>({1, 4, 6});
    expect_numbers_keep_32_bits<vesk_inv_db_i2c_node_data>({1, 2, 3, 4, 5});
    expect_numbers_keep_32_bits<vesk_inv_db_base_entity_data>(
        {2, 3, 6, 16, 17, 18, 19, 20, 21, 22, 27, 28, 31, 32, 33, 34});
    expect_numbers_keep_32_bits<vesk_inv_db_threshold_data>({1, 2, 3, 4, 5, 6});
    expect_numbers_keep_32_bits<vesk_inv_db_base_sensor_data>({3, 4, 5, 9, 10, 11, 12});
    expect_numbers_keep_32_bits<vesk_inv_db_pressure_sensor_data>({2});
    expect_numbers_keep_32_bits<vesk_inv_db_temp_sensor_data>({2, 3, 4, 5, 6});
    expect_numbers_keep_32_bits<vesk_inv_db_voltage_sensor_data>({2, 3});
    expect_numbers_keep_32_bits<vesk_inv_db_current_sensor_data>({2});
    expect_numbers_keep_32_bits<vesk_inv_db_led_sensor_data>({2, 3});
    expect_numbers_keep_32_bits<vesk_inv_db_power_usage_sensor_data>({2});
}

TEST(inv_db_threshold_data, ninth_field_is_bit_0_of_the_second_byte) {
    const Decoded<vesk_inv_db_threshold_data> threshold(number_field(9, 1));
    ASSERT_EQ(threshold.code, VESK_OK);
    EXPECT_EQ(presence_of(threshold.message), "00 01");
}

// ---- The six sensor records ----------------------------------------------------------------------------------------

template <class Sensor>
void expect_base_sensor_with_content_is_written_without_its_bit() {
    SCOPED_TRACE(Api<Sensor>::name);
    Sensor sensor = {};
    sensor.f2 = 7;
    VESK_MARK(&sensor, 1);
    EXPECT_EQ(to_hex(encoded(sensor)), "10 07");
    sensor.base_sensor.f3 = 5;
    VESK_MARK(&sensor.base_sensor, VESK_INV_DB_BASE_SENSOR_DATA_F3);
    EXPECT_EQ(to_hex(encoded(sensor)), "0a 02 18 05 10 07");
    // Two levels deeper, and not one bit on the way.
    sensor.base_sensor.present[0] = 0;
    sensor.base_sensor.base_entity.i2c_node.f1 = 6;
    VESK_MARK(&sensor.base_sensor.base_entity.i2c_node, VESK_INV_DB_I2C_NODE_DATA_F1);
    EXPECT_EQ(to_hex(encoded(sensor)), "0a 07 0a 05 d2 01 02 08 06 10 07");
}

TEST(sensor_records, base_sensor_with_content_is_written_without_its_bit) {
    expect_base_sensor_with_content_is_written_without_its_bit<vesk_inv_db_pressure_sensor_data>();
    expect_base_sensor_with_content_is_written_without_its_bit<vesk_inv_db_temp_sensor_data>();
    expect_base_sensor_with_content_is_written_without_its_bit<vesk_inv_db_voltage_sensor_data>();
    expect_base_sensor_with_content_is_written_without_its_bit<vesk_inv_db_current_sensor_data>();
    expect_base_sensor_with_content_is_written_without_its_bit<vesk_inv_db_led_sensor_data>();
    expect_base_sensor_with_content_is_written_without_its_bit<vesk_inv_db_power_usage_sensor_data>();
}

TEST(sensor_records, empty_base_sensor_is_written_only_if_present) {
    expect_empty_is_written_only_if_present<vesk_inv_db_pressure_sensor_data>(0, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_db_temp_sensor_data>(0, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_db_voltage_sensor_data>(0, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_db_current_sensor_data>(0, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_db_led_sensor_data>(0, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_db_power_usage_sensor_data>(0, "0a 00");
}

TEST(inv_db_base_sensor_data, empty_entity_and_threshold_are_written_only_if_present) {
    expect_empty_is_written_only_if_present<vesk_inv_db_base_sensor_data>(VESK_INV_DB_BASE_SENSOR_DATA_BASE_ENTITY,
                                                                          "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_db_base_sensor_data>(VESK_INV_DB_BASE_SENSOR_DATA_THRESHOLD,
                                                                          "12 00");
}

// The second base sensor stands alone afterwards. The two strings of the first one are lost to the message: whoever
// gave the blocks has them still.
template <class Sensor>
void expect_base_sensor_that_occurs_again_replaces_the_first() {
    SCOPED_TRACE(Api<Sensor>::name);
    const Bytes first = message_field(
        1, message(message_field(1, message(text_field(4, "north"), text_field(29, "slot"), number_field(34, 1))),
                   message_field(2, number_field(9, 1)), number_field(3, 3), number_field(12, 12)));
    const Bytes second = message_field(1, message(message_field(1, text_field(4, "south")), number_field(4, 4)));
    const Bytes input = message(first, number_field(2, 7), second);

    Ledger ledger;
    Sensor sensor = filled_with<Sensor>(0x5A);
    ASSERT_EQ(Api<Sensor>::decode(&sensor, input.data(), input.size(), Ledger::alloc, &ledger, 0), VESK_OK);
    EXPECT_EQ(presence_of(sensor), "03");
    EXPECT_EQ(presence_of(sensor.base_sensor), "09 00") << "fields 1 and 4";
    EXPECT_EQ(sensor.base_sensor.f3, 0u);
    EXPECT_EQ(sensor.base_sensor.f12, 0u);
    EXPECT_TRUE(has_no_presence(sensor.base_sensor.threshold));
    EXPECT_EQ(presence_of(sensor.base_sensor.base_entity), "08 00 00 00 00") << "field 4";
    EXPECT_STREQ(sensor.base_sensor.base_entity.f4, "south");
    EXPECT_EQ(sensor.base_sensor.base_entity.f29, nullptr);
    EXPECT_EQ(sensor.base_sensor.base_entity.f34, 0u);
    EXPECT_EQ(to_hex(encoded(sensor)), to_hex(message(second, number_field(2, 7))));

    ledger.clear_history();
    Api<Sensor>::free(&sensor, Ledger::release, &ledger, 0);
    EXPECT_EQ(ledger.history(), std::vector<Request>{given_back(sizeof "south")});
    EXPECT_EQ(ledger.blocks_out(), 2u);
    ledger.forget();
}

TEST(sensor_records, base_sensor_that_occurs_again_replaces_the_first_and_loses_its_strings) {
    expect_base_sensor_that_occurs_again_replaces_the_first<vesk_inv_db_pressure_sensor_data>();
    expect_base_sensor_that_occurs_again_replaces_the_first<vesk_inv_db_temp_sensor_data>();
    expect_base_sensor_that_occurs_again_replaces_the_first<vesk_inv_db_voltage_sensor_data>();
    expect_base_sensor_that_occurs_again_replaces_the_first<vesk_inv_db_current_sensor_data>();
    expect_base_sensor_that_occurs_again_replaces_the_first<vesk_inv_db_led_sensor_data>();
    expect_base_sensor_that_occurs_again_replaces_the_first<vesk_inv_db_power_usage_sensor_data>();
}

TEST(sensor_records, error_in_the_base_entity_comes_through_both_levels) {
    const auto with_entity = [](const Bytes& entity) { return message_field(1, message_field(1, entity)); };
    EXPECT_EQ(decode_code<vesk_inv_db_temp_sensor_data>(with_entity(hex("80 02"))), VESK_MALFORMED);
    EXPECT_EQ(decode_code<vesk_inv_db_temp_sensor_data>(with_entity(tag(35, 3))), VESK_UNKNOWN_WIRE_TYPE);
    EXPECT_EQ(decode_code<vesk_inv_db_temp_sensor_data>(with_entity(text_field(34, "a"))), VESK_WRONG_WIRE_TYPE);
    const Bytes named = with_entity(text_field(4, "a"));
    vesk_inv_db_temp_sensor_data sensor;
    EXPECT_EQ(vesk_inv_db_temp_sensor_data_decode_ext(&sensor, named.data(), named.size(), nullptr, nullptr, 0),
              VESK_NO_MEMORY);
}

}  // namespace
}  // namespace vesk::test
