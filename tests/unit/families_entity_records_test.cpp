// The seventeen entity records, which all begin with entity_common and fru_common, and threshold_data.
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/messages.hpp"

namespace vesk::test {
namespace {

// ---- The family head -----------------------------------------------------------------------------------------------

template <class Record>
Bytes with_empty_head(bool entity_common_present, bool fru_common_present) {
    Record record = {};
    if (entity_common_present) VESK_MARK(&record, 0);
    if (fru_common_present) VESK_MARK(&record, 1);
    return encoded(record);
}

template <class Record>
Bytes with_filled_head_not_marked() {
    Record record = {};
    record.entity_common.f4 = 5;
    VESK_MARK(&record.entity_common, VESK_ENTITY_COMMON_DATA_F4);
    record.fru_common.f1 = 6;
    VESK_MARK(&record.fru_common, VESK_FRU_COMMON_ATTRIBUTE_F1);
    return encoded(record);
}

struct RecordType {
    const char* name;
    Bytes (*with_empty_head)(bool entity_common_present, bool fru_common_present);
    Bytes (*with_filled_head_not_marked)();
};

template <class... Records>
std::vector<RecordType> record_types() {
    return {{Api<Records>::name, with_empty_head<Records>, with_filled_head_not_marked<Records>}...};
}

const std::vector<RecordType> all_records =
    record_types<vesk_pem_data, vesk_sensor_data, vesk_inv_fpga_data, vesk_idprom_data, vesk_led_data,
                 vesk_storage_data, vesk_memory_data, vesk_port_data, vesk_processor_data, vesk_ce_switch_data,
                 vesk_pcie_switch_data, vesk_power_shelf_data, vesk_craft_data, vesk_chassis_data, vesk_container_data,
                 vesk_fan_data, vesk_base_data>();

TEST(entity_records, empty_head_is_written_only_if_present) {
    for (const RecordType& record : all_records) {
        EXPECT_EQ(to_hex(record.with_empty_head(false, false)), "") << record.name;
        EXPECT_EQ(to_hex(record.with_empty_head(true, false)), "0a 00") << record.name;
        EXPECT_EQ(to_hex(record.with_empty_head(false, true)), "12 00") << record.name;
        EXPECT_EQ(to_hex(record.with_empty_head(true, true)), "0a 00 12 00") << record.name;
    }
}

TEST(entity_records, head_with_content_is_written_without_its_bits) {
    for (const RecordType& record : all_records) {
        EXPECT_EQ(to_hex(record.with_filled_head_not_marked()), "0a 02 20 05 12 02 08 06") << record.name;
    }
}

// ---- threshold_data ------------------------------------------------------------------------------------------------

TEST(threshold_data, field_2_is_skipped_and_never_written) {
    const Bytes eid = message_field(1, number_field(1, 7));
    const Bytes f3 = number_field(3, 9);
    for (const Bytes& field_2 :
         {number_field(2, 5), text_field(2, "north"), message(tag(2, fixed32_type), hex("01 02 03 04")),
          message(tag(2, fixed64_type), hex("01 02 03 04 05 06 07 08"))}) {
        const Decoded<vesk_threshold_data> threshold(message(eid, field_2, f3));
        ASSERT_EQ(threshold.code, VESK_OK) << to_hex(field_2);
        EXPECT_EQ(threshold->present[0], 0b11) << to_hex(field_2);
        EXPECT_EQ(to_hex(encoded(threshold.message)), "0a 02 08 07 18 09") << to_hex(field_2);
    }
}

TEST(threshold_data, field_2_alone_leaves_a_cleared_message) {
    const Decoded<vesk_threshold_data> threshold(number_field(2, 5));
    ASSERT_EQ(threshold.code, VESK_OK);
    EXPECT_TRUE(has_no_presence(threshold.message));
    EXPECT_EQ(threshold->f3, 0u);
}

// ---- sensor_data ---------------------------------------------------------------------------------------------------

TEST(sensor_data, f16_alone_takes_three_bytes) {
    vesk_sensor_data sensor = {};
    sensor.f16 = 1;
    VESK_MARK(&sensor, VESK_SENSOR_DATA_F16);
    EXPECT_EQ(to_hex(encoded(sensor)), "80 01 01");
}

TEST(sensor_data, empty_threshold_is_written_only_if_present) {
    vesk_sensor_data sensor = {};
    EXPECT_EQ(to_hex(encoded(sensor)), "");
    VESK_MARK(&sensor, VESK_SENSOR_DATA_THRESHOLD);
    EXPECT_EQ(to_hex(encoded(sensor)), "62 00");
}

// ---- Flags and strings ---------------------------------------------------------------------------------------------

template <class Record>
void expect_5_is_stored_and_written_as_1(std::uint32_t number, std::uint8_t Record::*flag) {
    SCOPED_TRACE(std::string(Api<Record>::name) + " field " + std::to_string(number));
    const Decoded<Record> record(number_field(number, 5));
    ASSERT_EQ(record.code, VESK_OK);
    EXPECT_EQ(record.message.*flag, 1);
    EXPECT_EQ(to_hex(encoded(record.message)), to_hex(number_field(number, 1)));
}

TEST(entity_records, flag_received_as_5_is_stored_and_written_as_1) {
    expect_5_is_stored_and_written_as_1(15, &vesk_sensor_data::f15);
    expect_5_is_stored_and_written_as_1(16, &vesk_sensor_data::f16);
    expect_5_is_stored_and_written_as_1(16, &vesk_inv_fpga_data::f16);
    expect_5_is_stored_and_written_as_1(19, &vesk_inv_fpga_data::f19);
}

template <class Record>
void expect_repeated_string_is_malformed(std::uint32_t number, char* Record::*string) {
    SCOPED_TRACE(Api<Record>::name);
    const Decoded<Record> record(message(text_field(number, "north"), text_field(number, "south")));
    EXPECT_EQ(record.code, VESK_MALFORMED);
    EXPECT_STREQ(record.message.*string, "north");
}

TEST(entity_records, repeated_string_is_malformed) {
    expect_repeated_string_is_malformed(13, &vesk_sensor_data::f13);
    expect_repeated_string_is_malformed(18, &vesk_inv_fpga_data::f18);
    expect_repeated_string_is_malformed(4, &vesk_idprom_data::f4);
    expect_repeated_string_is_malformed(5, &vesk_led_data::f5);
    expect_repeated_string_is_malformed(4, &vesk_memory_data::f4);
    expect_repeated_string_is_malformed(4, &vesk_processor_data::f4);
}

// ---- memory_data ---------------------------------------------------------------------------------------------------

TEST(memory_data, f6_is_written_before_f4) {
    char x[] = "x";
    vesk_memory_data memory = {};
    memory.f6 = 1;
    memory.f4 = x;
    VESK_MARK(&memory, VESK_MEMORY_DATA_F6);
    VESK_MARK(&memory, VESK_MEMORY_DATA_F4);
    EXPECT_EQ(to_hex(encoded(memory)), "30 01 22 01 78");
}

TEST(memory_data, f4_and_f6_are_read_in_either_order) {
    for (const char* input : {"30 01  22 01 78", "22 01 78  30 01"}) {
        const Decoded<vesk_memory_data> memory(hex(input));
        ASSERT_EQ(memory.code, VESK_OK) << input;
        EXPECT_EQ(memory->f6, 1u) << input;
        EXPECT_STREQ(memory->f4, "x") << input;
        EXPECT_EQ(memory->present[0], 0b1100) << input;
        EXPECT_EQ(to_hex(encoded(memory.message)), "30 01 22 01 78") << input;
    }
}

TEST(memory_data, fields_3_and_5_are_skipped) {
    for (const Bytes& unknown :
         {number_field(3, 9), text_field(3, "north"), number_field(5, 9), text_field(5, "north")}) {
        const Decoded<vesk_memory_data> memory(unknown);
        ASSERT_EQ(memory.code, VESK_OK) << to_hex(unknown);
        EXPECT_TRUE(has_no_presence(memory.message)) << to_hex(unknown);
        EXPECT_EQ(to_hex(encoded(memory.message)), "") << to_hex(unknown);
    }
    const Decoded<vesk_memory_data> between(message(number_field(3, 9), number_field(6, 1), number_field(5, 9)));
    EXPECT_EQ(between.code, VESK_OK);
    EXPECT_EQ(between->present[0], 0b0100);
}

// ---- Records of one layout -----------------------------------------------------------------------------------------

struct HeadOnlyType {
    const char* name;
    Bytes (*reencoded)(const Bytes& input);
};

TEST(entity_records, craft_chassis_fan_and_base_read_each_other) {
    const HeadOnlyType types[] = {{"craft_data", reencoded<vesk_craft_data>},
                                  {"chassis_data", reencoded<vesk_chassis_data>},
                                  {"fan_data", reencoded<vesk_fan_data>},
                                  {"base_data", reencoded<vesk_base_data>}};
    const Bytes record =
        message(message_field(1, message(message_field(1, number_field(1, 7)), text_field(2, "slot 3"))),
                message_field(2, message(number_field(1, 4), text_field(3, "serial"))));
    for (const HeadOnlyType& sender : types) {
        const Bytes sent = sender.reencoded(record);
        EXPECT_EQ(to_hex(sent), to_hex(record)) << sender.name;
        for (const HeadOnlyType& receiver : types) {
            EXPECT_EQ(to_hex(receiver.reencoded(sent)), to_hex(sent)) << sender.name << " as " << receiver.name;
        }
    }
}

TEST(storage_data, field_4_is_skipped) {
    for (const Bytes& unknown : {number_field(4, 9), text_field(4, "north")}) {
        const Decoded<vesk_storage_data> storage(unknown);
        ASSERT_EQ(storage.code, VESK_OK) << to_hex(unknown);
        EXPECT_FALSE(VESK_HAS(&storage.message, VESK_STORAGE_DATA_F3)) << to_hex(unknown);
        EXPECT_TRUE(has_no_presence(storage.message)) << to_hex(unknown);
    }
}

}  // namespace
}  // namespace vesk::test
