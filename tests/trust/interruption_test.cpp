// Calls that are interrupted by calls: out of a signal handler, in a child process while other threads of the parent
// were inside the library, and again after an allocation callback left by longjmp. The library holds no state and no
// lock, so there is nothing that an interruption could find half done.
#include <gtest/gtest.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/support/first_difference.hpp"
#include "tests/support/full_message.hpp"

namespace vesk::test {
namespace {

// ---- A round of all four operations ----

// Everything that a round needs, made before it: the round itself allocates nothing and so may run in a signal handler.
struct Round {
    explicit Round(const TypeInfo& type)
        : type(type),
          input(full_encoding(type)),
          output(input.size()),
          message(type),
          copy(type),
          blocks(room_for_blocks) {}

    static constexpr std::size_t room_for_blocks = 1 << 17;

    const TypeInfo& type;
    const Bytes input;
    Bytes output;
    Storage message;
    Storage copy;
    Bytes blocks;
    std::size_t blocks_used = 0;
    int blocks_out = 0;
};

void* take_block(std::uint64_t size, void* context) {
    Round& round = *static_cast<Round*>(context);
    const std::size_t taken = (static_cast<std::size_t>(size) + 15) / 16 * 16;
    if (taken > round.blocks.size() - round.blocks_used) return nullptr;
    void* block = round.blocks.data() + round.blocks_used;
    round.blocks_used += taken;
    ++round.blocks_out;
    return block;
}

void give_back(void*, void* context) { --static_cast<Round*>(context)->blocks_out; }

// Decodes the input, copies the message, encodes the copy, frees both. True if the input came out again.
bool run(Round& round) {
    const TypeInfo& type = round.type;
    round.blocks_used = 0;
    std::memset(round.output.data(), 0, round.output.size());
    bool good =
        type.decode(round.message.get(), round.input.data(), round.input.size(), take_block, &round, 0) == VESK_OK;
    good = good && type.duplicate(round.copy.get(), round.message.get(), take_block, &round) == VESK_OK;
    good = good && type.encode(round.copy.get(), round.output.data(), round.output.size(), nullptr, nullptr, 0) ==
                       round.input.size();
    type.free(round.message.get(), give_back, &round, 0);
    type.free(round.copy.get(), give_back, &round, 0);
    return good && round.blocks_out == 0 &&
           std::memcmp(round.output.data(), round.input.data(), round.input.size()) == 0;
}

std::vector<Round> rounds_of_every_type() {
    std::vector<Round> rounds;
    for (const TypeInfo* type : all_types()) rounds.emplace_back(*type);
    return rounds;
}

// ---- Signal handlers ----

std::vector<Round>* handler_rounds;
volatile sig_atomic_t handler_runs = 0;
volatile sig_atomic_t handler_failures = 0;

// The next type at each signal.
void run_in_handler(int) {
    std::vector<Round>& rounds = *handler_rounds;
    if (!run(rounds[static_cast<std::size_t>(handler_runs) % rounds.size()])) handler_failures = handler_failures + 1;
    handler_runs = handler_runs + 1;
}

class HandlerInstalled {
public:
    HandlerInstalled(int number, void (*handler)(int), std::vector<Round>& rounds) : number_(number) {
        handler_rounds = &rounds;
        handler_runs = 0;
        handler_failures = 0;
        struct sigaction action {};
        action.sa_handler = handler;
        sigaction(number, &action, &earlier_);
    }
    ~HandlerInstalled() { sigaction(number_, &earlier_, nullptr); }
    HandlerInstalled(const HandlerInstalled&) = delete;
    HandlerInstalled& operator=(const HandlerInstalled&) = delete;

private:
    int number_;
    struct sigaction earlier_;
};

constexpr int enough_runs = 5000;

// One ring at a time: the main program gets a little further between two runs, however slow they are.
void ring_soon() {
    const itimerval once{{0, 0}, {0, 20 + handler_runs % 50}};
    setitimer(ITIMER_REAL, &once, nullptr);
}

void run_and_ring_again(int number) {
    run_in_handler(number);
    if (handler_runs < enough_runs) ring_soon();
}

// Wherever the timer finds the main program: most of the time inside the library.
TEST(interruption, signal_handler_may_call_while_the_library_runs) {
    std::vector<Round> interrupted = rounds_of_every_type();
    std::vector<Round> interrupting = rounds_of_every_type();
    int failures = 0;
    {
        const HandlerInstalled handler(SIGALRM, run_and_ring_again, interrupting);
        ring_soon();
        while (handler_runs < enough_runs) {
            for (Round& round : interrupted) failures += !run(round);
        }
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(handler_failures, 0);
}

void* take_block_amid_a_signal(std::uint64_t size, void* context) {
    raise(SIGUSR1);
    return take_block(size, context);
}

// At a place that is the same in every run: each request for a block of each type.
TEST(interruption, signal_handler_may_call_at_every_request_for_a_block) {
    std::vector<Round> interrupting = rounds_of_every_type();
    const HandlerInstalled handler(SIGUSR1, run_in_handler, interrupting);
    for (Round& round : rounds_of_every_type()) {
        const std::int32_t code = round.type.decode(round.message.get(), round.input.data(), round.input.size(),
                                                    take_block_amid_a_signal, &round, 0);
        ASSERT_EQ(code, VESK_OK) << round.type.name;
        const std::int32_t copy_code =
            round.type.duplicate(round.copy.get(), round.message.get(), take_block_amid_a_signal, &round);
        ASSERT_EQ(copy_code, VESK_OK) << round.type.name;
        EXPECT_EQ(to_hex(encoded(round.type, round.copy.get())), to_hex(round.input)) << round.type.name;
        EXPECT_EQ(handler_failures, 0) << round.type.name;
    }
    EXPECT_GT(handler_runs, static_cast<int>(all_types().size()));
}

// ---- fork ----

// The child has one thread, and whatever the others held at that moment stays held in it for good.
TEST(interruption, child_process_may_call_after_fork_amid_calls_of_other_threads) {
    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    threads.reserve(2);
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            std::vector<Round> rounds = rounds_of_every_type();
            while (!stop) {
                for (Round& round : rounds) failures += !run(round);
            }
        });
    }
    std::vector<Round> rounds = rounds_of_every_type();
    for (int i = 0; i < 20; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);  // a lock that is held for good would be waited for in vain
            bool good = true;
            for (Round& round : rounds) good = run(round) && good;
            _exit(good ? 0 : 1);
        }
        ASSERT_GT(child, 0);
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child " << i << " ended with status " << status;
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
}

// ---- longjmp ----

// Memory that leaves the library at its n-th request.
struct Leaving {
    explicit Leaving(std::uint64_t n) : n(n) {}

    Ledger ledger;
    std::uint64_t n;
    jmp_buf way_out = {};
};

void* take_block_or_leave(std::uint64_t size, void* context) {
    Leaving& leaving = *static_cast<Leaving*>(context);
    if (leaving.ledger.requests_made() + 1 == leaving.n) longjmp(leaving.way_out, 1);
    return Ledger::alloc(size, &leaving.ledger);
}

void give_back_to_ledger(void* block, void* context) {
    Ledger::release(block, &static_cast<Leaving*>(context)->ledger);
}

// True if the callback left by longjmp. A function of its own: nothing in it is used behind the jump.
bool decode_leaves(const TypeInfo& type, void* message, const Bytes& input, Leaving& leaving) {
    if (setjmp(leaving.way_out) != 0) return true;
    EXPECT_EQ(type.decode(message, input.data(), input.size(), take_block_or_leave, &leaving, 0), VESK_OK);
    return false;
}

bool duplicate_leaves(const TypeInfo& type, void* copy, const void* source, Leaving& leaving) {
    if (setjmp(leaving.way_out) != 0) return true;
    EXPECT_EQ(type.duplicate(copy, source, take_block_or_leave, &leaving), VESK_OK);
    return false;
}

// The message is good for one thing: free finds in it every block that was given.
TEST(interruption, decode_left_by_longjmp_leaves_a_message_that_owns_every_block) {
    for (const TypeInfo* type : all_types()) {
        const Bytes input = full_encoding(*type);
        bool left = true;
        for (std::uint64_t n = 1; left; ++n) {
            SCOPED_TRACE(type->name + ", request " + std::to_string(n));
            Leaving leaving(n);
            Storage message(*type);
            left = decode_leaves(*type, message.get(), input, leaving);
            EXPECT_EQ(leaving.ledger.blocks_out(), n - 1);
            type->free(message.get(), give_back_to_ledger, &leaving, 0);
            ASSERT_EQ(leaving.ledger.blocks_out(), 0u);
            EXPECT_EQ(AnyDecoded(*type, input).code, VESK_OK) << "the next call";
        }
    }
}

// The copy is storage and nothing more: what it has no block of its own for may still point to the source's. Its blocks
// are known to the memory that gave them. The source and the next call know nothing of it.
TEST(interruption, duplicate_left_by_longjmp_spoils_the_copy_alone) {
    for (const TypeInfo* type : all_types()) {
        const AnyDecoded source(*type, full_encoding(*type));
        const AnyDecoded same(*type, full_encoding(*type));
        bool left = true;
        for (std::uint64_t n = 1; left; ++n) {
            SCOPED_TRACE(type->name + ", request " + std::to_string(n));
            Leaving leaving(n);
            Storage copy(*type);
            left = duplicate_leaves(*type, copy.get(), source.message.get(), leaving);
            if (left) {
                EXPECT_EQ(leaving.ledger.blocks_out(), n - 1);
                leaving.ledger.forget();
                leaving.n = 0;
                ASSERT_FALSE(duplicate_leaves(*type, copy.get(), source.message.get(), leaving));
            }
            EXPECT_EQ(first_difference(*type, source.message.get(), same.message.get()), "");
            EXPECT_EQ(first_difference(*type, copy.get(), same.message.get()), "");
            type->free(copy.get(), give_back_to_ledger, &leaving, 0);
            ASSERT_EQ(leaving.ledger.blocks_out(), 0u);
        }
    }
}

}  // namespace
}  // namespace vesk::test
