// Inputs of every type that two readers may disagree about.
#pragma once

#include <gtest/gtest.h>

#include "tests/interop/careless_sender.hpp"
#include "tests/interop/peers.hpp"
#include "tests/support/damage.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {

using MakeInput = Bytes (*)(const TypeInfo& type, const Record& record, std::mt19937_64& random);

inline Bytes damaged(const TypeInfo& type, const Record& record, std::mt19937_64& random) {
    return damage(encoded(type, record, Order::declared), random);
}

inline Bytes careless(const TypeInfo& type, const Record& record, std::mt19937_64& random) {
    const unsigned slips[] = {1, 3, 10, 30, 100};
    return CarelessSender(random, slips[random() % 5]).encoded(type, record);
}

inline Bytes careless_and_damaged(const TypeInfo& type, const Record& record, std::mt19937_64& random) {
    return damage(careless(type, record, random), random);
}

// Calls compare(input, found) of a Comparison of each type, until one fails. Returns what they found.
template <class Comparison, class Found>
Found compare_inputs_of_every_type(MakeInput make_input, int inputs_per_round) {
    Found found{};
    std::uint64_t seed = 0;
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (std::uint64_t i = rounds(); i != 0; --i) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(++seed));
            std::mt19937_64 random(seed);
            const RandomMessage message(*type, seed, Amount::some);
            const Record record = written_values(*type, message.get());
            for (int input = 0; input < inputs_per_round; ++input) {
                comparison.compare(make_input(*type, record, random), found);
            }
            if (::testing::Test::HasFailure()) return found;
        }
    }
    return found;
}

}  // namespace vesk::test
