// How much stack a call takes: each of the exported functions runs on a stack of its own, which was painted before.
#include <gtest/gtest.h>
#include <ucontext.h>

#include <algorithm>
#include <functional>

#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

constexpr std::size_t most_stack = std::size_t{8} * 1024;

// Random messages with nearly every field set; what one leaves out, another has.
constexpr std::uint64_t messages_per_type = 6;

using Call = std::function<void()>;

class PaintedStack {
public:
    PaintedStack() : memory_(std::size_t{64} * 1024) {}

    // Bytes of stack that the call used, from the deepest one that it wrote. `prepare` runs before on another stack.
    std::size_t use_of(const Call& call, const Call& prepare) {
        prepare();
        run(call);  // binds the functions that the library imports, which takes stack of its own
        prepare();
        std::fill(memory_.begin(), memory_.end(), paint);
        run(call);
        const auto deepest =
            std::find_if(memory_.begin(), memory_.end(), [](std::uint8_t byte) { return byte != paint; });
        return static_cast<std::size_t>(memory_.end() - deepest);
    }

private:
    static constexpr std::uint8_t paint = 0xD3;

    static void enter() { (*running_)(); }

    void run(const Call& call) {
        ucontext_t here;
        ucontext_t there;
        getcontext(&there);
        there.uc_stack.ss_sp = memory_.data();
        there.uc_stack.ss_size = memory_.size();
        there.uc_link = &here;
        running_ = &call;
        makecontext(&there, enter, 0);
        swapcontext(&here, &there);
        running_ = nullptr;
    }

    static inline const Call* running_ = nullptr;
    Bytes memory_;
};

// The callbacks take next to no stack, so what is seen is the library's.
struct Pool {
    explicit Pool(std::size_t size) : memory(size) {}
    static void* alloc(std::uint64_t size, void* context) {
        Pool* pool = static_cast<Pool*>(context);
        void* block = pool->memory.data() + pool->used;
        pool->used += (size + 15) / 16 * 16;
        return block;
    }
    static void release(void*, void*) {}

    Bytes memory;
    std::size_t used = 0;
};

struct Use {
    std::size_t bytes;
    std::string function;
};

class Meter {
public:
    Meter() : harness_(stack_.use_of([] {}, [] {})) {}

    void measure(
        const std::string& function, const Call& call, const Call& prepare = [] {}) {
        // Coming back takes some stack as well: what is less than that is not seen.
        uses_.push_back({stack_.use_of(call, prepare) - harness_, function});
    }

    Use deepest() const {
        return *std::max_element(uses_.begin(), uses_.end(),
                                 [](const Use& a, const Use& b) { return a.bytes < b.bytes; });
    }

private:
    PaintedStack stack_;
    std::size_t harness_;  // what an empty call takes
    std::vector<Use> uses_;
};

void measure_functions(const TypeInfo& type, const void* message, std::uint32_t flags, Meter* meter) {
    const Bytes bytes = encoded(type, message);
    Bytes buffer(bytes.size());
    std::vector<vesk_segment> segments(64);
    Storage target(type);
    Pool pool(std::size_t{1024} * 1024);
    meter->measure(type.name + "_encode_ext", [&] { type.encode(message, nullptr, 0, nullptr, nullptr, flags); });
    meter->measure(type.name + "_encode_ext", [&] {
        auto count = static_cast<std::uint32_t>(segments.size());
        type.encode(message, buffer.data(), buffer.size(), segments.data(), &count, flags);
    });
    meter->measure(type.name + "_duplicate", [&] {
        pool.used = 0;
        type.duplicate(target.get(), message, Pool::alloc, &pool);
    });
    // A field that no type has stands in front.
    const Bytes input = test::message(tag(100, length_type), text("unknown"), bytes);
    const auto decode = [&] {
        pool.used = 0;
        return type.decode(target.get(), input.data(), input.size(), Pool::alloc, &pool, flags);
    };
    ASSERT_EQ(decode(), VESK_OK);
    meter->measure(type.name + "_decode_ext", decode);
    meter->measure(
        type.name + "_free_ext", [&] { type.free(target.get(), Pool::release, nullptr, flags); }, decode);
}

TEST(stack, what_a_function_takes_is_seen) {
    Meter meter;
    meter.measure("array", [] {
        volatile char array[5000];
        for (volatile char& byte : array) byte = 1;
    });
    EXPECT_GE(meter.deepest().bytes, 4500u);
    EXPECT_LE(meter.deepest().bytes, 5500u);
}

TEST(stack, no_call_takes_more_than_8_kib) {
    Meter meter;
    std::size_t functions = 0;
    for (const TypeInfo* type : all_types()) {
        functions += 4;
        for (std::uint64_t seed = 0; seed < messages_per_type; ++seed) {
            const RandomMessage message(*type, seed, Amount::much);
            for (const std::uint32_t flags : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
                measure_functions(*type, message.get(), flags, &meter);
            }
        }
    }
    EXPECT_EQ(functions, 380u);
    const Use deepest = meter.deepest();
    std::cout << "deepest: " << deepest.function << ", " << deepest.bytes << " bytes\n";
    EXPECT_LE(deepest.bytes, most_stack) << deepest.function;
}

}  // namespace
}  // namespace vesk::test
