// Every byte of any input belongs to exactly one span of the map, and the map stops where decode does.
#include "tools/vesk/spans.hpp"

#include <gtest/gtest.h>

#include "tests/support/damage.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/random_message.hpp"
#include "tools/vesk/pre_flight.hpp"

namespace vesk::test {
namespace {

using tool::Role;
using tool::Span;

std::int32_t decode_code(const TypeInfo& type, const Bytes& input) {
    Ledger ledger;
    Storage message(type);
    const std::int32_t code = type.decode(message.get(), input.data(), input.size(), Ledger::alloc, &ledger, 0);
    type.free(message.get(), Ledger::release, &ledger, 0);
    ledger.forget();
    return code;
}

// Covers each byte once and in order; the refused tag is a tag, nothing but what is beyond follows it, and nothing is
// beyond of what decodes.
void expect_map(const TypeInfo& type, const Bytes& input) {
    const vesk_type* const facts = vesk_type_named(type.name.c_str());
    const vesk_report report = tool::check(facts, input.data(), input.size());
    ASSERT_EQ(report.code, decode_code(type, input)) << to_hex(input);
    std::uint64_t at = 0;
    std::uint64_t unknown_bytes = 0;
    bool refused = false;
    bool beyond = false;
    tool::for_each_span(facts, input.data(), input.size(), report, [&](const Span& span) {
        ASSERT_EQ(span.from, at) << to_hex(input);
        ASSERT_GT(span.to, span.from) << to_hex(input);
        ASSERT_LE(span.to, input.size()) << to_hex(input);
        ASSERT_FALSE(beyond) << "a span after what is beyond: " << to_hex(input);
        ASSERT_EQ(refused, span.role == Role::beyond) << to_hex(input);
        beyond = refused;
        refused = report.code != VESK_OK && span.from == report.at;
        if (refused) {
            ASSERT_EQ(span.role, Role::tag) << to_hex(input);
            ASSERT_EQ(span.path, report.path) << to_hex(input);
        }
        if (span.role == Role::unknown) unknown_bytes += span.to - span.from;
        at = span.to;
    });
    EXPECT_EQ(at, input.size()) << to_hex(input);
    EXPECT_EQ(refused || beyond, report.code != VESK_OK) << to_hex(input);
    EXPECT_TRUE(report.code != VESK_OK || unknown_bytes == report.unknown_bytes) << to_hex(input);
}

TEST(map, of_random_messages_covers_each_byte_once) {
    for (const TypeInfo* type : all_types()) {
        SCOPED_TRACE(type->name);
        expect_map(*type, {});
        expect_map(*type, full_encoding(*type));
        for (std::uint64_t seed = 1; seed <= 10; ++seed) {
            expect_map(*type, encoded(*type, RandomMessage(*type, seed, Amount::much).get()));
        }
        if (::testing::Test::HasFailure()) return;
    }
}

TEST(map, of_damaged_input_covers_each_byte_once_and_stops_where_decode_does) {
    std::uint64_t seed = 0;
    for (const TypeInfo* type : all_types()) {
        for (int round = 0; round < 200; ++round) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(++seed));
            std::mt19937_64 random(seed);
            const Amount amount = round % 2 == 0 ? Amount::some : Amount::wild;
            expect_map(*type, damage(encoded(*type, RandomMessage(*type, seed, amount).get()), random));
            if (::testing::Test::HasFailure()) return;
        }
    }
}

TEST(map, of_a_message_cut_at_every_byte_covers_each_byte_once) {
    for (const TypeInfo* type : all_types()) {
        SCOPED_TRACE(type->name);
        const Bytes whole = encoded(*type, RandomMessage(*type, 9, Amount::some).get());
        for (std::size_t length = 0; length < whole.size(); ++length) {
            expect_map(*type, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        }
        if (::testing::Test::HasFailure()) return;
    }
}

TEST(map, of_bytes_at_random_covers_each_byte_once) {
    std::uint64_t seed = 0;
    for (const TypeInfo* type : all_types()) {
        std::mt19937_64 random(++seed);
        for (int round = 0; round < 100; ++round) {
            Bytes input(random() % 40);
            for (std::uint8_t& byte : input) byte = static_cast<std::uint8_t>(random() >> random() % 60);
            SCOPED_TRACE(type->name);
            expect_map(*type, input);
            if (::testing::Test::HasFailure()) return;
        }
    }
}

}  // namespace
}  // namespace vesk::test
