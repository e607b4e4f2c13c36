// The caller's memory in a fuzz target: one stretch for all executions, so that an execution asks the heap for nothing.
// What is not given out, the bytes between two blocks included, is poisoned for the address sanitizer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tests/support/ledger.hpp"

namespace vesk::fuzz {

class Pool {
public:
    struct Block {
        std::uint8_t* start;
        std::uint64_t size;
        bool is_out;
    };

    Pool();
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    ~Pool() = default;

    // Takes everything back. Bit n of `refused` refuses request n + 1 from now; so is what the pool has no room for.
    void reset(std::uint32_t refused = 0);

    // The callbacks; their context is the pool. A released block is not given out again before the next reset.
    static void* alloc(std::uint64_t size, void* context);
    static void release(void* start, void* context);

    // A block that is filled with `fill`. Fails the target if there is none.
    std::uint8_t* take(std::size_t size, std::uint8_t fill = 0x5A);

    std::size_t refusals() const { return refusals_; }
    bool refused_last() const { return refused_last_; }
    const std::vector<Block>& blocks() const { return blocks_; }
    std::size_t blocks_out() const { return blocks_out_; }

    // The block that begins there, or null.
    const Block* find(const void* start) const;

    // What the callbacks were asked, in order. A release stands in it with the block's place among all blocks.
    const std::vector<test::Request>& history() const { return history_; }

private:
    std::uint8_t* new_block(std::uint64_t size, std::uint8_t fill);

    std::unique_ptr<std::uint8_t[]> memory_;
    std::size_t used_ = 0;
    std::uint32_t refused_ = 0;
    std::size_t requests_ = 0;
    std::size_t refusals_ = 0;
    bool refused_last_ = false;
    std::size_t blocks_out_ = 0;
    std::vector<Block> blocks_;
    std::vector<test::Request> history_;
};

}  // namespace vesk::fuzz
