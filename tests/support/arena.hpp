// Memory that gives the same addresses again after a reset, so that two runs over it can be compared byte for byte,
// pointers included.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "tests/support/ledger.hpp"

namespace vesk::test {

class Arena {
public:
    explicit Arena(std::size_t capacity) : capacity_(capacity), memory_(new std::uint8_t[capacity]) {
        std::memset(memory_.get(), Ledger::fill, capacity_);
    }

    // The callbacks; their context is the arena. Nothing is reused before the next reset.
    static void* alloc(std::uint64_t size, void* context) {
        Arena& arena = *static_cast<Arena*>(context);
        arena.history_.push_back({Request::What::alloc, size});
        if (++arena.requests_made_ == arena.failing_request_) return nullptr;
        const std::size_t taken = (static_cast<std::size_t>(size) + 15) / 16 * 16;
        if (taken < size || taken > arena.capacity_ - arena.used_) return nullptr;
        void* block = arena.memory_.get() + arena.used_;
        arena.used_ += taken;
        return block;
    }
    static void release(void* block, void* context) {
        Arena& arena = *static_cast<Arena*>(context);
        arena.history_.push_back({Request::What::release, arena.offset_of(block)});
    }

    void reset(std::uint64_t failing_request = 0) {
        std::memset(memory_.get(), Ledger::fill, used_);  // nobody writes behind what was given
        used_ = 0;
        requests_made_ = 0;
        failing_request_ = failing_request;
        history_.clear();
    }

    std::uint64_t requests_made() const { return requests_made_; }
    // A release stands in it with the block's offset in the arena.
    const std::vector<Request>& history() const { return history_; }
    std::uint64_t offset_of(const void* block) const {
        return static_cast<std::uint64_t>(static_cast<const std::uint8_t*>(block) - memory_.get());
    }

private:
    std::size_t capacity_;
    std::unique_ptr<std::uint8_t[]> memory_;
    std::size_t used_ = 0;
    std::uint64_t requests_made_ = 0;
    std::uint64_t failing_request_ = 0;
    std::vector<Request> history_;
};

}  // namespace vesk::test
