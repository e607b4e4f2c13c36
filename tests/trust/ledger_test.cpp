// The tests of memory stand on the ledger: does it see what it says it sees?
#include "tests/support/ledger.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace vesk::test {
namespace {

std::uint8_t* get_block(Ledger& ledger, std::uint64_t size) {
    return static_cast<std::uint8_t*>(Ledger::alloc(size, &ledger));
}

TEST(ledger, block_that_it_did_not_give_is_refused) {
    Ledger ledger;
    Ledger other;
    std::uint8_t* block = get_block(other, 8);
    EXPECT_NONFATAL_FAILURE(Ledger::release(block, &ledger), "not out");
    Ledger::release(block, &other);
}

TEST(ledger, inside_of_a_block_is_refused) {
    Ledger ledger;
    std::uint8_t* block = get_block(ledger, 8);
    EXPECT_NONFATAL_FAILURE(Ledger::release(block + 1, &ledger), "not out");
    Ledger::release(block, &ledger);
}

TEST(ledger, second_release_is_refused) {
    Ledger ledger;
    std::uint8_t* block = get_block(ledger, 8);
    Ledger::release(block, &ledger);
    EXPECT_NONFATAL_FAILURE(Ledger::release(block, &ledger), "not out");
}

TEST(ledger, overrun_is_noticed_by_release_and_by_forget) {
    for (const std::uint64_t size : {0u, 1u, 7u, 568u}) {
        Ledger ledger;
        std::uint8_t* block = get_block(ledger, size);
        block[size] = 0;
        EXPECT_NONFATAL_FAILURE(Ledger::release(block, &ledger), "written past a block of " + std::to_string(size));
        get_block(ledger, size)[size] = 0;
        EXPECT_NONFATAL_FAILURE(ledger.forget(), "written past a block of " + std::to_string(size));
    }
}

TEST(ledger, write_before_a_block_is_noticed) {
    Ledger ledger;
    std::uint8_t* block = get_block(ledger, 8);
    block[-1] = 0;
    EXPECT_NONFATAL_FAILURE(Ledger::release(block, &ledger), "written before a block of 8");
}

TEST(ledger, block_that_is_still_out_at_the_end_is_noticed) {
    EXPECT_NONFATAL_FAILURE(
        {
            Ledger ledger;
            get_block(ledger, 8);
        },
        "never released");
}

TEST(ledger, refuses_what_it_is_told_to) {
    Ledger ledger;
    const auto gets = [&](std::uint64_t size) {
        std::uint8_t* block = get_block(ledger, size);
        if (block != nullptr) Ledger::release(block, &ledger);
        return block != nullptr;
    };
    ledger.fail_request(2);
    EXPECT_TRUE(gets(1));
    EXPECT_FALSE(gets(1));
    EXPECT_TRUE(gets(1));
    ledger.fail_from_request(2);
    EXPECT_TRUE(gets(1));
    EXPECT_FALSE(gets(1));
    EXPECT_FALSE(gets(1));
    ledger.fail_never();
    ledger.refuse_above(8);
    EXPECT_TRUE(gets(8));
    EXPECT_FALSE(gets(9));
    EXPECT_TRUE(gets(0));
    ledger.refuse_empty();
    EXPECT_FALSE(gets(0));
    EXPECT_TRUE(gets(1));
    EXPECT_EQ(ledger.requests_refused(), 5u);
}

}  // namespace
}  // namespace vesk::test
