// Input of every sort, read by protobuf and by the library. Where the two disagree, single differences must explain it:
// the decoder of dialect.hpp is held to protobuf with none of them and to the library with all of them.
//
// A failure names the type and the seed. VESK_TEST_ROUNDS in the environment sets the rounds per type. With
// --gtest_output=xml each test says how often it met each difference.
#include <gtest/gtest.h>

#include <array>

#include "tests/interop/careless_sender.hpp"
#include "tests/interop/dialect.hpp"
#include "tests/support/damage.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

// How often each difference changed what was read.
using Counts = std::array<std::uint64_t, difference_count>;

// Walks from protobuf's reading to the library's, one difference after the other.
void count_differences(const TypeInfo& type, const Bytes& input, Counts& counts) {
    Dialect dialect = Dialect::of_protobuf();
    Reading reading = read_in(dialect, type, input);
    for (std::size_t i = 0; i < difference_count; ++i) {
        dialect.add(static_cast<Difference>(i));
        Reading next = read_in(dialect, type, input);
        if (!(next == reading)) ++counts[i];
        reading = std::move(next);
    }
}

class Comparison {
public:
    explicit Comparison(const TypeInfo& type) : type_(type), library_(type) {}

    void compare(const Bytes& input, Counts& counts) {
        const Reading by_protobuf = read_by_protobuf(type_, input);
        const Reading by_library = library_.read(input);
        ASSERT_EQ(read_in(Dialect::of_protobuf(), type_, input), by_protobuf) << "protobuf; " << to_hex(input);
        ASSERT_EQ(read_in(Dialect::of_library(), type_, input), by_library) << "the library; " << to_hex(input);
        if (!(by_protobuf == by_library)) count_differences(type_, input, counts);
    }

private:
    const TypeInfo& type_;
    LibraryReader library_;
};

using MakeInput = Bytes (*)(const TypeInfo& type, const Record& record, std::mt19937_64& random);

Bytes damaged(const TypeInfo& type, const Record& record, std::mt19937_64& random) {
    return damage(encoded(type, record, Order::declared), random);
}

Bytes careless(const TypeInfo& type, const Record& record, std::mt19937_64& random) {
    const unsigned slips[] = {3, 10, 30, 100};
    return CarelessSender(random, slips[random() % 4]).encoded(type, record);
}

Bytes careless_and_damaged(const TypeInfo& type, const Record& record, std::mt19937_64& random) {
    return damage(careless(type, record, random), random);
}

Counts compare_every_type(MakeInput make_input, int inputs_per_round) {
    Counts counts{};
    std::uint64_t seed = 0;
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (std::uint64_t i = rounds(); i != 0; --i) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(++seed));
            std::mt19937_64 random(seed);
            const RandomMessage message(*type, seed, Amount::some);
            const Record record = written_values(*type, message.get());
            for (int input = 0; input < inputs_per_round; ++input)
                comparison.compare(make_input(*type, record, random), counts);
            if (::testing::Test::HasFailure()) return counts;
        }
    }
    for (std::size_t i = 0; i < difference_count; ++i) {
        ::testing::Test::RecordProperty(difference_names[i], std::to_string(counts[i]));
    }
    return counts;
}

TEST(every_disagreement, about_damaged_input_is_explained) { compare_every_type(damaged, 2); }

TEST(every_disagreement, about_input_of_a_careless_sender_is_explained) {
    const Counts counts = compare_every_type(careless, 2);
    if (HasFailure() || rounds() < 50) return;
    for (std::size_t i = 0; i < difference_count; ++i) {
        EXPECT_NE(counts[i], 0u) << difference_names[i] << " was never tried";
    }
}

TEST(every_disagreement, about_input_that_is_careless_and_damaged_is_explained) {
    compare_every_type(careless_and_damaged, 1);
}

}  // namespace
}  // namespace vesk::test
