// The library under test counts the basic blocks that it runs through: work that does not depend on the machine. A
// mutant that gives every result by a longer way, because it never takes a shorter one, runs through more of them than
// the unchanged library, whose counts stand in the file VESK_TEST_WORK; that file is written if there is none.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>

#include "tests/support/random_message.hpp"
#include "tests/support/shaped_message.hpp"

namespace {
std::uint64_t blocks = 0;
}

// Called by each block, as the compiler was told, which chooses the name.
extern "C" void __sanitizer_cov_trace_pc() { ++blocks; }  // NOLINT(bugprone-reserved-identifier): see above

namespace vesk::test {
namespace {

using Work = std::map<std::string, std::uint64_t>;

template <class Call>
std::uint64_t work_of(Call call) {
    const std::uint64_t before = blocks;
    call();
    return blocks - before;
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
                work[name + "encode_" + std::to_string(more)] =
                    work_of([&] { type->encode(message.get(), buffer.data(), buffer.size(), nullptr, nullptr, 0); });
            }
            Bytes buffer(whole.size());
            std::uint32_t count = 0;
            work[name + "encode_and_count"] =
                work_of([&] { type->encode(message.get(), buffer.data(), buffer.size(), nullptr, &count, 0); });
            work[name + "encode_by_reference"] =
                work_of([&] { type->encode(message.get(), buffer.data(), buffer.size(), nullptr, nullptr, 1); });
            work[name + "measure"] = work_of([&] { type->encode(message.get(), nullptr, 0, nullptr, nullptr, 0); });
            Ledger ledger;
            Storage decoded(*type), copy(*type);
            work[name + "decode"] =
                work_of([&] { type->decode(decoded.get(), whole.data(), whole.size(), Ledger::alloc, &ledger, 0); });
            work[name + "duplicate"] =
                work_of([&] { type->duplicate(copy.get(), decoded.get(), Ledger::alloc, &ledger); });
            work[name + "free"] = work_of([&] { type->free(copy.get(), Ledger::release, &ledger, 0); });
            type->free(decoded.get(), Ledger::release, &ledger, 0);
        }
        // The longest string that is drafted, which random messages seldom have.
        ShapedMessage message(*type);
        message.fill({1, 24, 2});
        Bytes buffer(encoded(*type, message.get()).size());
        work[type->name + ".strings_of_24"] =
            work_of([&] { type->encode(message.get(), buffer.data(), buffer.size(), nullptr, nullptr, 0); });
        const Bytes unknown = message_field(1000, {0x01});
        Storage decoded(*type);
        work[type->name + ".unknown_field"] =
            work_of([&] { type->decode(decoded.get(), unknown.data(), unknown.size(), nullptr, nullptr, 0); });
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
