// The library under test counts the basic blocks that it runs through, and the bytes of stack that it takes: work that
// does not depend on the machine. A mutant that gives every result by a longer way, because it never takes a shorter
// one, or in more memory than it needs, does more than the unchanged library, whose work stands in the file
// VESK_TEST_WORK; that file is written if there is none.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>

#include "tests/support/random_message.hpp"
#include "tests/support/shaped_message.hpp"

namespace {
std::uint64_t blocks = 0;
std::uintptr_t deepest = 0;  // of the frames in which blocks were run through

std::uintptr_t address(const void* frame) { return reinterpret_cast<std::uintptr_t>(frame); }
}  // namespace

// Called by each block, as the compiler was told, which chooses the name.
extern "C" void __sanitizer_cov_trace_pc() {  // NOLINT(bugprone-reserved-identifier): see above
    ++blocks;
    deepest = std::min(deepest, address(__builtin_frame_address(0)));
}

namespace vesk::test {
namespace {

using Work = std::map<std::string, std::uint64_t>;

template <class Call>
void record(Work& work, const std::string& name, Call call) {
    const std::uintptr_t here = address(__builtin_frame_address(0));
    blocks = 0;
    deepest = here;
    call();
    work[name + ".blocks"] = blocks;
    work[name + ".stack"] = here - deepest;
}

Work measure_work() {
    Work work;
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t seed = 1; seed <= 24; ++seed) {
            const RandomMessage message(*type, seed, seed % 2 == 0 ? Amount::some : Amount::much);
            const std::string name = type->name + "." + std::to_string(seed) + ".";
            const Bytes whole = encoded(*type, message.get());
            for (const std::size_t more : {0u, 1u, 8u, 300u}) {
                Bytes buffer(whole.size() + more);
                record(work, name + "encode_" + std::to_string(more),
                       [&] { type->encode(message.get(), buffer.data(), buffer.size(), nullptr, nullptr, 0); });
            }
            Bytes buffer(whole.size());
            std::uint32_t count = 0;
            record(work, name + "encode_and_count",
                   [&] { type->encode(message.get(), buffer.data(), buffer.size(), nullptr, &count, 0); });
            record(work, name + "encode_by_reference",
                   [&] { type->encode(message.get(), buffer.data(), buffer.size(), nullptr, nullptr, 1); });
            record(work, name + "measure", [&] { type->encode(message.get(), nullptr, 0, nullptr, nullptr, 0); });
            Ledger ledger;
            Storage decoded(*type), copy(*type);
            record(work, name + "decode",
                   [&] { type->decode(decoded.get(), whole.data(), whole.size(), Ledger::alloc, &ledger, 0); });
            record(work, name + "duplicate",
                   [&] { type->duplicate(copy.get(), decoded.get(), Ledger::alloc, &ledger); });
            record(work, name + "free", [&] { type->free(copy.get(), Ledger::release, &ledger, 0); });
            type->free(decoded.get(), Ledger::release, &ledger, 0);
        }
        // The longest string that is drafted, which random messages seldom have.
        ShapedMessage message(*type);
        message.fill({1, 24, 2});
        Bytes buffer(encoded(*type, message.get()).size());
        record(work, type->name + ".strings_of_24",
               [&] { type->encode(message.get(), buffer.data(), buffer.size(), nullptr, nullptr, 0); });
        const Bytes unknown = message_field(1000, {0x01});
        Storage decoded(*type);
        record(work, type->name + ".unknown_field",
               [&] { type->decode(decoded.get(), unknown.data(), unknown.size(), nullptr, nullptr, 0); });
    }
    return work;
}

TEST(work, is_no_more_than_that_of_the_unchanged_library) {
    const char* const path = std::getenv("VESK_TEST_WORK");
    ASSERT_NE(path, nullptr);
    const Work work = measure_work();
    std::ifstream recorded(path);
    if (!recorded) {
        std::ofstream file(path);
        for (const auto& [name, count] : work) file << name << ' ' << count << '\n';
        return;
    }
    std::string name;
    std::uint64_t count;
    std::size_t rows = 0;
    for (; recorded >> name >> count; ++rows) ASSERT_LE(work.at(name), count) << name;
    EXPECT_EQ(rows, work.size());
}

}  // namespace
}  // namespace vesk::test
