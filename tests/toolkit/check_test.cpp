// The pre-flight says what decode does: held against decode itself on random, damaged and hostile input, and the place
// of an error against inputs of which it is known.
#include <gtest/gtest.h>
#include <vesk/client_service.h>
#include <vesk/vesk_toolkit.h>

#include <algorithm>
#include <functional>

#include "tests/support/damage.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/guarded_memory.hpp"
#include "tests/support/ledger.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

vesk_report check(const std::string& type, const Bytes& input, std::uint32_t flags = 0) {
    vesk_report report;
    report.size = sizeof report;
    const std::int32_t code =
        vesk_check(vesk_type_named(type.c_str()), input.data(), input.size(), flags, &report, nullptr);
    EXPECT_EQ(code, report.code);
    return report;
}

// What a decode with memory without end comes to: its code, its requests, and what no message points to afterwards.
struct Real {
    std::int32_t code;
    vesk_cost cost{};
    std::uint64_t lost_bytes = 0;
    std::uint64_t lost_blocks = 0;

    Real(const TypeInfo& type, const Bytes& input, std::uint32_t flags) {
        Ledger ledger;
        Storage message(type);
        code = type.decode(message.get(), input.data(), input.size(), Ledger::alloc, &ledger, flags);
        for (const Request& request : ledger.history()) {
            cost.bytes += request.size;
            cost.blocks += 1;
            cost.largest = std::max(cost.largest, request.size);
        }
        ledger.clear_history();
        type.free(message.get(), Ledger::release, &ledger, flags);
        lost_bytes = cost.bytes;
        for (const Request& request : ledger.history()) lost_bytes -= request.size;
        lost_blocks = ledger.blocks_out();
        ledger.forget();
    }
};

// One buffer of the size that the report names suffices, whatever its alignment, and one byte less than the least does
// not.
void expect_arena_suffices(const TypeInfo& type, const Bytes& input, std::uint32_t flags, const vesk_report& report) {
    std::vector<unsigned char> memory(report.arena_size + 16);
    for (const std::size_t skip : {0u, 1u, 15u}) {
        vesk_arena arena;
        vesk_arena_of_buffer(&arena, memory.data() + skip, report.arena_size);
        Storage message(type);
        EXPECT_EQ(type.decode(message.get(), input.data(), input.size(), vesk_arena_alloc, &arena, flags), report.code);
        vesk_arena_close(&arena);
    }
}

void expect_same_as_decode(const TypeInfo& type, const Bytes& input) {
    for (const std::uint32_t flags : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
        const Real real(type, input, flags);
        const vesk_report report = check(type.name, input, flags);
        ASSERT_EQ(report.code, real.code) << to_hex(input);
        EXPECT_EQ(report.opaque, 0u);
        EXPECT_EQ(report.cost.bytes, real.cost.bytes) << to_hex(input);
        EXPECT_EQ(report.cost.blocks, real.cost.blocks) << to_hex(input);
        EXPECT_EQ(report.cost.largest, real.cost.largest) << to_hex(input);
        EXPECT_LE(report.at, input.size());
        EXPECT_EQ(report.lost_bytes, real.lost_bytes) << to_hex(input);
        EXPECT_EQ(report.lost_blocks, real.lost_blocks) << to_hex(input);
        if (real.code == VESK_OK) {
            EXPECT_EQ(report.at, input.size());
            EXPECT_STREQ(report.path, "");
        }
        expect_arena_suffices(type, input, flags, report);
    }
}

TEST(check, random_message_costs_what_decode_asks_for) {
    for (const TypeInfo* type : all_types()) {
        SCOPED_TRACE(type->name);
        expect_same_as_decode(*type, {});
        expect_same_as_decode(*type, full_encoding(*type));
        expect_same_as_decode(*type, full_encoding(*type, Contents::empty));
        for (std::uint64_t seed = 1; seed <= 20; ++seed) {
            expect_same_as_decode(*type, encoded(*type, RandomMessage(*type, seed, Amount::much).get()));
            if (::testing::Test::HasFailure()) return;
        }
    }
}

TEST(check, damaged_message_has_the_code_and_the_cost_of_decode) {
    std::vector<std::uint64_t> codes(5);
    std::uint64_t seed = 0;
    for (const TypeInfo* type : all_types()) {
        for (int round = 0; round < 200; ++round) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(++seed));
            std::mt19937_64 random(seed);
            const Bytes input = damage(
                encoded(*type, RandomMessage(*type, seed, round % 2 == 0 ? Amount::wild : Amount::much).get()), random);
            expect_same_as_decode(*type, input);
            ++codes[static_cast<std::size_t>(-check(type->name, input).code)];
            if (::testing::Test::HasFailure()) return;
        }
    }
    for (const std::int32_t code : {VESK_OK, VESK_MALFORMED, VESK_UNKNOWN_WIRE_TYPE, VESK_WRONG_WIRE_TYPE}) {
        EXPECT_GT(codes[static_cast<std::size_t>(-code)], 100u) << code;
    }
}

TEST(check, message_cut_at_every_byte_has_the_code_and_the_cost_of_decode) {
    for (const TypeInfo* type : all_types()) {
        SCOPED_TRACE(type->name);
        const Bytes whole = encoded(*type, RandomMessage(*type, 5, Amount::some).get());
        for (std::size_t length = 0; length < whole.size(); ++length) {
            expect_same_as_decode(*type, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
            if (::testing::Test::HasFailure()) return;
        }
    }
}

// Messages whose nested messages occur again and again, some of them inside others that do.
TEST(check, repeated_nested_messages_lose_what_decode_loses) {
    std::uint64_t lost = 0;
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t seed = 1; seed <= 20; ++seed) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(seed));
            Bytes input;
            for (const FieldInfo& field : type->fields) {
                if (field.kind != Kind::message) continue;
                for (std::uint64_t again = 0; again < 1 + seed % 3; ++again) {
                    const RandomMessage nested(*field.nested, seed * 7 + again, Amount::much);
                    Bytes content = field.nested->encode != nullptr ? encoded(*field.nested, nested.get())
                                                                    : hex("0805 3204 0801 1002");
                    if (field.nested->encode != nullptr && seed % 2 == 0) {
                        const Bytes twice = content;  // lists are refused, nested messages occur again
                        content.insert(content.end(), twice.begin(), twice.end());
                    }
                    const Bytes whole = message_field(field.number, content);
                    input.insert(input.end(), whole.begin(), whole.end());
                }
            }
            expect_same_as_decode(*type, input);
            lost += check(type->name, input).lost_blocks;
            if (::testing::Test::HasFailure()) return;
        }
    }
    EXPECT_GT(lost, 1000u);
}

TEST(check, length_beyond_the_last_address_is_cut_off_as_by_decode) {
    const Bytes input = message(number_field(1, 7), tag(2, length_type));
    // An end group: decoding stops at it, so nothing behind it is read.
    Bytes stopped = number_field(1, 7);
    stopped.push_back(0x7C);
    vesk_report report;
    report.size = sizeof report;
    EXPECT_EQ(vesk_check(vesk_type_named("req_admin_memory_data"), stopped.data(), UINT64_MAX, 0, &report, nullptr),
              VESK_UNKNOWN_WIRE_TYPE);
    EXPECT_EQ(report.at, 2u);
}

// Nobody has more memory, so nothing is read past the byte that ends it: no word either.
TEST(check, length_that_no_input_can_have_reads_nothing_past_the_error) {
    const Bytes stopped = message(number_field(1, 300), hex("7C"));
    const GuardedMemory memory(stopped.size());
    std::uint8_t* const input = memory.before_end(stopped.size());
    std::copy(stopped.begin(), stopped.end(), input);
    const vesk_type* const type = vesk_type_named("req_admin_memory_data");
    EXPECT_EQ(vesk_check(type, input, UINT64_MAX, 0, nullptr, nullptr), VESK_UNKNOWN_WIRE_TYPE);
}

TEST(check, input_of_no_bytes_may_be_null) {
    vesk_report report;
    report.size = sizeof report;
    EXPECT_EQ(vesk_check(vesk_type_named("pem_data"), nullptr, 0, 0, &report, nullptr), VESK_OK);
    EXPECT_EQ(report.arena_size, 0u);
    EXPECT_EQ(vesk_check(vesk_type_named("pem_data"), nullptr, 0, 0, nullptr, nullptr), VESK_OK);
}

TEST(check, unknown_fields_are_counted_with_their_tags) {
    const Bytes input = message(number_field(3, 1), number_field(60, 300), text_field(61, "abc"), hex("E503 01020304"));
    EXPECT_EQ(check("pem_data", input).unknown_bytes, 4u + 6u + 6u);
}

TEST(check, what_encode_writes_is_in_order) {
    for (const TypeInfo* type : all_types()) {
        SCOPED_TRACE(type->name);
        EXPECT_EQ(check(type->name, {}).in_order, 1u);
        EXPECT_EQ(check(type->name, full_encoding(*type)).in_order, 1u);
        for (std::uint64_t seed = 1; seed <= 20; ++seed) {
            EXPECT_EQ(check(type->name, encoded(*type, RandomMessage(*type, seed, Amount::much).get())).in_order, 1u);
        }
    }
}

TEST(check, unknown_fields_and_element_tags_of_other_wire_types_leave_the_order_as_it_is) {
    const Bytes unknown = number_field(60, 300);
    EXPECT_EQ(check("pem_data", message(unknown, number_field(3, 1), unknown, number_field(4, 1), unknown)).in_order,
              1u);
    EXPECT_EQ(check("resp_inv_data", message(message_field(11, {}), hex("58 02 1801 58 00"))).in_order, 1u);
}

TEST(check, field_that_occurs_again_or_too_late_is_not_in_order) {
    const Bytes swapped = message(number_field(4, 1), number_field(3, 1));
    EXPECT_EQ(check("pem_data", swapped).in_order, 0u);
    EXPECT_EQ(check("pem_data", message(number_field(3, 1), number_field(3, 1))).in_order, 0u);
    EXPECT_EQ(check("pem_data", message(number_field(3, 1), number_field(4, 1), number_field(3, 1))).in_order, 0u);
    EXPECT_EQ(check("pem_data", message(message_field(1, {}), message_field(1, {}))).in_order, 0u);
    EXPECT_EQ(check("resp_inv_data", message(message_field(11, {}), message_field(11, swapped))).in_order, 0u);
    const Bytes identifier = message(number_field(2, 1), number_field(1, 1));
    EXPECT_EQ(check("pem_data", message_field(1, message_field(1, identifier))).in_order, 0u);
}

TEST(check, field_that_occurs_again_behind_one_that_was_left_out_is_not_in_order) {
    const auto numbered = [](std::initializer_list<std::uint32_t> numbers) {
        Bytes input;
        for (const std::uint32_t number : numbers) input = message(input, number_field(number, 1));
        return input;
    };
    EXPECT_EQ(check("inv_db_base_entity_data", numbered({2, 6, 9, 17, 34})).in_order, 1u);
    for (const auto numbers : {std::initializer_list<std::uint32_t>{6, 6},
                               {2, 6, 6},
                               {2, 6, 9, 6},
                               {2, 6, 9, 8},
                               {6, 2},
                               {34, 34},
                               {33, 34, 17}}) {
        const Bytes input = numbered(numbers);
        SCOPED_TRACE(testing::PrintToString(input));
        EXPECT_EQ(check("inv_db_base_entity_data", input).in_order, 0u);
        expect_same_as_decode(*find_type("inv_db_base_entity_data"), input);
    }
    const Bytes text = message(number_field(2, 1), text_field(14, "ab"), text_field(14, "ab"));
    EXPECT_EQ(check("inv_db_base_entity_data", text).code, VESK_MALFORMED);
}

TEST(check, input_with_an_error_is_not_in_order) {
    EXPECT_EQ(check("pem_data", message(number_field(3, 1), hex("7C"))).in_order, 0u);
}

TEST(check, report_of_an_older_caller_is_filled_as_far_as_it_goes) {
    vesk_report report;
    std::memset(&report, 0x77, sizeof report);
    report.size = offsetof(vesk_report, cost);
    vesk_check(vesk_type_named("pem_data"), nullptr, 0, 0, &report, nullptr);
    EXPECT_EQ(report.size, offsetof(vesk_report, cost));
    EXPECT_STREQ(report.path, "");
    EXPECT_EQ(report.cost.bytes, 0x7777777777777777u);
}

struct Fault {
    const char* name;
    const char* type;
    Bytes input;
    std::int32_t code;
    std::uint64_t at;
    const char* path;
};

// A port_list of two: the second one's entity_common has a string that occurs again.
Bytes second_string() {
    const Bytes common = message(text_field(2, "ab"), text_field(3, "c"), text_field(2, "d"));
    return message(number_field(1, 5), message_field(16, number_field(3, 1)),
                   message_field(16, message(number_field(3, 2), message_field(1, common))));
}

TEST(check, error_is_named_by_the_place_of_its_tag_and_its_path) {
    const Fault faults[] = {
        {"a string again, deep inside", "resp_inv_data", second_string(), VESK_MALFORMED, 2 + 5 + 3 + 2 + 2 + 4 + 3,
         "port_list[1].entity_common.f2"},
        {"a wrong wire type", "pem_data", message(number_field(3, 1), text_field(4, "x")), VESK_WRONG_WIRE_TYPE, 2,
         "f4"},
        {"a scalar cut short", "pem_data", hex("18 01 20 80"), VESK_MALFORMED, 2, "f4"},
        {"a string cut short", "led_data", message(number_field(60, 1), hex("0A 02 12 05")), VESK_MALFORMED, 5,
         "entity_common.f2"},
        {"a nested message too long", "pem_data", hex("18 01 0A 05 00"), VESK_MALFORMED, 2, "entity_common"},
        {"an element's length too long", "resp_inv_data",
         message(message_field(11, {}), message_field(11, {}), hex("5A 05")), VESK_MALFORMED, 4, "pem_list[2]"},
        {"an element's length cut short", "resp_inv_data", message(message_field(11, {}), hex("5A 80")), VESK_MALFORMED,
         2, "pem_list[1]"},
        {"a list that begins again", "resp_inv_data",
         message(message_field(11, {}), number_field(1, 1), message_field(11, {})), VESK_MALFORMED, 4, "pem_list"},
        {"an unknown field that cannot be skipped", "resp_inv_data",
         message(message_field(11, message(number_field(3, 1), hex("7C")))), VESK_UNKNOWN_WIRE_TYPE, 4, "pem_list[0]"},
        {"the same at the top", "pem_data", message(number_field(3, 1), hex("7C")), VESK_UNKNOWN_WIRE_TYPE, 2, ""},
        {"a tag cut short", "pem_data", message(number_field(3, 1), hex("80")), VESK_MALFORMED, 2, ""},
        {"a tag cut short after an element", "resp_inv_data", message(message_field(11, {}), hex("80")), VESK_MALFORMED,
         2, ""},
        {"a tag cut short in a nested message", "pem_data", message(message_field(1, hex("20 01 80"))), VESK_MALFORMED,
         4, "entity_common"},
        {"an unknown varint cut short", "pem_data", message(number_field(3, 1), hex("E003 80")), VESK_MALFORMED, 2, ""},
        {"an identifier's member of a wrong wire type", "pem_data",
         message_field(1, message_field(1, hex("0801 1205"))), VESK_WRONG_WIRE_TYPE, 6, "entity_common.eid.f2"},
        {"an element of an identifier's list", "pem_data", message_field(1, message_field(1, hex("3202 1805 3205 08"))),
         VESK_MALFORMED, 8, "entity_common.eid.element_list[1]"},
    };
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.name);
        const vesk_report report = check(fault.type, fault.input);
        EXPECT_EQ(report.code, fault.code);
        EXPECT_EQ(report.at, fault.at);
        EXPECT_STREQ(report.path, fault.path);
        expect_same_as_decode(*find_type(fault.type), fault.input);
    }
}

// An element of another wire type counts in a run and is read as a length, as decode does.
TEST(check, element_of_another_wire_type_is_read_as_decode_reads_it) {
    expect_same_as_decode(*find_type("resp_inv_data"), message(message_field(11, {}), hex("58 02 1801 58 7F")));
    expect_same_as_decode(*find_type("resp_inv_data"), message(message_field(11, {}), hex("58 02 1801")));
}

// Eight bytes are looked at together; the end of the input may be nearer, or the end of the message.
TEST(check, varint_of_any_length_is_stepped_over_as_by_decode) {
    for (std::size_t length = 1; length <= 20; ++length) {
        Bytes varint(length, 0x80);
        varint.back() = 0x01;
        for (const std::size_t behind : {0u, 1u, 2u, 9u}) {
            Bytes input = message(tag(3, varint_type), varint);
            for (std::size_t i = 0; i < behind; ++i) input = message(input, hex("20 01"));
            expect_same_as_decode(*find_type("pem_data"), input);
            input.pop_back();
            expect_same_as_decode(*find_type("pem_data"), input);
            expect_same_as_decode(*find_type("resp_inv_data"), message(message_field(11, input), number_field(60, 1)));
        }
    }
}

// Types nested in one another, more of them than any message of the library has; the innermost has a string.
struct Nest {
    static constexpr std::uint32_t depth = 20;
    vesk_type types[depth]{};
    vesk_field fields[depth]{};
    std::uint16_t by_number[2] = {0, 1};
    char name[2] = "f";

    Nest() {
        const auto distance = [](const void* from, const void* to) {
            return static_cast<std::int32_t>(static_cast<const char*>(to) - static_cast<const char*>(from));
        };
        for (std::uint32_t i = 0; i < depth; ++i) {
            const bool last = i + 1 == depth;
            vesk_type& type = types[i];
            type.size = sizeof type;
            type.name_at = type.unit_at = distance(&type, name);
            type.fields_at = distance(&type, &fields[i]);
            type.by_number_at = distance(&type, by_number);
            type.structure_size = 16;
            type.presence_offset = type.alignment = 8;
            type.field_count = 1;
            type.field_size = sizeof(vesk_field);
            type.number_count = 2;
            vesk_field& field = fields[i];
            field.name_at = distance(&field, name);
            field.nested_at = last ? 0 : distance(&field, &types[i + 1]);
            field.tag = 1 << 3 | length_type;
            field.kind = last ? VESK_KIND_STRING : VESK_KIND_MESSAGE;
        }
    }
};

TEST(check, message_nested_deeper_than_any_of_the_library_is_looked_at_to_its_end) {
    const Nest nest;
    Bytes input = text_field(1, "inmost");
    for (std::uint32_t level = Nest::depth; level-- > 0;) {
        vesk_report report;
        report.size = sizeof report;
        EXPECT_EQ(vesk_check(&nest.types[level], input.data(), input.size(), 0, &report, nullptr), VESK_OK);
        EXPECT_EQ(report.cost.blocks, 1u) << level;
        EXPECT_EQ(report.cost.bytes, 7u);
        EXPECT_EQ(report.in_order, 1u);
        input = message_field(1, input);
    }
}

TEST(check, reads_nothing_outside_the_input_and_writes_nothing_into_it) {
    const GuardedMemory memory(16384);
    for (const TypeInfo* type : all_types()) {
        const vesk_type* const facts = vesk_type_named(type->name.c_str());
        const Bytes input = encoded(*type, RandomMessage(*type, 3, Amount::some).get());
        ASSERT_LE(input.size(), 16384u);
        for (std::size_t length = 0; length <= input.size(); ++length) {
            std::uint8_t* const bytes = memory.before_end(length);
            memory.allow_writing();
            std::memcpy(bytes, input.data(), length);
            memory.forbid_writing();
            announce_attempt("check", type->name, length);
            vesk_report report;
            report.size = sizeof report;
            EXPECT_LE(vesk_check(facts, bytes, length, 0, &report, nullptr), 0);
        }
        memory.allow_writing();
    }
}

}  // namespace
}  // namespace vesk::test
