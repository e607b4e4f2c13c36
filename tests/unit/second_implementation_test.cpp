// The library against the interpreter of tests/support, which follows the rules one by one: the same arguments give the
// same results, down to each byte, segment, pointer, presence bit, request and release.
//
// A failure names the type and the seed. VESK_TEST_ROUNDS in the environment sets the rounds per type.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/damage.hpp"
#include "tests/support/observe.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

std::uint64_t rounds() {
    const char* text = std::getenv("VESK_TEST_ROUNDS");
    return text != nullptr ? std::strtoull(text, nullptr, 10) : 200;
}

// One type's rounds.
class Comparison {
public:
    explicit Comparison(const TypeInfo& type)
        : type_(type), library_{type}, interpreter_{interpreter::find_type(type.name)}, place_(type) {}

    void encode_round(std::uint64_t seed) {
        std::mt19937_64 random(seed);
        const RandomMessage message(type_, seed, Amount::wild);
        const std::uint64_t whole = library_.encode(message.get(), nullptr, 0, nullptr, nullptr, 0);
        for (int i = 0; i < 4; ++i) {
            EncodeCall call{};
            call.flags = static_cast<std::uint32_t>(random() % 2 == 0 ? random() % 2 : random());
            call.wants_segments = random() % 2 == 0;
            call.capacity = call.wants_segments ? static_cast<std::uint32_t>(random() % 12) : 0;
            call.null_buffer = random() % 6 == 0;
            const std::uint64_t rooms[] = {whole, whole + random() % 40, whole == 0 ? 0 : random() % whole};
            call.room = call.null_buffer ? 0 : rooms[random() % 3];
            ASSERT_EQ(observe_encode(library_, message.get(), call, place_),
                      observe_encode(interpreter_, message.get(), call, place_))
                << "room " << call.room << " of " << whole << ", capacity " << call.capacity << ", flags "
                << call.flags;
        }
    }

    void decode_round(std::uint64_t seed) {
        std::mt19937_64 random(seed);
        const RandomMessage message(type_, seed, Amount::wild);
        const Bytes whole = encoded(type_, message.get());
        for (int i = 0; i < 4; ++i) {
            const Bytes input = i == 0 ? whole : damage(whole, random);
            const std::uint32_t flags = static_cast<std::uint32_t>(random() % 3);
            const bool has_alloc = random() % 8 != 0;
            const std::uint64_t failing_request = random() % 3 == 0 ? 1 + random() % 6 : 0;
            ASSERT_EQ(observe_decode(library_, input, flags, has_alloc, failing_request, place_),
                      observe_decode(interpreter_, input, flags, has_alloc, failing_request, place_))
                << to_hex(input) << ", flags " << flags << ", failing request " << failing_request;
        }
    }

    void duplicate_round(std::uint64_t seed) {
        std::mt19937_64 random(seed);
        const RandomMessage message(type_, seed, Amount::wild);
        for (int i = 0; i < 4; ++i) {
            const bool onto_itself = i >= 2;
            const bool has_alloc = random() % 8 != 0;
            const std::uint64_t failing_request = i % 2 == 0 ? 0 : 1 + random() % 6;
            ASSERT_EQ(observe_duplicate(library_, message.get(), onto_itself, has_alloc, failing_request, place_),
                      observe_duplicate(interpreter_, message.get(), onto_itself, has_alloc, failing_request, place_))
                << "failing request " << failing_request << (onto_itself ? ", onto itself" : "");
        }
    }

    // A tenth of the rounds: describing a message at each of its releases takes long.
    void release_round(std::uint64_t seed) {
        if (seed % 10 != 0) return;
        const RandomMessage message(type_, seed, Amount::wild);
        const Bytes input = encoded(type_, message.get());
        for (const std::uint32_t flags : {0, 1}) {
            ASSERT_EQ(observe_release(library_, input, flags, place_),
                      observe_release(interpreter_, input, flags, place_))
                << to_hex(input) << ", flags " << flags;
        }
    }

private:
    const TypeInfo& type_;
    Library library_;
    Interpreter interpreter_;
    Workplace place_;
};

void compare_every_type(void (Comparison::*round)(std::uint64_t seed)) {
    std::uint64_t seed = 0;
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (std::uint64_t i = rounds(); i != 0; --i) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(++seed));
            (comparison.*round)(seed);
            if (::testing::Test::HasFailure()) return;
        }
    }
}

TEST(second_implementation, encode_of_random_messages_is_the_same) { compare_every_type(&Comparison::encode_round); }

TEST(second_implementation, decode_of_random_and_damaged_input_is_the_same) {
    compare_every_type(&Comparison::decode_round);
}

TEST(second_implementation, duplicate_of_random_messages_is_the_same) {
    compare_every_type(&Comparison::duplicate_round);
}

TEST(second_implementation, what_a_release_callback_sees_is_the_same) {
    compare_every_type(&Comparison::release_round);
}

}  // namespace
}  // namespace vesk::test
