// Messages filled at random, sent from the library to protobuf and back: every value arrives, and the bytes are the
// same but for the order of the fields.
//
// A failure names the type and the seed. VESK_TEST_ROUNDS in the environment sets the rounds per type.
#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <functional>

#include "tests/interop/peers.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

// Most messages are small or strange, some are full.
Amount amount_of(std::uint64_t seed) {
    if (seed % 16 == 0) return Amount::much;
    return seed % 2 == 0 ? Amount::some : Amount::wild;
}

// Calls `check` with rounds() messages of every type.
void for_every_type(const std::function<void(const TypeInfo& type, const void* message)>& check) {
    std::uint64_t seed = 0;
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t i = rounds(); i != 0; --i) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(++seed));
            const RandomMessage message(*type, seed, amount_of(seed));
            check(*type, message.get());
            if (::testing::Test::HasFailure()) return;
        }
    }
}

TEST(random_exchange, protobuf_reads_what_the_library_writes) {
    for_every_type([](const TypeInfo& type, const void* message) {
        const Bytes bytes = encoded(type, message);
        const auto received = parsed(type.name, bytes);
        ASSERT_NE(received, nullptr) << to_hex(bytes);
        const Record sent = written_values(type, message);
        ASSERT_EQ(values_of(*received), sent) << to_hex(bytes);
        EXPECT_EQ(to_hex(serialized(*received)), to_hex(encoded(type, sent, Order::by_number)));
    });
}

TEST(random_exchange, library_reads_what_protobuf_writes) {
    for_every_type([](const TypeInfo& type, const void* message) {
        const Record values = written_values(type, message);
        const auto sent = new_message(type.name);
        set_values(values, *sent);
        const Bytes bytes = serialized(*sent);
        for (const std::uint32_t flags : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
            const AnyDecoded received(type, bytes, flags);
            ASSERT_EQ(received.code, VESK_OK) << to_hex(bytes);
            ASSERT_EQ(stored_values(type, received.message.get()), values) << to_hex(bytes);

            const Bytes answer = encoded(type, received.message.get());
            ASSERT_EQ(to_hex(answer), to_hex(encoded(type, values, Order::declared)));
            const auto returned = parsed(type.name, answer);
            ASSERT_NE(returned, nullptr) << to_hex(answer);
            ASSERT_EQ(values_of(*returned), values);
            EXPECT_EQ(to_hex(serialized(*returned)), to_hex(bytes));
        }
    });
}

}  // namespace
}  // namespace vesk::test
