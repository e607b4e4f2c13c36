#include "tests/support/ledger.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>

namespace vesk::test {
namespace {

constexpr std::size_t guard_size = alignof(std::max_align_t);
constexpr std::uint8_t guard_byte = 0xEC;

bool is_guard(const std::uint8_t* guard) {
    return std::all_of(guard, guard + guard_size, [](std::uint8_t byte) { return byte == guard_byte; });
}

}  // namespace

Ledger::~Ledger() {
    EXPECT_EQ(blocks_.size(), 0u) << "blocks that were never released";
    forget();
}

void Ledger::forget() {
    for (const auto& [address, block] : blocks_) expect_whole_guards(block);
    blocks_.clear();
}

void Ledger::expect_whole_guards(const Block& block) {
    EXPECT_TRUE(is_guard(block.memory.get())) << "written before a block of " << block.size << " bytes";
    EXPECT_TRUE(is_guard(block.memory.get() + guard_size + block.size))
        << "written past a block of " << block.size << " bytes";
}

bool Ledger::refuses(std::uint64_t size) const {
    return requests_made_ >= failing_from_ || failing_.contains(requests_made_) || size < smallest_ || size > largest_;
}

void* Ledger::alloc(std::uint64_t size, void* context) {
    Ledger& ledger = *static_cast<Ledger*>(context);
    ++ledger.requests_made_;
    ledger.history_.push_back({Request::What::alloc, size});
    if (ledger.refuses(size)) {
        ++ledger.requests_refused_;
        return nullptr;
    }
    auto memory = std::make_unique<std::uint8_t[]>(size + 2 * guard_size);
    std::uint8_t* block = memory.get() + guard_size;
    std::fill_n(memory.get(), guard_size, guard_byte);
    std::fill_n(block, size, fill);
    std::fill_n(block + size, guard_size, guard_byte);
    ledger.blocks_.emplace(block, Block{std::move(memory), size});
    return block;
}

void Ledger::release(void* block, void* context) {
    Ledger& ledger = *static_cast<Ledger*>(context);
    const auto found = ledger.blocks_.find(block);
    if (found == ledger.blocks_.end()) {
        ADD_FAILURE() << "released a block that is not out";
        return;
    }
    const Block& known = found->second;
    ledger.history_.push_back({Request::What::release, known.size});
    expect_whole_guards(known);
    ledger.blocks_.erase(found);
}

}  // namespace vesk::test
