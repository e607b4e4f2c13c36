// The inventory database's records of devices: FPGA, EEPROM, power entry module, port and fan. Each begins with an
// inv_db_base_entity_data.
#include <gtest/gtest.h>

#include "tests/support/families.hpp"

namespace vesk::test {
namespace {

// ---- inv_db_eeprom_data: the byte block ----------------------------------------------------------------------------

TEST(inv_db_eeprom_data, empty_bytes_are_read_as_present_after_asking_for_0_bytes) {
    const Decoded<vesk_inv_db_eeprom_data> eeprom(hex("B2 01 00"));
    ASSERT_EQ(eeprom.code, VESK_OK);
    EXPECT_EQ(eeprom->f22_length, 0u);
    EXPECT_EQ(presence_of(eeprom.message), "00 00 20 00") << "bit 21";
    EXPECT_EQ(eeprom.ledger.history(), std::vector<Request>{asked_for(0)});
    EXPECT_EQ(to_hex(encoded(eeprom.message)), "b2 01 00");
}

TEST(inv_db_eeprom_data, empty_bytes_without_a_block_are_out_of_memory) {
    const Bytes input = hex("B2 01 00");
    vesk_inv_db_eeprom_data eeprom;
    EXPECT_EQ(vesk_inv_db_eeprom_data_decode_ext(&eeprom, input.data(), input.size(), nullptr, nullptr, 0),
              VESK_NO_MEMORY);
    Ledger ledger;
    ledger.fail_request(1);
    EXPECT_EQ(vesk_inv_db_eeprom_data_decode_ext(&eeprom, input.data(), input.size(), Ledger::alloc, &ledger, 0),
              VESK_NO_MEMORY);
    EXPECT_EQ(ledger.history(), std::vector<Request>{asked_for(0)});
    EXPECT_TRUE(has_no_presence(eeprom));
}

TEST(inv_db_eeprom_data, empty_bytes_by_reference_ask_for_nothing) {
    const Decoded<vesk_inv_db_eeprom_data> eeprom(hex("B2 01 00"), VESK_BYTES_BY_REFERENCE);
    ASSERT_EQ(eeprom.code, VESK_OK);
    EXPECT_EQ(eeprom->f22_length, 0u);
    EXPECT_TRUE(VESK_HAS(&eeprom.message, VESK_INV_DB_EEPROM_DATA_F22));
    EXPECT_EQ(eeprom.ledger.requests_made(), 0u);
}

TEST(inv_db_eeprom_data, copy_of_empty_bytes_is_null_and_asks_for_nothing) {
    const Decoded<vesk_inv_db_eeprom_data> eeprom(hex("B2 01 00"));
    ASSERT_EQ(eeprom.code, VESK_OK);
    EXPECT_NE(eeprom->f22, nullptr);
    const Copy<vesk_inv_db_eeprom_data> copy(eeprom.message, {}, 0x00);
    EXPECT_EQ(copy.code, VESK_OK);
    EXPECT_EQ(copy->f22, nullptr);
    EXPECT_EQ(copy->f22_length, 0u);
    EXPECT_EQ(presence_of(copy.message), "00 00 20 00");
    EXPECT_EQ(copy.ledger.requests_made(), 0u);
}

TEST(inv_db_eeprom_data, copy_that_lacks_its_bytes_has_everything_else) {
    const Bytes before = message(message_field(1, text_field(4, "unit")), number_field(2, 2), text_field(5, "five"));
    const Bytes behind = message(number_field(23, 23), text_field(27, "27"));
    const Decoded<vesk_inv_db_eeprom_data> eeprom(message(before, bytes_field(22, hex("00 01 02")), behind));
    ASSERT_EQ(eeprom.code, VESK_OK);
    const Copy<vesk_inv_db_eeprom_data> copy(eeprom.message, {3}, 0x00);
    EXPECT_EQ(copy.code, VESK_NO_MEMORY);
    EXPECT_EQ(copy->f22, nullptr);
    EXPECT_EQ(copy->f22_length, 0u);
    EXPECT_FALSE(VESK_HAS(&copy.message, VESK_INV_DB_EEPROM_DATA_F22));
    EXPECT_EQ(to_hex(encoded(copy.message)), to_hex(message(before, behind)));
}

// The segments one behind the other, as a gathering write sends them.
Bytes gathered(const vesk_segment* segments, std::uint32_t count) {
    Bytes all;
    for (std::uint32_t i = 0; i < count; ++i) {
        const auto* data = static_cast<const std::uint8_t*>(segments[i].data);
        all.insert(all.end(), data, data + segments[i].length);
    }
    return all;
}

TEST(inv_db_eeprom_data, segments_with_bytes_by_reference_add_up_to_the_copied_encoding) {
    std::uint8_t block[] = {0, 1, 2, 3, 4, 5, 6};
    vesk_inv_db_eeprom_data eeprom = {};
    eeprom.f2 = 300;
    eeprom.f5 = literal("five");
    eeprom.f22 = block;
    eeprom.f22_length = sizeof block;
    eeprom.f25 = literal("twenty-five");
    for (const unsigned bit : {VESK_INV_DB_EEPROM_DATA_F2, VESK_INV_DB_EEPROM_DATA_F5, VESK_INV_DB_EEPROM_DATA_F22,
                               VESK_INV_DB_EEPROM_DATA_F25}) {
        VESK_MARK(&eeprom, bit);
    }
    const Bytes copied = encoded(eeprom);

    Bytes buffer(copied.size() - sizeof block);
    vesk_segment segments[3];
    std::uint32_t count = 3;
    EXPECT_EQ(vesk_inv_db_eeprom_data_encode_ext(&eeprom, buffer.data(), buffer.size(), segments, &count,
                                                 VESK_BYTES_BY_REFERENCE),
              buffer.size())
        << "the data is not counted";
    ASSERT_EQ(count, 3u);
    EXPECT_EQ(segments[1].data, block);
    EXPECT_EQ(segments[1].length, sizeof block);
    EXPECT_EQ(to_hex(gathered(segments, count)), to_hex(copied));
}

TEST(inv_db_eeprom_data, segments_of_the_base_entity_stand_in_front_and_are_covered_again) {
    std::uint8_t block[] = {0, 1, 2, 3, 4, 5, 6};
    vesk_inv_db_eeprom_data eeprom = {};
    eeprom.base_entity.f34 = 34;
    VESK_MARK(&eeprom.base_entity, VESK_INV_DB_BASE_ENTITY_DATA_F34);
    eeprom.f22 = block;
    eeprom.f22_length = sizeof block;
    VESK_MARK(&eeprom, VESK_INV_DB_EEPROM_DATA_F22);
    eeprom.f31 = 31;
    VESK_MARK(&eeprom, VESK_INV_DB_EEPROM_DATA_F31);
    const Bytes copied = encoded(eeprom);

    Bytes buffer(copied.size() - sizeof block);
    vesk_segment segments[4];
    std::uint32_t count = 4;
    vesk_inv_db_eeprom_data_encode_ext(&eeprom, buffer.data(), buffer.size(), segments, &count,
                                       VESK_BYTES_BY_REFERENCE);
    ASSERT_EQ(count, 4u);
    EXPECT_EQ(segments[0].data, buffer.data() + 2);
    EXPECT_EQ(segments[0].length, 3u) << "90 02 22";
    EXPECT_EQ(segments[2].data, block);
    EXPECT_EQ(to_hex(gathered(segments + 1, 3)), to_hex(copied));
}

TEST(inv_db_eeprom_data, bytes_by_reference_without_a_list_are_left_out) {
    std::uint8_t block[] = {1, 2, 3};
    vesk_inv_db_eeprom_data eeprom = {};
    eeprom.f22 = block;
    eeprom.f22_length = sizeof block;
    VESK_MARK(&eeprom, VESK_INV_DB_EEPROM_DATA_F22);
    EXPECT_EQ(to_hex(encoded(eeprom)), "b2 01 03 01 02 03");
    EXPECT_EQ(to_hex(encoded(eeprom, VESK_BYTES_BY_REFERENCE)), "b2 01 03");
}

TEST(inv_db_eeprom_data, bytes_by_reference_need_no_callback_but_strings_do) {
    const Bytes block = bytes_field(22, hex("DE AD BE EF"));
    for (const Bytes& string : {text_field(5, "five"), text_field(25, ""), text_field(27, "27"),
                                message_field(1, text_field(29, "in the base entity"))}) {
        const Bytes input = message(number_field(2, 7), block, string);
        vesk_inv_db_eeprom_data eeprom;
        EXPECT_EQ(vesk_inv_db_eeprom_data_decode_ext(&eeprom, input.data(), input.size() - string.size(), nullptr,
                                                     nullptr, VESK_BYTES_BY_REFERENCE),
                  VESK_OK);
        EXPECT_EQ(vesk_inv_db_eeprom_data_decode_ext(&eeprom, input.data(), input.size(), nullptr, nullptr,
                                                     VESK_BYTES_BY_REFERENCE),
                  VESK_NO_MEMORY)
            << to_hex(string);
        EXPECT_EQ(eeprom.f22, input.data() + 5);
        EXPECT_EQ(eeprom.f22_length, 4u);
        EXPECT_EQ(presence_of(eeprom), "02 00 20 00");
    }
}

TEST(inv_db_eeprom_data, bytes_by_reference_stay_at_free) {
    Decoded<vesk_inv_db_eeprom_data> eeprom(message(text_field(5, "five"), bytes_field(22, hex("DE AD"))),
                                            VESK_BYTES_BY_REFERENCE);
    ASSERT_EQ(eeprom.code, VESK_OK);
    eeprom.ledger.clear_history();
    vesk_inv_db_eeprom_data_free_ext(&eeprom.message, Ledger::release, &eeprom.ledger, VESK_BYTES_BY_REFERENCE);
    EXPECT_EQ(eeprom.ledger.history(), std::vector<Request>{given_back(sizeof "five")});
    EXPECT_EQ(eeprom->f22, eeprom.bytes.data() + 6 + 3);
}

TEST(inv_db_eeprom_data, repeated_string_or_bytes_are_malformed) {
    expect_repetition_is_malformed<vesk_inv_db_eeprom_data>(
        {5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 22, 25, 27});
}

TEST(inv_db_eeprom_data, strings_own_a_block_each) {
    Bytes input;
    for (std::uint32_t number = 5; number <= 17; ++number) input = message(input, text_field(number, "text"));
    input = message(input, text_field(25, "text"), text_field(27, "text"));
    const Decoded<vesk_inv_db_eeprom_data> eeprom(input);
    ASSERT_EQ(eeprom.code, VESK_OK);
    EXPECT_EQ(eeprom.ledger.history(), std::vector<Request>(15, asked_for(5)));
    EXPECT_EQ(to_hex(encoded(eeprom.message)), to_hex(input));
}

TEST(inv_db_eeprom_data, fields_from_32_on_are_skipped) {
    const Bytes known = number_field(31, 1);
    EXPECT_EQ(to_hex(reencoded<vesk_inv_db_eeprom_data>(
                  message(number_field(32, 5), text_field(33, "north"), known, number_field(34, 1)))),
              to_hex(known));
}

// ---- The other devices ---------------------------------------------------------------------------------------------

TEST(device_records, empty_base_entity_is_written_only_if_present) {
    expect_empty_is_written_only_if_present<vesk_inv_db_fpga_data>(0, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_db_eeprom_data>(0, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_db_pem_data>(0, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_db_base_port_data>(0, "0a 00");
    expect_empty_is_written_only_if_present<vesk_inv_db_fan_data>(0, "0a 00");
}

TEST(device_records, flag_received_as_2_is_stored_and_written_as_1) {
    expect_flags_become_1<vesk_inv_db_fpga_data>({2, 18}, 2);
    expect_flags_become_1<vesk_inv_db_fan_data>({7, 8}, 2);
}

TEST(device_records, numbers_keep_their_width) {
    expect_numbers_keep_64_bits<vesk_inv_db_fan_data>({6});
    expect_numbers_keep_32_bits<vesk_inv_db_fan_data>({2, 3, 4, 5});
    expect_numbers_keep_32_bits<vesk_inv_db_base_port_data>({2});
    expect_numbers_keep_32_bits<vesk_inv_db_pem_data>({3, 4, 5, 6});
    expect_numbers_keep_32_bits<vesk_inv_db_fpga_data>({3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17});
    expect_numbers_keep_32_bits<vesk_inv_db_eeprom_data>({2, 3, 4, 18, 19, 20, 21, 23, 24, 26, 28, 29, 30, 31});
}

TEST(inv_db_pem_data, power_information_is_written_if_present_or_not_empty) {
    expect_empty_is_written_only_if_present<vesk_inv_db_pem_data>(VESK_INV_DB_PEM_DATA_POWER_INFO, "12 00");
    vesk_inv_db_pem_data pem = {};
    VESK_MARK(&pem.power_info, VESK_INV_DB_POWER_INFO_DATA_POWER_ZONE);
    EXPECT_EQ(to_hex(encoded(pem)), "12 02 0a 00");
}

TEST(inv_db_fan_data, threshold_is_the_last_field_and_bit_8) {
    const Bytes input = message(number_field(6, std::uint64_t{1} << 50), message_field(9, number_field(9, 1)));
    const Decoded<vesk_inv_db_fan_data> fan(input);
    ASSERT_EQ(fan.code, VESK_OK);
    EXPECT_EQ(fan->f6, std::uint64_t{1} << 50);
    EXPECT_EQ(fan->threshold.f9, 1);
    EXPECT_EQ(presence_of(fan.message), "20 01");
    EXPECT_EQ(to_hex(encoded(fan.message)), to_hex(input));
}

TEST(inv_db_fpga_data, tags_take_one_byte_up_to_field_15_and_two_from_field_16) {
    vesk_inv_db_fpga_data fpga = {};
    std::memset(fpga.present, 0xFF, sizeof fpga.present);
    EXPECT_EQ(to_hex(encoded(fpga)),
              to_hex(hex("0A 00  10 00  18 00  20 00  28 00  30 00  38 00  40 00  48 00  50 00  58 00  60 00  68 00"
                         "70 00  78 00  80 01 00  88 01 00  90 01 00")));
}

}  // namespace
}  // namespace vesk::test
