// The runtime's templates against the second implementation on messages with every kind, and the table that is made of
// a field list against the one that is written by hand.
#include <gtest/gtest.h>
#include <vesk/vesk_toolkit.h>

#include <cstring>
#include <utility>

#include "tests/foreign_kinds/decoded.hpp"
#include "tests/foreign_kinds/random_fields.hpp"
#include "tests/foreign_kinds/schema_library.hpp"
#include "tests/foreign_kinds/type_info.hpp"
#include "tests/support/damage.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

// As foreign_facts, but made of the field lists.
const vesk_type* made_facts(std::size_t place) {
    const vesk_type* const first = vesk_schema_all_types(nullptr);
    return place == 0 ? first : vesk_type_next(first);
}

TEST(foreign_facts, table_that_is_made_of_a_field_list_says_what_the_one_by_hand_says) {
    for (std::size_t place = 0; place < 2; ++place) {
        const vesk_type* const made = made_facts(place);
        const vesk_type* const by_hand = foreign_facts(place);
        EXPECT_STREQ(vesk_type_name(made), vesk_type_name(by_hand));
        EXPECT_EQ(made->structure_size, by_hand->structure_size);
        EXPECT_EQ(made->presence_offset, by_hand->presence_offset);
        EXPECT_EQ(made->alignment, by_hand->alignment);
        EXPECT_EQ(made->flags, by_hand->flags);
        ASSERT_EQ(made->field_count, by_hand->field_count);
        for (std::uint32_t bit = 0; bit < made->field_count; ++bit) {
            const vesk_field* const field = vesk_type_field(made, bit);
            const vesk_field* const same = vesk_type_field(by_hand, bit);
            SCOPED_TRACE(vesk_field_name(field));
            EXPECT_STREQ(vesk_field_name(field), vesk_field_name(same));
            EXPECT_EQ(field->tag, same->tag);
            EXPECT_EQ(field->kind, same->kind);
            EXPECT_EQ(field->offset, same->offset);
            EXPECT_EQ(field->size_offset, same->size_offset);
            EXPECT_EQ(field->presence_bit, same->presence_bit);
            EXPECT_EQ(vesk_type_field_numbered(made, vesk_field_number(field)), field);
            EXPECT_EQ(vesk_type_field_numbered(by_hand, vesk_field_number(field)), same);
        }
    }
}

// A message that the templates have decoded.
struct Made {
    explicit Made(Bytes bytes, std::uint32_t decode_flags) : flags(decode_flags), input(std::move(bytes)) {
        code = foreign_all_decode_ext(&message, input.data(), input.size(), Ledger::alloc, &ledger, flags);
    }
    ~Made() {
        foreign_all_free_ext(&message, Ledger::release, &ledger, flags);
        ledger.forget();
    }
    Made(const Made&) = delete;
    Made& operator=(const Made&) = delete;

    std::uint32_t flags;
    Bytes input;
    foreign_all message;
    Ledger ledger;
    std::int32_t code;
};

Bytes encoded_by_templates(const foreign_all& message) {
    Bytes bytes(foreign_all_encode_ext(&message, nullptr, 0, nullptr, nullptr, 0));
    foreign_all_encode_ext(&message, bytes.data(), bytes.size(), nullptr, nullptr, 0);
    return bytes;
}

void expect_same(const Bytes& input) {
    for (const std::uint32_t flags : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
        const Decoded expected(input, flags);
        const Made made(input, flags);
        ASSERT_EQ(made.code, expected.code) << to_hex(input);
        EXPECT_EQ(made.ledger.history(), expected.ledger.history()) << to_hex(input);
        EXPECT_EQ(std::memcmp(made.message.present, expected.message.present, sizeof made.message.present), 0)
            << to_hex(input);
        EXPECT_EQ(to_hex(encoded_by_templates(made.message)), to_hex(encoded(&expected.message))) << to_hex(input);
        vesk_report report;
        report.size = sizeof report;
        EXPECT_EQ(vesk_check(made_facts(0), input.data(), input.size(), flags, &report, nullptr), made.code)
            << to_hex(input);
        EXPECT_EQ(report.cost.blocks, made.ledger.requests_made()) << to_hex(input);

        Ledger copies;
        foreign_all copy;
        foreign_all same;
        const std::int32_t code = foreign_all_duplicate(&copy, &made.message, Ledger::alloc, &copies);
        EXPECT_EQ(code, interpreter::duplicate(foreign_table(0), &same, &expected.message, Ledger::alloc, &copies));
        EXPECT_EQ(to_hex(encoded_by_templates(copy)), to_hex(encoded(&same)));
        foreign_all_free_ext(&copy, Ledger::release, &copies, 0);
        foreign_all_free_ext(&same, Ledger::release, &copies, 0);
        EXPECT_EQ(copies.blocks_out(), 0u);
    }
}

TEST(foreign_templates, answer_as_the_second_implementation_on_random_and_damaged_bytes) {
    for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937_64 random(seed);
        const Bytes whole = encoded(RandomMessage(*foreign_infos()[0], seed, Amount::wild).get());
        expect_same(whole);
        expect_same(damage(whole, random));
        for (int round = 0; round < 5; ++round) expect_same(random_fields(foreign_facts(0), random));
        if (HasFailure()) return;
    }
}

TEST(foreign_templates, encode_in_segments_as_the_second_implementation) {
    for (std::uint64_t seed = 1; seed <= 200; ++seed) {
        const RandomMessage random(*foreign_infos()[0], seed, Amount::wild);
        const auto& message = *static_cast<const foreign_all*>(random.get());
        for (const std::uint64_t length : {0u, 5u, 50u, 2000u}) {
            for (const std::uint32_t flags : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
                Bytes buffer(length, 0xEE);
                Bytes same(length, 0xEE);
                std::vector<vesk_segment> segments(8);
                std::vector<vesk_segment> same_segments(8);
                std::uint32_t count = 8;
                std::uint32_t same_count = 8;
                const std::uint64_t result =
                    foreign_all_encode_ext(&message, buffer.data(), length, segments.data(), &count, flags);
                ASSERT_EQ(result, interpreter::encode(foreign_table(0), &message, same.data(), length,
                                                      same_segments.data(), &same_count, flags));
                EXPECT_EQ(count, same_count) << seed;
                EXPECT_EQ(to_hex(buffer), to_hex(same)) << seed << " " << length;
                for (std::uint32_t i = 0; i < count && i < 8; ++i)
                    EXPECT_EQ(segments[i].length, same_segments[i].length);
            }
        }
        if (HasFailure()) return;
    }
}

TEST(foreign_templates, decode_without_memory_as_the_second_implementation) {
    for (std::uint64_t seed = 1; seed <= 2000; ++seed) {
        std::mt19937_64 random(seed);
        const Bytes input = random_fields(foreign_facts(0), random);
        SCOPED_TRACE(to_hex(input));
        foreign_all message;
        foreign_all same;
        EXPECT_EQ(foreign_all_decode_ext(&message, input.data(), input.size(), nullptr, nullptr, 0),
                  interpreter::decode(foreign_table(0), &same, input.data(), input.size(), nullptr, nullptr, 0));
        EXPECT_EQ(to_hex(encoded_by_templates(message)), to_hex(encoded(&same)));
    }
}

TEST(foreign_templates, element_that_is_a_null_string_is_written_as_an_empty_one_and_copied_as_null) {
    char text[] = "x";
    char* texts[] = {nullptr, text};
    foreign_all message{};
    message.texts = texts;
    message.texts_count = 2;
    std::memset(message.present, 0xFF, sizeof message.present);
    const Bytes bytes = encoded_by_templates(message);
    EXPECT_EQ(to_hex(bytes), to_hex(encoded(&message)));
    EXPECT_STREQ(Made(bytes, 0).message.texts[0], "");

    Ledger ledger;
    foreign_all copy;
    EXPECT_EQ(foreign_all_duplicate(&copy, &message, Ledger::alloc, &ledger), VESK_OK);
    EXPECT_EQ(copy.texts[0], nullptr);
    EXPECT_STREQ(copy.texts[1], "x");
    foreign_all_free_ext(&copy, Ledger::release, &ledger, 0);
    EXPECT_EQ(ledger.blocks_out(), 0u);
}

void expect_same_at_each_failure(const Bytes& input) {
    const std::uint64_t requests = Made(input, 0).ledger.requests_made();
    ASSERT_GT(requests, 5u);
    for (std::uint64_t failing = 1; failing <= requests; ++failing) {
        Ledger ledger;
        Ledger same_ledger;
        foreign_all message;
        foreign_all same;
        ledger.fail_request(failing);
        same_ledger.fail_request(failing);
        EXPECT_EQ(foreign_all_decode_ext(&message, input.data(), input.size(), Ledger::alloc, &ledger, 0),
                  VESK_NO_MEMORY);
        EXPECT_EQ(
            interpreter::decode(foreign_table(0), &same, input.data(), input.size(), Ledger::alloc, &same_ledger, 0),
            VESK_NO_MEMORY);
        EXPECT_EQ(to_hex(encoded_by_templates(message)), to_hex(encoded(&same)));
        foreign_all_free_ext(&message, Ledger::release, &ledger, 0);
        interpreter::release(foreign_table(0), &same, Ledger::release, &same_ledger, 0);
        EXPECT_EQ(ledger.blocks_out(), 0u);

        const Made whole(input, 0);
        ledger.fail_never();
        same_ledger.fail_never();
        ledger.fail_request(failing);
        same_ledger.fail_request(failing);
        EXPECT_EQ(foreign_all_duplicate(&message, &whole.message, Ledger::alloc, &ledger),
                  interpreter::duplicate(foreign_table(0), &same, &whole.message, Ledger::alloc, &same_ledger));
        EXPECT_EQ(to_hex(encoded_by_templates(message)), to_hex(encoded(&same)));
        foreign_all_free_ext(&message, Ledger::release, &ledger, 0);
        interpreter::release(foreign_table(0), &same, Ledger::release, &same_ledger, 0);
        EXPECT_EQ(ledger.blocks_out(), 0u);
    }
}

TEST(foreign_templates, memory_that_fails_at_each_request_ends_decode_and_duplicate_alike) {
    for (std::uint64_t seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE(seed);
        expect_same_at_each_failure(encoded(RandomMessage(*foreign_infos()[0], seed, Amount::much).get()));
    }
}

}  // namespace
}  // namespace vesk::test
