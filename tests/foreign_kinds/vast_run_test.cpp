// Runs of as many packed values as a count can say, and of one more.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <vesk/vesk_toolkit.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "tests/foreign_kinds/messages.hpp"
#include "tests/foreign_kinds/schema_library.hpp"
#include "tests/support/bytes.hpp"

namespace vesk::test {
namespace {

std::uint32_t number_of(const char* name) {
    const vesk_type* const type = foreign_facts(0);
    for (std::uint32_t place = 0; place < type->field_count; ++place) {
        const vesk_field* const field = vesk_type_field(type, place);
        if (std::strcmp(vesk_field_name(field), name) == 0) return vesk_field_number(field);
    }
    return 0;
}

// Numbers of 32 bits, all of them 0, in packed fields of up to 2 GiB: a length has 32 bits. Nobody reads the numbers to
// count them, so that they take 16 GiB of addresses and little memory.
class VastRun {
public:
    explicit VastRun(std::uint64_t values) {
        constexpr std::uint64_t most = std::uint64_t{1} << 29;
        std::vector<std::pair<std::uint64_t, Bytes>> heads;
        for (std::uint64_t left = values; left != 0; left -= std::min(left, most)) {
            const std::uint64_t content = std::min(left, most) * sizeof(std::uint32_t);
            heads.emplace_back(size_, message(tag(number_of("packed_fixed32"), 2), varint(content)));
            size_ += heads.back().second.size() + content;
        }
        memory_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory_ == MAP_FAILED) return;
        for (const auto& [at, head] : heads) {
            std::memcpy(static_cast<std::uint8_t*>(memory_) + at, head.data(), head.size());
        }
    }
    ~VastRun() {
        if (memory_ != MAP_FAILED) munmap(memory_, size_);
    }
    VastRun(const VastRun&) = delete;
    VastRun& operator=(const VastRun&) = delete;

    bool is_there() const { return memory_ != MAP_FAILED; }

    // The code, of memory that refuses everything; its requests are in requests().
    std::int32_t decode() {
        foreign_all message;
        const auto refuse = [](std::uint64_t size, void* context) -> void* {
            static_cast<VastRun*>(context)->requests_.push_back(size);
            return nullptr;
        };
        return foreign_all_decode_ext(&message, memory_, size_, refuse, this, 0);
    }

    std::int32_t check(vesk_report* report) const {
        report->size = sizeof *report;
        return vesk_check(foreign_facts(0), memory_, size_, 0, report, nullptr);
    }

    const std::vector<std::uint64_t>& requests() const { return requests_; }

private:
    std::uint64_t size_ = 0;
    void* memory_;
    std::vector<std::uint64_t> requests_;
};

TEST(vast_run, of_as_many_values_as_a_count_can_say_asks_for_them_all) {
    constexpr std::uint64_t size = std::uint64_t{UINT32_MAX} * sizeof(std::uint32_t);
    VastRun run(UINT32_MAX);
    ASSERT_TRUE(run.is_there());
    EXPECT_EQ(run.decode(), VESK_NO_MEMORY);
    EXPECT_EQ(run.requests(), std::vector<std::uint64_t>{size});
    vesk_report report;
    EXPECT_EQ(run.check(&report), VESK_OK);
    EXPECT_EQ(report.cost.bytes, size);
}

TEST(vast_run, of_one_value_more_is_malformed_and_asks_for_nothing) {
    VastRun run(std::uint64_t{UINT32_MAX} + 1);
    ASSERT_TRUE(run.is_there());
    EXPECT_EQ(run.decode(), VESK_MALFORMED);
    EXPECT_TRUE(run.requests().empty());
    vesk_report report;
    EXPECT_EQ(run.check(&report), VESK_MALFORMED);
}

}  // namespace
}  // namespace vesk::test
