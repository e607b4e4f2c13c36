#include <gtest/gtest.h>
#include <vesk/client_service.h>
#include <vesk/vesk_toolkit.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "tests/support/damage.hpp"
#include "tests/support/ledger.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

constexpr std::uint64_t alignment = alignof(std::max_align_t);

bool is_aligned(const void* block) { return reinterpret_cast<std::uintptr_t>(block) % alignment == 0; }

struct BlockArena {
    BlockArena() { vesk_arena_of_blocks(&arena, Ledger::alloc, Ledger::release, &ledger); }
    ~BlockArena() { vesk_arena_close(&arena); }
    BlockArena(const BlockArena&) = delete;
    BlockArena& operator=(const BlockArena&) = delete;
    Ledger ledger;
    vesk_arena arena;
};

TEST(arena, block_of_a_buffer_of_any_alignment_is_aligned) {
    alignas(16) unsigned char memory[256];
    for (std::size_t skip = 0; skip < 17; ++skip) {
        vesk_arena arena;
        vesk_arena_of_buffer(&arena, memory + skip, sizeof memory - skip);
        for (const std::uint64_t size : {1u, 17u, 0u, 16u}) {
            void* const block = vesk_arena_alloc(size, &arena);
            ASSERT_NE(block, nullptr) << skip;
            EXPECT_TRUE(is_aligned(block)) << skip;
            std::memset(block, 1, size);
        }
        vesk_arena_close(&arena);
    }
}

TEST(arena, buffer_is_given_out_to_its_last_byte_and_no_further) {
    alignas(16) unsigned char memory[64];
    vesk_arena arena;
    vesk_arena_of_buffer(&arena, memory, sizeof memory);
    EXPECT_EQ(vesk_arena_alloc(65, &arena), nullptr);
    EXPECT_EQ(vesk_arena_alloc(48, &arena), memory);
    EXPECT_EQ(vesk_arena_alloc(17, &arena), nullptr);
    EXPECT_EQ(vesk_arena_alloc(16, &arena), memory + 48);
    EXPECT_EQ(vesk_arena_alloc(0, &arena), nullptr);
    vesk_arena_close(&arena);
}

TEST(arena, request_that_fits_only_before_it_is_rounded_is_refused) {
    alignas(alignment) unsigned char memory[4 * alignment];
    vesk_arena arena;
    vesk_arena_of_buffer(&arena, memory, 4 * alignment - 1);
    EXPECT_EQ(vesk_arena_alloc(3 * alignment + 1, &arena), nullptr);
    EXPECT_EQ(vesk_arena_alloc(3 * alignment, &arena), memory);
    EXPECT_EQ(vesk_arena_alloc(alignment - 1, &arena), nullptr);
    vesk_arena_close(&arena);
    vesk_arena_of_buffer(&arena, memory, sizeof memory);
    vesk_arena_limit(&arena, 3 * alignment + 2, UINT64_MAX);
    EXPECT_EQ(vesk_arena_alloc(3 * alignment + 2, &arena), nullptr);
    EXPECT_EQ(vesk_arena_alloc(3 * alignment, &arena), memory);
    vesk_arena_close(&arena);
}

TEST(arena, buffer_shorter_than_its_own_gap_or_null_has_no_block) {
    alignas(16) unsigned char memory[32];
    vesk_arena arena;
    vesk_arena_of_buffer(&arena, memory + 1, 7);
    EXPECT_EQ(vesk_arena_alloc(0, &arena), nullptr);
    vesk_arena_reset(&arena);
    EXPECT_EQ(vesk_arena_alloc(0, &arena), nullptr);
    vesk_arena_close(&arena);
    vesk_arena_of_buffer(&arena, nullptr, 0);
    EXPECT_EQ(vesk_arena_alloc(1, &arena), nullptr);
    vesk_arena_close(&arena);
}

TEST(arena, requests_for_0_bytes_get_blocks_of_their_own) {
    BlockArena it;
    void* const first = vesk_arena_alloc(0, &it.arena);
    void* const second = vesk_arena_alloc(0, &it.arena);
    EXPECT_NE(first, nullptr);
    EXPECT_NE(second, nullptr);
    EXPECT_NE(first, second);
}

TEST(arena, size_that_no_sum_can_hold_is_refused) {
    BlockArena it;
    it.ledger.refuse_above(1 << 20);
    for (const std::uint64_t size : {UINT64_MAX, UINT64_MAX - 15, UINT64_MAX - 16, UINT64_MAX - 40}) {
        EXPECT_EQ(vesk_arena_alloc(size, &it.arena), nullptr) << size;
    }
    EXPECT_EQ(it.ledger.blocks_out(), 0u);
    EXPECT_NE(vesk_arena_alloc(8, &it.arena), nullptr);
}

TEST(arena, limit_in_bytes_counts_what_the_requests_take) {
    BlockArena it;
    vesk_arena_limit(&it.arena, 3 * alignment, UINT64_MAX);
    EXPECT_EQ(vesk_arena_alloc(3 * alignment + 1, &it.arena), nullptr);
    EXPECT_NE(vesk_arena_alloc(0, &it.arena), nullptr);
    EXPECT_EQ(vesk_arena_alloc(2 * alignment + 1, &it.arena), nullptr);
    EXPECT_NE(vesk_arena_alloc(2 * alignment, &it.arena), nullptr);
    EXPECT_EQ(vesk_arena_alloc(1, &it.arena), nullptr);
    vesk_arena_reset(&it.arena);
    EXPECT_NE(vesk_arena_alloc(3 * alignment, &it.arena), nullptr);
}

TEST(arena, limit_in_blocks_counts_requests) {
    BlockArena it;
    vesk_arena_limit(&it.arena, UINT64_MAX, 2);
    EXPECT_NE(vesk_arena_alloc(1, &it.arena), nullptr);
    EXPECT_NE(vesk_arena_alloc(1, &it.arena), nullptr);
    EXPECT_EQ(vesk_arena_alloc(1, &it.arena), nullptr);
    vesk_arena_reset(&it.arena);
    EXPECT_NE(vesk_arena_alloc(1, &it.arena), nullptr);
}

TEST(arena, failing_memory_is_null_and_leaves_the_arena_as_it_was) {
    BlockArena it;
    it.ledger.fail_request(1);
    EXPECT_EQ(vesk_arena_alloc(100, &it.arena), nullptr);
    void* const small = vesk_arena_alloc(100, &it.arena);
    ASSERT_NE(small, nullptr);
    it.ledger.fail_request(1);
    EXPECT_EQ(vesk_arena_alloc(100000, &it.arena), nullptr);
    EXPECT_NE(vesk_arena_alloc(100, &it.arena), nullptr);
}

TEST(arena, reset_keeps_the_memory_for_the_next_message) {
    BlockArena it;
    for (int round = 0; round < 5; ++round) {
        for (const std::uint64_t size : {10u, 5000u, 20000u, 3000u, 8000u, 10u}) {
            void* const block = vesk_arena_alloc(size, &it.arena);
            ASSERT_NE(block, nullptr);
            EXPECT_TRUE(is_aligned(block));
            std::memset(block, round, size);
        }
        if (round == 0) it.ledger.fail_from_now_on();
        vesk_arena_reset(&it.arena);
    }
    vesk_arena_close(&it.arena);
    EXPECT_EQ(it.ledger.blocks_out(), 0u);
}

// The most bytes that were out at a time.
std::uint64_t most_held(const Ledger& ledger) {
    std::uint64_t held = 0;
    std::uint64_t most = 0;
    for (const Request& request : ledger.history()) {
        held += request.what == Request::What::alloc ? request.size : -request.size;
        most = std::max(most, held);
    }
    return most;
}

TEST(arena, messages_each_larger_than_the_one_before_leave_no_memory_behind) {
    BlockArena it;
    constexpr std::uint64_t largest = 109000;
    for (std::uint64_t size = 9000; size <= largest; size += 100) {
        ASSERT_NE(vesk_arena_alloc(size, &it.arena), nullptr);
        vesk_arena_reset(&it.arena);
    }
    EXPECT_LE(most_held(it.ledger), 2 * largest);
}

TEST(arena, no_more_than_twice_the_limit_and_8_kib_is_held_whatever_is_asked_for) {
    constexpr std::uint64_t limit = 100000;
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        BlockArena it;
        vesk_arena_limit(&it.arena, limit, UINT64_MAX);
        std::mt19937_64 random(seed);
        for (int message = 0; message < 300; ++message) {
            while (vesk_arena_alloc(random() % (std::uint64_t{1} << random() % 18), &it.arena) != nullptr) {
            }
            vesk_arena_reset(&it.arena);
        }
        EXPECT_LE(most_held(it.ledger), 2 * limit + 8192 + limit / 100) << seed;
    }
}

TEST(arena, blocks_do_not_overlap_whatever_is_asked_for) {
    BlockArena it;
    for (std::uint64_t seed = 1; seed <= 50; ++seed) {
        std::mt19937_64 random(seed);
        std::vector<std::pair<unsigned char*, std::uint64_t>> blocks;
        for (int i = 0; i < 100; ++i) {
            const std::uint64_t size = random() % (std::uint64_t{1} << random() % 16);
            auto* const block = static_cast<unsigned char*>(vesk_arena_alloc(size, &it.arena));
            ASSERT_NE(block, nullptr);
            std::memset(block, i, size);
            blocks.emplace_back(block, size);
        }
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            for (std::uint64_t k = 0; k < blocks[i].second; ++k) ASSERT_EQ(blocks[i].first[k], i);
        }
        vesk_arena_reset(&it.arena);
    }
}

TEST(arena, limit_for_strangers_grows_with_the_length_and_does_not_wrap) {
    EXPECT_EQ(vesk_arena_limit_for(0), 4096u);
    EXPECT_EQ(vesk_arena_limit_for(1000), 4096u + 32000u);
    EXPECT_EQ(vesk_arena_limit_for(UINT64_MAX), UINT64_MAX);
    EXPECT_EQ(vesk_arena_limit_for((UINT64_MAX - 4096) / 32), (UINT64_MAX - 4096) / 32 * 32 + 4096);
    EXPECT_EQ(vesk_arena_limit_for((UINT64_MAX - 4096) / 32 + 1), UINT64_MAX);
}

TEST(arena, decode_of_an_attackers_list_ends_in_no_memory_at_the_limit) {
    Bytes input;
    for (int i = 0; i < 100000; ++i) input.insert(input.end(), {0x2A, 0x00});
    const TypeInfo& type = *find_type("resp_inv_data");
    BlockArena it;
    Storage message(type);
    vesk_arena_limit(&it.arena, vesk_arena_limit_for(input.size()), UINT64_MAX);
    EXPECT_EQ(type.decode(message.get(), input.data(), input.size(), vesk_arena_alloc, &it.arena, 0), VESK_NO_MEMORY);
    type.free(message.get(), vesk_arena_release, &it.arena, 0);
}

TEST(arena, closing_gives_back_every_block_without_a_free) {
    for (const TypeInfo* type : all_types()) {
        BlockArena it;
        for (std::uint64_t seed = 1; seed <= 10; ++seed) {
            const RandomMessage message(*type, seed, Amount::much);
            // Twice over, so that nested messages occur again and lose their blocks, or lists are refused half way.
            Bytes input = encoded(*type, message.get());
            input.insert(input.end(), input.begin(), input.end());
            Storage decoded(*type);
            type->decode(decoded.get(), input.data(), input.size(), vesk_arena_alloc, &it.arena, 0);
            if (seed % 3 == 0) vesk_arena_reset(&it.arena);
        }
        vesk_arena_close(&it.arena);
        EXPECT_EQ(it.ledger.blocks_out(), 0u) << type->name;
    }
}

#if defined(__SANITIZE_ADDRESS__)
TEST(arena_death, block_that_is_touched_after_a_reset_ends_the_program) {
    unsigned char memory[256];
    vesk_arena arena;
    vesk_arena_of_buffer(&arena, memory, sizeof memory);
    auto* const block = static_cast<volatile unsigned char*>(vesk_arena_alloc(16, &arena));
    block[0] = 1;
    vesk_arena_reset(&arena);
    EXPECT_DEATH(block[0] = 2, "use-after-poison");
    vesk_arena_close(&arena);
}
#endif

}  // namespace
}  // namespace vesk::test
