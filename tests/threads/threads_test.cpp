// The library keeps no state: all types on eight threads at once. What a thread sees is the same as if it were alone;
// the thread sanitizer sees whether anything is shared.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

constexpr std::size_t thread_count = 8;
constexpr int rounds = 20;  // so that the threads meet

// Runs work(0) to work(7) at once, again and again.
void on_every_thread(const std::function<void(std::size_t thread)>& work) {
    std::atomic<std::size_t> started{0};
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < thread_count; ++thread) {
        threads.emplace_back([&, thread] {
            for (++started; started != thread_count;) std::this_thread::yield();
            for (int round = 0; round < rounds; ++round) work(thread);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

void expect_same_bytes_from_a_copy(const TypeInfo& type, const void* message, const Bytes& expected) {
    Ledger ledger;
    Storage copy(type);
    EXPECT_EQ(type.duplicate(copy.get(), message, Ledger::alloc, &ledger), VESK_OK) << type.name;
    EXPECT_EQ(encoded(type, copy.get()), expected) << type.name;
    type.free(copy.get(), Ledger::release, &ledger, 0);
}

// Every thread begins with another type, so that at any time there are different ones.
TEST(threads, each_works_on_messages_of_its_own) {
    on_every_thread([](std::size_t thread) {
        const auto& types = all_types();
        for (std::size_t i = 0; i < types.size(); ++i) {
            const TypeInfo& type = *types[(i + thread * types.size() / thread_count) % types.size()];
            const RandomMessage message(type, thread + 1, Amount::some);
            const Bytes bytes = encoded(type, message.get());
            const AnyDecoded decoded(type, bytes);
            EXPECT_EQ(decoded.code, VESK_OK) << type.name;
            expect_same_bytes_from_a_copy(type, decoded.message.get(), bytes);
        }
    });
}

TEST(threads, all_read_the_same_messages) {
    std::vector<std::unique_ptr<const RandomMessage>> messages;
    std::vector<Bytes> expected;
    for (const TypeInfo* type : all_types()) {
        messages.push_back(std::make_unique<RandomMessage>(*type, 1, Amount::some));
        expected.push_back(encoded(*type, messages.back()->get()));
    }
    on_every_thread([&](std::size_t) {
        for (std::size_t i = 0; i < messages.size(); ++i) {
            const TypeInfo& type = *all_types()[i];
            EXPECT_EQ(encoded(type, messages[i]->get()), expected[i]) << type.name;
            expect_same_bytes_from_a_copy(type, messages[i]->get(), expected[i]);
        }
    });
}

}  // namespace
}  // namespace vesk::test
