// Input of every sort, read by protobuf and by the library. Where the two disagree, single differences must explain it:
// the decoder of dialect.hpp is held to protobuf with none of them and to the library with all of them.
//
// A failure names the type and the seed. VESK_TEST_ROUNDS in the environment sets the rounds per type. With
// --gtest_output=xml each test says how often it met each difference.
#include <gtest/gtest.h>

#include <array>

#include "tests/interop/dialect.hpp"
#include "tests/interop/inputs_of_every_type.hpp"

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

Counts compare_every_type(MakeInput make_input, int inputs_per_round) {
    const Counts counts = compare_inputs_of_every_type<Comparison, Counts>(make_input, inputs_per_round);
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
