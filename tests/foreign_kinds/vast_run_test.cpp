// Runs of as many packed values as a count can say, and of one more.
#include <gtest/gtest.h>
#include <vesk/vesk_toolkit.h>

#include <cstring>
#include <vector>

#include "tests/foreign_kinds/messages.hpp"
#include "tests/foreign_kinds/schema_library.hpp"
#include "tests/support/bytes.hpp"
#include "tests/trust/vast_memory.hpp"

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

// A packed field with UINT32_MAX flags, all of them 0, and `more` behind it.
class VastRun {
public:
    explicit VastRun(const Bytes& more) : head_(message(tag(number(), 2), varint(UINT32_MAX))), memory_(size_of(more)) {
        memory_.write_at_start(head_);
        memory_.write_at_end(more);
    }

    static std::uint32_t number() { return number_of("packed_boolean"); }

    // The code, of memory that refuses everything; its requests are in requests().
    std::int32_t decode() {
        foreign_all message;
        const auto refuse = [](std::uint64_t size, void* context) -> void* {
            static_cast<VastRun*>(context)->requests_.push_back(size);
            return nullptr;
        };
        return foreign_all_decode_ext(&message, memory_.data(), memory_.size(), refuse, this, 0);
    }

    std::int32_t check(vesk_report* report) const {
        report->size = sizeof *report;
        return vesk_check(foreign_facts(0), memory_.data(), memory_.size(), 0, report, nullptr);
    }

    const std::vector<std::uint64_t>& requests() const { return requests_; }

private:
    std::uint64_t size_of(const Bytes& more) const { return head_.size() + std::uint64_t{UINT32_MAX} + more.size(); }

    std::vector<std::uint64_t> requests_;
    Bytes head_;
    VastMemory memory_;
};

TEST(vast_run, of_as_many_values_as_a_count_can_say_asks_for_them_all) {
    VastRun run({});
    EXPECT_EQ(run.decode(), VESK_NO_MEMORY);
    EXPECT_EQ(run.requests(), std::vector<std::uint64_t>{UINT32_MAX});
    vesk_report report;
    EXPECT_EQ(run.check(&report), VESK_OK);
    EXPECT_EQ(report.cost.bytes, UINT32_MAX);
}

TEST(vast_run, of_one_value_more_is_malformed_and_asks_for_nothing) {
    VastRun run(message(tag(VastRun::number(), 0), varint(1)));
    EXPECT_EQ(run.decode(), VESK_MALFORMED);
    EXPECT_TRUE(run.requests().empty());
    vesk_report report;
    EXPECT_EQ(run.check(&report), VESK_MALFORMED);
}

}  // namespace
}  // namespace vesk::test
