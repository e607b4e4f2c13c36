// The right type, or one that reads the bytes exactly alike, is the first guess for nearly all random messages.
#include "tools/vesk/guess.hpp"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/random_message.hpp"
#include "tests/toolkit/every_field.hpp"
#include "tools/vesk/pre_flight.hpp"
#include "tools/vesk/spans.hpp"

namespace vesk::test {
namespace {

constexpr std::size_t least_length = 100;
constexpr std::size_t most_length = 20000;

// What a type makes of bytes, without its names: every span, its kind or value.
std::vector<std::string> reading(const vesk_type* type, const Bytes& input) {
    std::vector<std::string> spans;
    const vesk_report report = tool::check(type, input.data(), input.size());
    tool::for_each_span(type, input.data(), input.size(), report, [&](const tool::Span& span) {
        const bool is_value = span.role == tool::Role::value;
        const std::size_t kind = span.text.rfind(", ");
        const std::string_view text = is_value ? span.text : span.role == tool::Role::tag ? span.text.substr(kind) : "";
        spans.push_back(std::to_string(span.to) + " " + std::to_string(span.depth) + " " + tool::name_of(span.role) +
                        " " + std::string(text));
    });
    return spans;
}

// Where the right type stands, those that read the bytes exactly alike taken for the right one.
std::size_t rank_of(const TypeInfo& type, const Bytes& input) {
    const std::vector<std::string> right = reading(vesk_type_named(type.name.c_str()), input);
    const std::vector<tool::Guess> guesses = tool::guess(input.data(), input.size());
    const auto found = std::find_if(guesses.begin(), guesses.end(), [&](const tool::Guess& guess) {
        return vesk_type_name(guess.type) == type.name || reading(guess.type, input) == right;
    });
    return static_cast<std::size_t>(found - guesses.begin());
}

enum class Strings { as_they_are, readable };

// Letters instead of any bytes.
void make_readable(const TypeInfo& type, RandomMessage& message) {
    for_every_field(vesk_type_named(type.name.c_str()), message.get(), [](const FieldAt& at) {
        if (at.field->kind != VESK_KIND_STRING) return;
        for (char* text = at.get<char*>(); text != nullptr && *text != '\0'; ++text) {
            *text = static_cast<char>('a' + static_cast<unsigned char>(*text) % 26);
        }
    });
}

// Types with few fields seldom make 100 bytes; who tries often enough comes to some. Empty if none does.
Bytes long_message(const TypeInfo& type, std::uint64_t seed, Amount amount, Strings strings) {
    for (std::uint64_t attempt = 0; attempt < 400; ++attempt) {
        RandomMessage message(type, seed * 1000 + attempt, amount);
        if (strings == Strings::readable) make_readable(type, message);
        const Bytes bytes = encoded(type, message.get());
        if (bytes.size() >= least_length && bytes.size() <= most_length) return bytes;
    }
    return {};
}

void expect_good_guesses(Amount amount, Strings strings) {
    constexpr std::uint64_t rounds = 10;
    std::uint64_t types = 0;
    std::uint64_t tried = 0;
    std::uint64_t first = 0;
    std::string missed;
    for (const TypeInfo* type : all_types()) {
        std::uint64_t wrong = 0;
        std::uint64_t seed = 1;
        for (; seed <= rounds; ++seed) {
            const Bytes input = long_message(*type, seed, amount, strings);
            if (input.empty()) break;
            ++tried;
            const bool is_first = rank_of(*type, input) == 0;
            first += is_first;
            wrong += !is_first;
        }
        if (seed > 1) ++types;
        if (wrong != 0) missed += type->name + ": " + std::to_string(wrong) + " of " + std::to_string(rounds) + "\n";
    }
    ::testing::Test::RecordProperty("right_in_a_thousand", std::to_string(tried != 0 ? first * 1000 / tried : 0));
    EXPECT_GE(first * 100, tried * 95) << missed;
    EXPECT_GT(types, 60u);  // the others hardly come to 100 bytes
}

TEST(guess, of_messages_with_some_fields_is_right_in_95_of_100) {
    expect_good_guesses(Amount::some, Strings::as_they_are);
    expect_good_guesses(Amount::some, Strings::readable);
}
TEST(guess, of_messages_with_nearly_every_field_is_right_in_95_of_100) {
    expect_good_guesses(Amount::much, Strings::as_they_are);
    expect_good_guesses(Amount::much, Strings::readable);
}
TEST(guess, of_messages_of_a_careless_caller_is_right_in_95_of_100) {
    expect_good_guesses(Amount::wild, Strings::as_they_are);
    expect_good_guesses(Amount::wild, Strings::readable);
}

TEST(guess, of_no_bytes_is_every_type) { EXPECT_EQ(tool::guess(nullptr, 0).size(), all_types().size()); }

TEST(guess, of_bytes_that_no_type_knows_is_none) {
    EXPECT_TRUE(tool::guess(hex("E50301020304").data(), 6).empty());
    EXPECT_TRUE(tool::guess(hex("07").data(), 1).empty());
}

}  // namespace
}  // namespace vesk::test
