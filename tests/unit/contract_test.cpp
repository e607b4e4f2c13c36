// What all four operations share: presence bits, the flags word, the callbacks and their context.
#include <gtest/gtest.h>

#include "tests/support/messages.hpp"

namespace vesk::test {
namespace {

// A record of a field-replaceable unit with nothing but field `number`, as bytes.
Bytes only_field(std::uint32_t number) {
    switch (number) {
        case 3:
        case 4:
        case 7:
        case 8: return text_field(number, "x");
        case 9:
        case 10: return message_field(number, number_field(1, 7));
        default: return number_field(number, 7);
    }
}

// ---- Presence bits -------------------------------------------------------------------------------------------------

TEST(presence, ninth_field_is_bit_0_of_the_second_byte) {
    static_assert(sizeof(vesk_fru_common_attribute::present) == 2);
    const Decoded<vesk_fru_common_attribute> unit(only_field(9));
    ASSERT_EQ(unit.code, VESK_OK);
    EXPECT_EQ(unit->present[0], 0x00);
    EXPECT_EQ(unit->present[1], 0x01);
}

TEST(presence, decoding_a_field_sets_its_bit_and_no_other) {
    for (std::uint32_t number = 1; number <= 10; ++number) {
        const Decoded<vesk_fru_common_attribute> unit(only_field(number));
        ASSERT_EQ(unit.code, VESK_OK);
        const unsigned bits = 1u << (number - 1);
        EXPECT_EQ(unit->present[0], bits & 0xFF) << "field " << number;
        EXPECT_EQ(unit->present[1], bits >> 8) << "field " << number;
    }
}

TEST(presence, eight_fields_or_fewer_have_one_byte) {
    static_assert(sizeof(vesk_threshold_data::present) == 1);
    static_assert(sizeof(vesk_memory_data::present) == 1);
    static_assert(sizeof(vesk_entity_common_data::present) == 3);
}

TEST(presence, encoding_follows_each_bit_by_itself) {
    Decoded<vesk_fru_common_attribute> unit(
        concatenate({only_field(1), only_field(2), only_field(3), only_field(4), only_field(5), only_field(6),
                     only_field(7), only_field(8)}));  // the two nested messages, 9 and 10, are empty
    ASSERT_EQ(unit.code, VESK_OK);
    for (std::uint32_t number = 1; number <= 10; ++number) {
        unit.message.present[0] = unit.message.present[1] = 0;
        VESK_MARK(&unit.message, number - 1);
        const Bytes expected = number < 9 ? only_field(number) : message_field(number, Bytes{});
        EXPECT_EQ(to_hex(encoded(unit.message)), to_hex(expected));
    }
}

TEST(presence, bits_follow_the_declaration_and_not_the_field_number) {
    const Decoded<vesk_memory_data> memory(number_field(6, 1));  // declared third
    EXPECT_EQ(memory->present[0], 1 << 2);
    const Decoded<vesk_threshold_data> threshold(number_field(3, 1));  // declared second: there is no field 2
    EXPECT_EQ(threshold->present[0], 1 << 1);
}

TEST(presence, macros_touch_one_bit) {
    vesk_fru_common_attribute unit = {};
    VESK_MARK(&unit, VESK_FRU_COMMON_ATTRIBUTE_OPER_STATUS);
    EXPECT_EQ(unit.present[0], 0x00);
    EXPECT_EQ(unit.present[1], 0x01);
    EXPECT_TRUE(VESK_HAS(&unit, VESK_FRU_COMMON_ATTRIBUTE_OPER_STATUS));
    EXPECT_FALSE(VESK_HAS(&unit, VESK_FRU_COMMON_ATTRIBUTE_F1));
    unit.present[0] = unit.present[1] = 0xFF;
    VESK_UNMARK(&unit, VESK_FRU_COMMON_ATTRIBUTE_F8);
    EXPECT_EQ(unit.present[0], 0x7F);
    EXPECT_EQ(unit.present[1], 0xFF);
}

// ---- Flags ---------------------------------------------------------------------------------------------------------

// Every kind of field: numbers, a flag, strings, bytes, nested messages two deep, a list.
Bytes every_kind() {
    const Bytes eeprom = message(number_field(2, 300), text_field(4, "serial"), bytes_field(20, hex("00 01 02 FF")),
                                 number_field(21, 5));
    const Bytes common = message(message_field(1, number_field(1, 9)), text_field(2, "north"), number_field(6, 1),
                                 number_field(20, std::uint64_t{1} << 40));
    const Bytes idprom = message(message_field(1, common), message_field(3, eeprom), text_field(4, "id"));
    return message(number_field(1, 1), message_field(7, idprom), message_field(7, Bytes{}));
}

// Calls `body` with the flags word that has a reserved bit alone and with one that has them all.
template <class Body>
void for_each_reserved_flag(Body body) {
    for (std::uint32_t bit = 1; bit < 32; ++bit) body(std::uint32_t{1} << bit);
    body(~std::uint32_t{1});
}

TEST(flags, reserved_bits_change_nothing_in_encode) {
    const Decoded<vesk_resp_inv_data> response(every_kind());
    ASSERT_EQ(response.code, VESK_OK);
    for (std::uint32_t known : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
        const Bytes expected = encoded(response.message, known);
        for_each_reserved_flag([&](std::uint32_t reserved) {
            EXPECT_EQ(to_hex(encoded(response.message, known | reserved)), to_hex(expected)) << "flags " << reserved;
        });
    }
}

TEST(flags, reserved_bits_do_not_stand_in_for_bytes_by_reference_in_a_segment_list) {
    const Decoded<vesk_scratch_eeprom> scratch(bytes_field(2, hex("01 02 03")));
    for_each_reserved_flag([&](std::uint32_t reserved) {
        std::uint32_t count = 0;
        EXPECT_EQ(vesk_scratch_eeprom_encode_ext(&scratch.message, nullptr, 0, nullptr, &count, reserved), 5u);
        EXPECT_EQ(count, 1u);
    });
}

TEST(flags, reserved_bits_change_nothing_in_decode) {
    for (std::uint32_t known : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
        const Decoded<vesk_resp_inv_data> plain(every_kind(), known);
        for_each_reserved_flag([&](std::uint32_t reserved) {
            const Decoded<vesk_resp_inv_data> response(every_kind(), known | reserved);
            EXPECT_EQ(response.code, VESK_OK);
            EXPECT_EQ(response.ledger.history(), plain.ledger.history()) << "flags " << reserved;
            EXPECT_EQ(to_hex(encoded(response.message)), to_hex(every_kind()));
        });
    }
}

TEST(flags, reserved_bits_change_nothing_in_free) {
    for_each_reserved_flag([&](std::uint32_t reserved) {
        Ledger ledger;
        vesk_scratch_eeprom scratch;
        const Bytes input = message(text_field(1, "a"), bytes_field(2, hex("01")));
        ASSERT_EQ(vesk_scratch_eeprom_decode_ext(&scratch, input.data(), input.size(), Ledger::alloc, &ledger, 0),
                  VESK_OK);
        vesk_scratch_eeprom_free_ext(&scratch, Ledger::release, &ledger, reserved);
        EXPECT_EQ(ledger.blocks_out(), 0u) << "flags " << reserved;
    });
}

TEST(bytes_by_reference, decoded_member_points_into_the_input_and_is_not_released) {
    Ledger ledger;
    const Bytes input = message(text_field(1, "a"), bytes_field(2, hex("01 02 03")), text_field(4, "b"));
    vesk_scratch_eeprom scratch;
    ASSERT_EQ(vesk_scratch_eeprom_decode_ext(&scratch, input.data(), input.size(), Ledger::alloc, &ledger,
                                             VESK_BYTES_BY_REFERENCE),
              VESK_OK);
    EXPECT_EQ(scratch.f2, input.data() + 5);
    EXPECT_EQ(scratch.f2_length, 3u);
    vesk_scratch_eeprom_free_ext(&scratch, Ledger::release, &ledger, VESK_BYTES_BY_REFERENCE);
    EXPECT_EQ(ledger.blocks_out(), 0u);
    EXPECT_EQ(scratch.f1, nullptr);
    EXPECT_EQ(scratch.f4, nullptr);
    EXPECT_EQ(scratch.f2, input.data() + 5);  // not released, and left as it was
}

// ---- Callbacks -----------------------------------------------------------------------------------------------------

std::int32_t decode_without_alloc(const Bytes& input, std::uint32_t flags = 0) {
    vesk_resp_inv_data_by_eid response;
    return vesk_resp_inv_data_by_eid_decode_ext(&response, input.data(), input.size(), nullptr, nullptr, flags);
}

TEST(null_alloc, numbers_and_nested_messages_decode) {
    const Bytes common = message(message_field(1, number_field(1, 9)), number_field(6, 1), number_field(20, 7));
    const Bytes fan = message(message_field(1, common), message_field(2, number_field(1, 3)));
    EXPECT_EQ(decode_without_alloc(message(number_field(1, 1), message_field(17, fan))), VESK_OK);
}

TEST(null_alloc, decode_fails_at_the_first_field_that_owns_a_block) {
    const Bytes eeprom = bytes_field(20, hex("01"));
    const Bytes idprom = message_field(3, eeprom);
    EXPECT_EQ(decode_without_alloc(message_field(6, text_field(5, "x"))), VESK_NO_MEMORY) << "string";
    EXPECT_EQ(decode_without_alloc(message_field(5, idprom)), VESK_NO_MEMORY) << "bytes";
    EXPECT_EQ(decode_without_alloc(message_field(5, idprom), VESK_BYTES_BY_REFERENCE), VESK_OK) << "bytes by reference";
    const Bytes list = message_field(8, Bytes{});
    vesk_resp_inv_data response;
    EXPECT_EQ(vesk_resp_inv_data_decode_ext(&response, list.data(), list.size(), nullptr, nullptr, 0), VESK_NO_MEMORY);
}

TEST(null_alloc, fields_before_the_failing_one_are_kept) {
    const Bytes input = message(number_field(3, 300), text_field(1, "x"));
    vesk_scratch_eeprom scratch;
    EXPECT_EQ(vesk_scratch_eeprom_decode_ext(&scratch, input.data(), input.size(), nullptr, nullptr, 0),
              VESK_NO_MEMORY);
    EXPECT_EQ(scratch.f3, 300u);
    EXPECT_EQ(scratch.present[0], 1 << VESK_SCRATCH_EEPROM_F3);
}

// Hands the ledger's blocks out under a context of its own, and counts the calls that came with another one.
struct ContextCheck {
    Ledger ledger;
    const void* expected = nullptr;
    int calls = 0;
    int wrong = 0;

    static ContextCheck* current;
    void note(const void* context) {
        ++calls;
        wrong += context != expected;
    }
    static void* alloc(std::uint64_t size, void* context) {
        current->note(context);
        return Ledger::alloc(size, &current->ledger);
    }
    static void release(void* block, void* context) {
        current->note(context);
        Ledger::release(block, &current->ledger);
    }
};
ContextCheck* ContextCheck::current = nullptr;

TEST(context, is_passed_unchanged_to_every_callback) {
    const Bytes input = every_kind();
    for (void* context : {static_cast<void*>(nullptr), static_cast<void*>(unreadable<int>())}) {
        ContextCheck check;
        ContextCheck::current = &check;
        check.expected = context;
        vesk_resp_inv_data first;
        vesk_resp_inv_data second;
        EXPECT_EQ(vesk_resp_inv_data_decode_ext(&first, input.data(), input.size(), check.alloc, context, 0), VESK_OK);
        EXPECT_EQ(vesk_resp_inv_data_duplicate(&second, &first, check.alloc, context), VESK_OK);
        vesk_resp_inv_data_free_ext(&first, check.release, context, 0);
        vesk_resp_inv_data_free_ext(&second, check.release, context, 0);
        EXPECT_EQ(check.calls, 20);  // five blocks, in two messages, had and given back
        EXPECT_EQ(check.wrong, 0);
        ContextCheck::current = nullptr;
    }
}

}  // namespace
}  // namespace vesk::test
