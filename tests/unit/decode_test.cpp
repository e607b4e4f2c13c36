// How each kind of field is read, which error wins where several apply, and what stays in the message after an error.
#include "runtime/decode.hpp"

#include <gtest/gtest.h>

#include "tests/support/messages.hpp"

namespace vesk::test {
namespace {

constexpr std::uint32_t by_reference = VESK_BYTES_BY_REFERENCE;

// A length of three bytes with two behind it.
const Bytes reaching_past_the_end = hex("03 61 62");

std::vector<std::uint64_t> sizes_asked(const Ledger& ledger) {
    std::vector<std::uint64_t> sizes;
    for (const Request& request : ledger.history()) {
        if (request.what == Request::What::alloc) sizes.push_back(request.size);
    }
    return sizes;
}
using Sizes = std::vector<std::uint64_t>;

// A decode that can be told which allocation fails.
template <class T>
struct Attempt {
    explicit Attempt(Bytes input, std::uint64_t failing_request = 0, std::uint32_t flags = 0)
        : input(std::move(input)), flags(flags), message(filled_with<T>(0x5A)) {
        if (failing_request != 0) ledger.fail_request(failing_request);
        code = Api<T>::decode(&message, this->input.data(), this->input.size(), Ledger::alloc, &ledger, flags);
    }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
    ~Attempt() { Api<T>::free(&message, Ledger::release, &ledger, flags); }
    const T* operator->() const { return &message; }

    Bytes input;
    std::uint32_t flags;
    Ledger ledger;
    T message;
    std::int32_t code;
};

// ---- The message as a whole ----------------------------------------------------------------------------------------

void expect_cleared(const vesk_entity_common_data& common) {
    EXPECT_TRUE(has_no_presence(common));
    EXPECT_TRUE(has_no_presence(common.eid));
    EXPECT_TRUE(has_no_presence(common.oper_status));
    EXPECT_TRUE(has_no_presence(common.power_producer));
    EXPECT_EQ(common.eid.f1, 0u);
    EXPECT_EQ(common.eid.f5, 0u);
    EXPECT_EQ(common.eid.element_list, nullptr);
    EXPECT_EQ(common.eid.element_list_count, 0u);
    EXPECT_EQ(common.f2, nullptr);
    EXPECT_EQ(common.f4, 0u);
    EXPECT_EQ(common.f6, 0);
    EXPECT_EQ(common.oper_status.f5, 0u);
    EXPECT_EQ(common.power_producer.f3, 0u);
    EXPECT_EQ(common.f20, 0u);
}

TEST(decode_message, empty_input_leaves_a_cleared_message) {
    const Decoded<vesk_entity_common_data> common(Bytes{});
    EXPECT_EQ(common.code, VESK_OK);
    expect_cleared(common.message);
    const Decoded<vesk_scratch_eeprom> scratch(Bytes{});
    EXPECT_EQ(scratch.code, VESK_OK);
    EXPECT_EQ(scratch->f2, nullptr);
    EXPECT_EQ(scratch->f2_length, 0u);
    EXPECT_TRUE(has_no_presence(scratch.message));
}

TEST(decode_message, null_buffer_of_length_0_is_an_empty_input) {
    vesk_entity_common_data common = filled_with<vesk_entity_common_data>(0x5A);
    EXPECT_EQ(vesk_entity_common_data_decode_ext(&common, nullptr, 0, nullptr, nullptr, 0), VESK_OK);
    expect_cleared(common);
}

// Numbers and tags of one byte and of two come before the error that ends the decoding.
TEST(decode_message, input_ends_at_the_last_address_whatever_its_length_is) {
    const Bytes input = message(number_field(11, 300), number_field(16, 1), number_field(20, 1), hex("2B"));
    const std::uint64_t to_last_address = UINTPTR_MAX - reinterpret_cast<std::uintptr_t>(input.data());
    for (const std::uint64_t length : {to_last_address + 1, to_last_address + 2, UINT64_MAX}) {
        vesk_entity_common_data common;
        EXPECT_EQ(vesk_entity_common_data_decode_ext(&common, input.data(), length, nullptr, nullptr, 0),
                  VESK_WRONG_WIRE_TYPE);
        EXPECT_EQ(common.f11, 300u);
        EXPECT_EQ(common.f20, 1u);
    }
}

TEST(decode_message, empty_input_may_lie_at_the_last_address) {
    vesk_entity_common_data common = filled_with<vesk_entity_common_data>(0x5A);
    const void* const last_address = reinterpret_cast<const void*>(UINTPTR_MAX);
    EXPECT_EQ(vesk_entity_common_data_decode_ext(&common, last_address, 0, nullptr, nullptr, 0), VESK_OK);
    expect_cleared(common);
}

TEST(decode_message, content_past_the_last_address_is_past_the_end) {
    const Bytes input = message(tag(2, length_type), varint(UINT32_MAX));
    Ledger ledger;
    ledger.fail_from_now_on();
    vesk_entity_common_data common;
    EXPECT_EQ(vesk_entity_common_data_decode_ext(&common, input.data(), UINT64_MAX, Ledger::alloc, &ledger, 0),
              sizeof(void*) == 4 ? VESK_MALFORMED : VESK_NO_MEMORY);  // 64 bits of address are more than a length has
}

TEST(decode_message, is_cleared_before_the_first_error_too) {
    const Decoded<vesk_entity_common_data> common(hex("80"));
    EXPECT_EQ(common.code, VESK_MALFORMED);
    expect_cleared(common.message);
}

TEST(decode_message, nested_imported_structure_that_is_absent_is_cleared) {
    const Decoded<vesk_req_inv_data> request(number_field(1, 1));
    EXPECT_EQ(request->eid.f1, 0u);
    EXPECT_EQ(request->eid.element_list, nullptr);
    EXPECT_TRUE(has_no_presence(request->eid));
}

TEST(decode_message, fields_may_come_in_any_order) {
    const Decoded<vesk_scratch_eeprom> scratch(message(text_field(4, "b"), number_field(3, 1), text_field(1, "a")));
    EXPECT_EQ(scratch.code, VESK_OK);
    EXPECT_STREQ(scratch->f1, "a");
    EXPECT_STREQ(scratch->f4, "b");
}

TEST(decode_message, every_truncation_is_an_error_or_a_shorter_message_and_leaks_nothing) {
    const Bytes eeprom = message(message_field(1, message_field(6, number_field(1, 7))), text_field(4, "serial"),
                                 bytes_field(20, hex("01 02")), number_field(30, 300));
    const Bytes idprom =
        message(message_field(1, text_field(2, "north")), message_field(3, eeprom), text_field(4, "id"));
    const Bytes number = number_field(1, 300);
    const Bytes element = message_field(7, idprom);
    const Bytes input = message(number, element, element);
    for (std::size_t length = 0; length < input.size(); ++length) {
        const Attempt<vesk_resp_inv_data> response(Bytes(input.begin(), input.begin() + static_cast<long>(length)));
        const bool between_fields = length == 0 || length == number.size() || length == number.size() + element.size();
        EXPECT_EQ(response.code, between_fields ? VESK_OK : VESK_MALFORMED) << "length " << length;
    }
}

// ---- Tags ----------------------------------------------------------------------------------------------------------

TEST(decode_tag, over_long_one_is_accepted) {
    const Decoded<vesk_scratch_eeprom> scratch(message(over_long(3 << 3, 7), varint(5)));
    EXPECT_EQ(scratch.code, VESK_OK);
    EXPECT_EQ(scratch->f3, 5u);
}

TEST(decode_tag, only_its_low_32_bits_count) {
    const Decoded<vesk_scratch_eeprom> scratch(message(varint((std::uint64_t{5} << 32) + (3 << 3)), varint(5)));
    EXPECT_EQ(scratch.code, VESK_OK);
    EXPECT_EQ(scratch->f3, 5u);
    EXPECT_EQ(scratch->present[0], 1 << VESK_SCRATCH_EEPROM_F3);
}

TEST(decode_tag, cut_short_is_malformed) {
    EXPECT_EQ(decode_code<vesk_scratch_eeprom>(hex("98")), VESK_MALFORMED);
    EXPECT_EQ(decode_code<vesk_scratch_eeprom>(hex("18 07 98 80 80")), VESK_MALFORMED);
}

TEST(decode_tag, every_other_wire_type_of_a_known_field_is_refused) {
    struct Row {
        const char* kind;
        std::uint32_t number;
        std::uint32_t right;
    };
    for (const Row& row : std::initializer_list<Row>{{"string", 2, length_type},
                                                     {"uint32", 4, varint_type},
                                                     {"bool", 6, varint_type},
                                                     {"imported message", 1, length_type},
                                                     {"message", 9, length_type},
                                                     {"uint64", 20, varint_type}}) {
        for (std::uint32_t wire_type = 0; wire_type < 8; ++wire_type) {
            if (wire_type == row.right) continue;
            const Attempt<vesk_entity_common_data> common(message(tag(row.number, wire_type), hex("00")));
            EXPECT_EQ(common.code, VESK_WRONG_WIRE_TYPE) << row.kind << " with wire type " << wire_type;
            EXPECT_TRUE(has_no_presence(common.message));
            EXPECT_EQ(common.ledger.requests_made(), 0u);
        }
    }
    for (std::uint32_t wire_type : {0u, 1u, 3u, 4u, 5u, 6u, 7u}) {
        EXPECT_EQ(decode_code<vesk_scratch_eeprom>(message(tag(2, wire_type), hex("00"))), VESK_WRONG_WIRE_TYPE);
        EXPECT_EQ(decode_code<vesk_resp_inv_data>(message(tag(8, wire_type), hex("00"))), VESK_WRONG_WIRE_TYPE);
    }
}

TEST(decode_tag, wrong_wire_type_wins_over_everything_behind_the_tag) {
    EXPECT_EQ(decode_code<vesk_scratch_eeprom>(tag(3, length_type)), VESK_WRONG_WIRE_TYPE) << "nothing behind it";
    EXPECT_EQ(decode_code<vesk_scratch_eeprom>(message(text_field(1, "a"), tag(1, varint_type))), VESK_WRONG_WIRE_TYPE)
        << "second occurrence";
    vesk_scratch_eeprom scratch;
    const Bytes input = number_field(1, 5);
    EXPECT_EQ(vesk_scratch_eeprom_decode_ext(&scratch, input.data(), input.size(), nullptr, nullptr, 0),
              VESK_WRONG_WIRE_TYPE)
        << "null callback";
}

// ---- Unknown fields ------------------------------------------------------------------------------------------------

TEST(unknown_field, is_stepped_over_by_its_wire_type) {
    for (const Bytes& unknown :
         {number_field(9, 300), message(tag(9, varint_type), over_long(1, 12)),
          message(tag(9, fixed64_type), hex("01 02 03 04 05 06 07 08")), text_field(9, "skipped"),
          message(tag(9, fixed32_type), hex("01 02 03 04")), number_field(0, 1), text_field(0, "x"),
          number_field(0x1FFFFFFF, 1), number_field(35, 1), number_field(16, 1)}) {
        const Decoded<vesk_scratch_eeprom> scratch(message(number_field(3, 1), unknown, text_field(4, "x")));
        EXPECT_EQ(scratch.code, VESK_OK) << to_hex(unknown);
        EXPECT_STREQ(scratch->f4, "x") << to_hex(unknown);
        EXPECT_EQ(scratch->present[0], 1 << VESK_SCRATCH_EEPROM_F3 | 1 << VESK_SCRATCH_EEPROM_F4);
    }
}

TEST(unknown_field, gap_in_the_numbers_is_unknown) {
    const Decoded<vesk_threshold_data> threshold(message(text_field(2, "x"), number_field(3, 5)));
    EXPECT_EQ(threshold.code, VESK_OK);
    EXPECT_EQ(threshold->f3, 5u);
    EXPECT_EQ(threshold->present[0], 1 << VESK_THRESHOLD_DATA_F3);
}

TEST(unknown_field, cut_short_at_the_end_is_no_error) {
    for (const Bytes& unknown :
         {tag(9, fixed64_type), message(tag(9, fixed64_type), hex("01 02 03 04 05 06 07")), tag(9, fixed32_type),
          message(tag(9, fixed32_type), hex("01 02")), message(tag(9, length_type), reaching_past_the_end),
          message(tag(9, length_type), hex("FF FF FF FF 0F"))}) {
        const Decoded<vesk_scratch_eeprom> scratch(message(number_field(3, 5), unknown));
        EXPECT_EQ(scratch.code, VESK_OK) << to_hex(unknown);
        EXPECT_EQ(scratch->f3, 5u);
    }
}

TEST(unknown_field, varint_cut_short_is_malformed) {
    EXPECT_EQ(decode_code<vesk_scratch_eeprom>(tag(9, varint_type)), VESK_MALFORMED);
    EXPECT_EQ(decode_code<vesk_scratch_eeprom>(message(tag(9, varint_type), hex("80 80"))), VESK_MALFORMED);
    EXPECT_EQ(decode_code<vesk_scratch_eeprom>(tag(9, length_type)), VESK_MALFORMED);
    EXPECT_EQ(decode_code<vesk_scratch_eeprom>(message(tag(9, length_type), hex("80"))), VESK_MALFORMED);
}

TEST(unknown_field, other_wire_types_are_refused) {
    for (std::uint32_t wire_type : {3u, 4u, 6u, 7u}) {
        const Decoded<vesk_scratch_eeprom> scratch(message(number_field(3, 5), tag(9, wire_type)));
        EXPECT_EQ(scratch.code, VESK_UNKNOWN_WIRE_TYPE);
        EXPECT_EQ(scratch->f3, 5u);
    }
}

TEST(unknown_field, cut_short_in_a_nested_message_ends_only_that_message) {
    const Bytes policy = message(number_field(3, 5), tag(9, fixed64_type), hex("01"));
    const Decoded<vesk_req_inv_data> request(message(message_field(6, policy), number_field(4, 8)));
    EXPECT_EQ(request.code, VESK_OK);
    EXPECT_EQ(request->policy.f3, 5u);
    EXPECT_EQ(request->f4, 8u);
}

// ---- Numbers and flags ---------------------------------------------------------------------------------------------

TEST(decode_uint32, value_is_stored_and_its_bit_set) {
    const Decoded<vesk_entity_admin_status_data> status(hex("08 96 01"));
    EXPECT_EQ(status.code, VESK_OK);
    EXPECT_EQ(status->f1, 150u);
    EXPECT_EQ(status->present[0], 0x01);
}

TEST(decode_uint32, low_32_bits_of_a_wider_value_are_kept) {
    for (const Bytes& value : {varint(~std::uint64_t{0}), over_long(0xFFFFFFFF, 12), hex("FF FF FF FF 7F")}) {
        const Decoded<vesk_scratch_eeprom> scratch(message(tag(3, varint_type), value));
        EXPECT_EQ(scratch.code, VESK_OK);
        EXPECT_EQ(scratch->f3, 0xFFFFFFFF);
    }
}

TEST(decode_uint32, later_occurrence_overwrites) {
    const Decoded<vesk_scratch_eeprom> scratch(message(number_field(3, 5), text_field(1, "x"), number_field(3, 0)));
    EXPECT_EQ(scratch.code, VESK_OK);
    EXPECT_EQ(scratch->f3, 0u);
    EXPECT_EQ(scratch->present[0], 1 << VESK_SCRATCH_EEPROM_F1 | 1 << VESK_SCRATCH_EEPROM_F3);
}

TEST(decode_uint32, cut_short_is_malformed_and_marks_nothing) {
    const Decoded<vesk_scratch_eeprom> scratch(message(tag(3, varint_type), hex("FF FF")));
    EXPECT_EQ(scratch.code, VESK_MALFORMED);
    EXPECT_TRUE(has_no_presence(scratch.message));
}

TEST(decode_uint32, later_occurrence_cut_short_keeps_value_and_bit) {
    const Decoded<vesk_scratch_eeprom> scratch(message(number_field(3, 5), tag(3, varint_type), hex("FF")));
    EXPECT_EQ(scratch.code, VESK_MALFORMED);
    EXPECT_EQ(scratch->f3, 5u);
    EXPECT_EQ(scratch->present[0], 1 << VESK_SCRATCH_EEPROM_F3);
}

TEST(decode_uint64, all_64_bits_are_stored) {
    for (unsigned bit = 0; bit < 64; ++bit) {
        const Decoded<vesk_entity_common_data> common(number_field(20, std::uint64_t{1} << bit));
        EXPECT_EQ(common->f20, std::uint64_t{1} << bit);
        EXPECT_TRUE(VESK_HAS(&common.message, VESK_ENTITY_COMMON_DATA_F20));
    }
    EXPECT_EQ(Decoded<vesk_entity_common_data>(message(tag(20, varint_type), over_long(7, 15)))->f20, 7u);
}

TEST(decode_uint64, later_occurrence_overwrites) {
    const Decoded<vesk_entity_common_data> common(message(number_field(20, ~std::uint64_t{0}), number_field(20, 1)));
    EXPECT_EQ(common.code, VESK_OK);
    EXPECT_EQ(common->f20, 1u);
}

TEST(decode_uint64, cut_short_is_malformed_and_marks_nothing) {
    const Decoded<vesk_entity_common_data> common(message(tag(20, varint_type), hex("FF FF FF FF FF FF FF FF FF")));
    EXPECT_EQ(common.code, VESK_MALFORMED);
    EXPECT_EQ(common->f20, 0u);
    EXPECT_TRUE(has_no_presence(common.message));
}

TEST(decode_bool, any_value_but_0_is_stored_as_1) {
    for (std::uint64_t value : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{2}, std::uint64_t{0x80},
                                std::uint64_t{0x100}, std::uint64_t{0x80000000}, ~std::uint64_t{0}}) {
        const Decoded<vesk_entity_common_data> common(number_field(6, value));
        EXPECT_EQ(common.code, VESK_OK);
        EXPECT_EQ(common->f6, value != 0 ? 1 : 0) << value;
        EXPECT_TRUE(VESK_HAS(&common.message, VESK_ENTITY_COMMON_DATA_F6));
    }
}

TEST(decode_bool, only_the_low_32_bits_count) {
    EXPECT_EQ(Decoded<vesk_entity_common_data>(number_field(6, std::uint64_t{1} << 32))->f6, 0);
}

TEST(decode_bool, later_occurrence_overwrites) {
    const Decoded<vesk_entity_common_data> common(message(number_field(6, 1), number_field(6, 0)));
    EXPECT_EQ(common->f6, 0);
    EXPECT_TRUE(VESK_HAS(&common.message, VESK_ENTITY_COMMON_DATA_F6));
}

// ---- Strings -------------------------------------------------------------------------------------------------------

TEST(decode_string, one_byte_more_than_its_length_is_allocated_and_terminated) {
    const Attempt<vesk_scratch_eeprom> scratch(message(text_field(1, "north"), text_field(4, "")));
    ASSERT_EQ(scratch.code, VESK_OK);
    EXPECT_EQ(sizes_asked(scratch.ledger), (Sizes{6, 1}));
    EXPECT_STREQ(scratch->f1, "north");
    EXPECT_STREQ(scratch->f4, "");
    EXPECT_EQ(scratch->present[0], 1 << VESK_SCRATCH_EEPROM_F1 | 1 << VESK_SCRATCH_EEPROM_F4);
}

TEST(decode_string, embedded_nul_is_copied_as_it_stands) {
    const Attempt<vesk_scratch_eeprom> scratch(text_field(1, std::string_view("a\0b", 3)));
    ASSERT_EQ(scratch.code, VESK_OK);
    EXPECT_EQ(sizes_asked(scratch.ledger), Sizes{4});
    EXPECT_EQ(std::string_view(scratch->f1, 4), std::string_view("a\0b\0", 4));
}

TEST(decode_string, over_long_length_is_accepted) {
    const Attempt<vesk_scratch_eeprom> scratch(message(tag(1, length_type), over_long(2, 11), hex("61 62")));
    ASSERT_EQ(scratch.code, VESK_OK);
    EXPECT_STREQ(scratch->f1, "ab");
}

TEST(decode_string, may_end_with_the_input_but_not_behind_it) {
    EXPECT_EQ(decode_code<vesk_scratch_eeprom>(hex("0A 03 61 62 63")), VESK_OK);
    for (const char* content : {"0A", "0A 80", "0A 01", "0A 03 61 62", "0A FF FF FF FF 0F 61"}) {
        const Attempt<vesk_scratch_eeprom> scratch(hex(content));
        EXPECT_EQ(scratch.code, VESK_MALFORMED) << content;
        EXPECT_EQ(scratch.ledger.requests_made(), 0u) << content;
        EXPECT_EQ(scratch->f1, nullptr) << content;
        EXPECT_TRUE(has_no_presence(scratch.message)) << content;
    }
}

TEST(decode_string, is_copied_in_spite_of_bytes_by_reference) {
    const Attempt<vesk_scratch_eeprom> scratch(text_field(1, "abc"), 0, by_reference);
    EXPECT_EQ(sizes_asked(scratch.ledger), Sizes{4});
    EXPECT_TRUE(scratch.ledger.owns(scratch->f1));
}

TEST(decode_string, second_occurrence_is_refused_and_the_first_stays) {
    const Attempt<vesk_scratch_eeprom> scratch(message(text_field(1, "a"), number_field(3, 1), text_field(1, "b")));
    EXPECT_EQ(scratch.code, VESK_MALFORMED);
    EXPECT_STREQ(scratch->f1, "a");
    EXPECT_EQ(sizes_asked(scratch.ledger), Sizes{2});
    EXPECT_EQ(scratch->present[0], 1 << VESK_SCRATCH_EEPROM_F1 | 1 << VESK_SCRATCH_EEPROM_F3);
}

TEST(decode_string, empty_first_occurrence_counts_as_one) {
    EXPECT_EQ(decode_code<vesk_scratch_eeprom>(message(text_field(1, ""), text_field(1, ""))), VESK_MALFORMED);
}

TEST(decode_string, failed_allocation_leaves_member_null_and_bit_clear) {
    const Attempt<vesk_scratch_eeprom> scratch(message(text_field(1, "a"), number_field(3, 7), text_field(4, "b")), 2);
    EXPECT_EQ(scratch.code, VESK_NO_MEMORY);
    EXPECT_STREQ(scratch->f1, "a");
    EXPECT_EQ(scratch->f3, 7u);
    EXPECT_EQ(scratch->f4, nullptr);
    EXPECT_EQ(scratch->present[0], 1 << VESK_SCRATCH_EEPROM_F1 | 1 << VESK_SCRATCH_EEPROM_F3);
}

// Each row has two faults or more; the code is that of the check that comes first.
TEST(decode_string, order_of_its_checks) {
    struct Row {
        const char* name;
        bool holds_one;
        bool has_alloc;
        bool alloc_fails;
        const char* input;
        std::int32_t code;
        std::uint64_t requests;
    };
    for (const Row& row : std::initializer_list<Row>{
             {"second occurrence before null callback", true, false, false, "01 61", VESK_MALFORMED, 0},
             {"second occurrence before its length", true, true, true, "01 61", VESK_MALFORMED, 0},
             {"null callback before a length cut short", false, false, false, "80", VESK_NO_MEMORY, 0},
             {"null callback before a length past the end", false, false, false, "02 61", VESK_NO_MEMORY, 0},
             {"null callback before an empty rest", false, false, false, "", VESK_NO_MEMORY, 0},
             {"length cut short before failing callback", false, true, true, "80", VESK_MALFORMED, 0},
             {"length past the end before failing callback", false, true, true, "02 61", VESK_MALFORMED, 0},
             {"failing callback", false, true, true, "01 61", VESK_NO_MEMORY, 1},
         }) {
        Ledger ledger;
        if (row.alloc_fails) ledger.fail_from_now_on();
        char first[] = "a";
        char* member = row.holds_one ? first : nullptr;
        const Bytes input = hex(row.input);
        const std::uint8_t* const end = input.data() + input.size();
        const Allocator allocator{row.has_alloc ? Ledger::alloc : nullptr, &ledger};
        Source source{input_between(input.data(), end), allocator, 0, VESK_OK};
        EXPECT_EQ(decode_string(&member, input.data(), end, source), nullptr) << row.name;
        EXPECT_EQ(source.code, row.code) << row.name;
        EXPECT_EQ(ledger.requests_made(), row.requests) << row.name;
        EXPECT_EQ(member, row.holds_one ? first : nullptr) << row.name;
    }
}

// ---- Bytes ---------------------------------------------------------------------------------------------------------

TEST(decode_bytes, exactly_their_length_is_allocated) {
    const Attempt<vesk_scratch_eeprom> scratch(bytes_field(2, hex("00 01 00")));
    ASSERT_EQ(scratch.code, VESK_OK);
    EXPECT_EQ(sizes_asked(scratch.ledger), Sizes{3});
    EXPECT_EQ(to_hex(Bytes(scratch->f2, scratch->f2 + scratch->f2_length)), "00 01 00");
    EXPECT_EQ(scratch->present[0], 1 << VESK_SCRATCH_EEPROM_F2);
}

TEST(decode_bytes, length_0_asks_for_0_bytes) {
    const Attempt<vesk_scratch_eeprom> scratch(bytes_field(2, {}));
    ASSERT_EQ(scratch.code, VESK_OK);
    EXPECT_EQ(sizes_asked(scratch.ledger), Sizes{0});
    EXPECT_TRUE(scratch.ledger.owns(scratch->f2));
    EXPECT_EQ(scratch->f2_length, 0u);
    EXPECT_EQ(scratch->present[0], 1 << VESK_SCRATCH_EEPROM_F2);
}

TEST(decode_bytes, null_for_0_bytes_is_a_failed_allocation) {
    const Attempt<vesk_scratch_eeprom> scratch(message(bytes_field(2, {}), number_field(3, 1)), 1);
    EXPECT_EQ(scratch.code, VESK_NO_MEMORY);
    EXPECT_TRUE(has_no_presence(scratch.message));
}

TEST(decode_bytes, failed_allocation_leaves_member_empty_and_bit_clear) {
    const Attempt<vesk_scratch_eeprom> scratch(message(number_field(3, 1), bytes_field(2, hex("01 02"))), 1);
    EXPECT_EQ(scratch.code, VESK_NO_MEMORY);
    EXPECT_EQ(scratch->f2, nullptr);
    EXPECT_EQ(scratch->f2_length, 0u);
    EXPECT_EQ(scratch->present[0], 1 << VESK_SCRATCH_EEPROM_F3);
}

TEST(decode_bytes, may_end_with_the_input_but_not_behind_it) {
    for (std::uint32_t flags : {0u, by_reference}) {
        EXPECT_EQ(decode_code<vesk_scratch_eeprom>(hex("12 03 61 62 63"), flags), VESK_OK);
        for (const char* content : {"12", "12 80", "12 01", "12 03 61 62", "12 FF FF FF FF 0F 61"}) {
            const Attempt<vesk_scratch_eeprom> scratch(hex(content), 0, flags);
            EXPECT_EQ(scratch.code, VESK_MALFORMED) << content;
            EXPECT_EQ(scratch.ledger.requests_made(), 0u) << content;
            EXPECT_EQ(scratch->f2, nullptr) << content;
            EXPECT_EQ(scratch->f2_length, 0u) << content;
            EXPECT_TRUE(has_no_presence(scratch.message)) << content;
        }
    }
}

TEST(decode_bytes, by_reference_asks_for_nothing) {
    const Attempt<vesk_scratch_eeprom> scratch(bytes_field(2, hex("01 02 03")), 0, by_reference);
    ASSERT_EQ(scratch.code, VESK_OK);
    EXPECT_EQ(scratch.ledger.requests_made(), 0u);
    EXPECT_EQ(scratch->f2, scratch.input.data() + 2);
    EXPECT_EQ(scratch->f2_length, 3u);
}

TEST(decode_bytes, by_reference_of_length_0_points_behind_its_length) {
    const Attempt<vesk_scratch_eeprom> scratch(message(bytes_field(2, {}), number_field(3, 1)), 0, by_reference);
    ASSERT_EQ(scratch.code, VESK_OK);
    EXPECT_EQ(scratch->f2, scratch.input.data() + 2);
    EXPECT_EQ(scratch->f2_length, 0u);
}

TEST(decode_bytes, by_reference_in_nested_messages_and_elements_points_into_the_outer_input) {
    const Bytes idprom = message_field(3, bytes_field(20, hex("01 02 03")));
    const Attempt<vesk_resp_inv_data> response(message_field(7, idprom), 0, by_reference);
    ASSERT_EQ(response.code, VESK_OK);
    EXPECT_EQ(sizes_asked(response.ledger), Sizes{sizeof(vesk_idprom_data)});
    EXPECT_EQ(response->idprom_list[0].eeprom.f20, response.input.data() + 7);
    EXPECT_EQ(response->idprom_list[0].eeprom.f20_length, 3u);
}

TEST(decode_bytes, second_occurrence_is_refused_also_after_an_empty_first) {
    for (std::uint32_t flags : {0u, by_reference}) {
        for (const Bytes& first : {hex("01 02"), Bytes{}}) {
            const Attempt<vesk_scratch_eeprom> scratch(message(bytes_field(2, first), bytes_field(2, hex("03"))), 0,
                                                       flags);
            EXPECT_EQ(scratch.code, VESK_MALFORMED);
            EXPECT_EQ(scratch->f2_length, first.size());
            EXPECT_EQ(scratch->present[0], 1 << VESK_SCRATCH_EEPROM_F2);
        }
    }
}

TEST(decode_bytes, order_of_their_checks) {
    struct Row {
        const char* name;
        bool holds_some;
        bool has_alloc;
        std::uint32_t flags;
        const char* input;
        std::int32_t code;
        std::uint64_t requests;
    };
    for (const Row& row : std::initializer_list<Row>{
             {"second occurrence before null callback", true, false, 0, "01 61", VESK_MALFORMED, 0},
             {"second occurrence by reference, null callback", true, false, by_reference, "01 61", VESK_MALFORMED, 0},
             {"second occurrence before failing callback", true, true, 0, "01 61", VESK_MALFORMED, 0},
             {"null callback before a length cut short", false, false, 0, "80", VESK_NO_MEMORY, 0},
             {"null callback before a length past the end", false, false, 0, "02 61", VESK_NO_MEMORY, 0},
             {"null callback by reference, length cut short", false, false, by_reference, "80", VESK_MALFORMED, 0},
             {"null callback by reference, length past the end", false, false, by_reference, "02 61", VESK_MALFORMED,
              0},
             {"null callback by reference", false, false, by_reference, "01 61", VESK_OK, 0},
             {"null callback by reference, reserved flags", false, false, 0xFFFFFFFF, "01 61", VESK_OK, 0},
             {"null callback, reserved flags alone", false, false, 0xFFFFFFFE, "01 61", VESK_NO_MEMORY, 0},
             {"length past the end before failing callback", false, true, 0, "02 61", VESK_MALFORMED, 0},
             {"failing callback", false, true, 0, "01 61", VESK_NO_MEMORY, 1},
             {"failing callback, nothing to copy", false, true, 0, "00", VESK_NO_MEMORY, 1},
         }) {
        Ledger ledger;
        ledger.fail_from_now_on();
        std::uint8_t first[] = {1, 2};
        std::uint8_t* data = row.holds_some ? first : nullptr;
        std::uint64_t length = row.holds_some ? 2 : 0;
        const Bytes input = hex(row.input);
        const std::uint8_t* const end = input.data() + input.size();
        const Allocator allocator{row.has_alloc ? Ledger::alloc : nullptr, &ledger};
        Source source{input_between(input.data(), end), allocator, row.flags, VESK_OK};
        EXPECT_EQ(decode_bytes(&data, &length, input.data(), end, source) != nullptr, row.code == VESK_OK) << row.name;
        EXPECT_EQ(source.code, row.code) << row.name;
        EXPECT_EQ(ledger.requests_made(), row.requests) << row.name;
        if (row.code != VESK_OK) {
            EXPECT_EQ(length, row.holds_some ? 2u : 0u) << row.name;
        }
    }
}

// ---- Nested messages -----------------------------------------------------------------------------------------------

TEST(decode_nested, empty_content_sets_the_bit) {
    const Decoded<vesk_req_inv_data> request(message(message_field(3, Bytes{}), message_field(6, Bytes{})));
    EXPECT_EQ(request.code, VESK_OK);
    EXPECT_EQ(request->present[0], 1 << VESK_REQ_INV_DATA_EID | 1 << VESK_REQ_INV_DATA_POLICY);
}

TEST(decode_nested, length_past_the_end_of_the_input_is_malformed) {
    for (std::uint32_t number : {3u, 6u}) {
        for (const char* content : {"", "80", "01", "03 18 07", "FF FF FF FF 0F"}) {
            const Decoded<vesk_req_inv_data> request(message(tag(number, length_type), hex(content)));
            EXPECT_EQ(request.code, VESK_MALFORMED) << content;
            EXPECT_TRUE(has_no_presence(request.message));
            EXPECT_TRUE(has_no_presence(request->policy));
        }
    }
}

TEST(decode_nested, sees_only_its_own_bytes) {
    // The nested number goes on behind the nested message, where the outer one has bytes enough.
    const Decoded<vesk_req_inv_data> request(message(tag(6, length_type), hex("02 18 87"), number_field(1, 1)));
    EXPECT_EQ(request.code, VESK_MALFORMED);
    const Decoded<vesk_req_inv_data> longer(message(tag(6, length_type), hex("03 0A 02 61"), number_field(1, 1)));
    EXPECT_EQ(longer.code, VESK_MALFORMED);
}

TEST(decode_nested, every_code_comes_back_unchanged) {
    struct Row {
        Bytes policy;
        std::uint64_t failing_request;
        std::int32_t code;
    };
    for (const Row& row : {Row{hex("18"), 0, VESK_MALFORMED}, Row{hex("4B"), 0, VESK_UNKNOWN_WIRE_TYPE},
                           Row{hex("1A 00"), 0, VESK_WRONG_WIRE_TYPE}, Row{text_field(2, "x"), 1, VESK_NO_MEMORY}}) {
        const Attempt<vesk_req_inv_data> request(message(number_field(1, 1), message_field(6, row.policy)),
                                                 row.failing_request);
        EXPECT_EQ(request.code, row.code);
        EXPECT_EQ(request->present[0], 1 << VESK_REQ_INV_DATA_F1) << "the bit of a field that is not complete is clear";
    }
}

TEST(decode_nested, every_code_comes_back_unchanged_through_two_levels) {
    EXPECT_EQ(decode_code<vesk_idprom_data>(message_field(1, message_field(9, hex("08")))), VESK_MALFORMED);
    EXPECT_EQ(decode_code<vesk_idprom_data>(message_field(1, message_field(9, hex("4C")))), VESK_UNKNOWN_WIRE_TYPE);
    EXPECT_EQ(decode_code<vesk_idprom_data>(message_field(3, message_field(1, hex("0A")))), VESK_WRONG_WIRE_TYPE);
    const Attempt<vesk_resp_inv_data_by_eid> response(message_field(5, message_field(3, text_field(4, "x"))), 1);
    EXPECT_EQ(response.code, VESK_NO_MEMORY);
}

TEST(decode_nested, what_was_read_before_an_error_inside_stays) {
    const Attempt<vesk_req_inv_data> request(
        message(number_field(1, 5), message_field(6, message(text_field(1, "a"), number_field(3, 7), hex("12 05")))));
    EXPECT_EQ(request.code, VESK_MALFORMED);
    EXPECT_EQ(request->present[0], 1 << VESK_REQ_INV_DATA_F1);
    EXPECT_STREQ(request->policy.f1, "a");
    EXPECT_EQ(request->policy.f3, 7u);
    EXPECT_EQ(request->policy.present[0], 1 << VESK_INV_POLICY_F1 | 1 << VESK_INV_POLICY_F3);
    EXPECT_EQ(request.ledger.blocks_out(), 1u);  // and comes back: the ledger checks
}

TEST(decode_nested, second_occurrence_replaces_the_first_and_loses_its_blocks) {
    Ledger ledger;
    const Bytes input = message(message_field(6, message(text_field(1, "first"), number_field(3, 7))),
                                message_field(6, text_field(2, "second")));
    vesk_req_inv_data request;
    ASSERT_EQ(vesk_req_inv_data_decode_ext(&request, input.data(), input.size(), Ledger::alloc, &ledger, 0), VESK_OK);
    EXPECT_EQ(request.policy.f1, nullptr);
    EXPECT_STREQ(request.policy.f2, "second");
    EXPECT_EQ(request.policy.f3, 0u);
    EXPECT_EQ(request.policy.present[0], 1 << VESK_INV_POLICY_F2);
    vesk_req_inv_data_free_ext(&request, Ledger::release, &ledger, 0);
    EXPECT_EQ(ledger.blocks_out(), 1u);
    EXPECT_EQ(ledger.history().back(), (Request{Request::What::release, 7}));
    ledger.forget();
}

TEST(decode_nested, second_occurrence_that_fails_leaves_its_own_content_and_the_first_ones_bit) {
    const Attempt<vesk_req_inv_data> request(
        message(message_field(6, number_field(3, 7)), message_field(6, message(text_field(1, "b"), hex("18")))));
    EXPECT_EQ(request.code, VESK_MALFORMED);
    EXPECT_EQ(request->policy.f3, 0u);
    EXPECT_STREQ(request->policy.f1, "b");
    EXPECT_EQ(request->present[0], 1 << VESK_REQ_INV_DATA_POLICY);
}

TEST(decode_nested, second_occurrence_past_the_end_leaves_the_first_alone) {
    const Attempt<vesk_req_inv_data> request(message(message_field(6, number_field(3, 7)), hex("32 01")));
    EXPECT_EQ(request.code, VESK_MALFORMED);
    EXPECT_EQ(request->policy.f3, 7u);
    EXPECT_EQ(request->present[0], 1 << VESK_REQ_INV_DATA_POLICY);
}

// ---- Allocations that fail -----------------------------------------------------------------------------------------

TEST(decode_message, each_allocation_failing_in_turn_is_reported_and_leaks_nothing) {
    const Bytes eeprom = message(message_field(1, message_field(6, number_field(1, 7))), text_field(4, "serial"),
                                 bytes_field(20, hex("01 02")));
    const Bytes idprom =
        message(message_field(1, text_field(2, "north")), message_field(3, eeprom), text_field(4, "id"));
    const Bytes input =
        message(message_field(7, idprom), message_field(7, Bytes{}), message_field(8, text_field(5, "x")));
    const Attempt<vesk_resp_inv_data> complete(input);
    ASSERT_EQ(complete.code, VESK_OK);
    const std::uint64_t requests = complete.ledger.requests_made();
    EXPECT_EQ(requests, 8u);
    for (std::uint64_t n = 1; n <= requests; ++n) {
        const Attempt<vesk_resp_inv_data> response(input, n);
        EXPECT_EQ(response.code, VESK_NO_MEMORY) << "request " << n;
        EXPECT_EQ(response.ledger.requests_made(), n) << "nothing is asked for after a failure";
        EXPECT_EQ(response.ledger.blocks_out(), n - 1);
    }
}

}  // namespace
}  // namespace vesk::test
