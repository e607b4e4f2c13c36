#include "fuzz/pool.hpp"

#include <sanitizer/asan_interface.h>

#include <algorithm>
#include <cstring>

#include "fuzz/input.hpp"

namespace vesk::fuzz {
namespace {

constexpr std::size_t capacity = std::size_t{4} << 20;
constexpr std::size_t alignment = alignof(std::max_align_t);
constexpr std::size_t gap = 16;

}  // namespace

Pool::Pool() : memory_(new std::uint8_t[capacity]) { ASAN_POISON_MEMORY_REGION(memory_.get(), capacity); }

void Pool::reset(std::uint32_t refused) {
    ASAN_POISON_MEMORY_REGION(memory_.get(), used_);
    used_ = 0;
    refused_ = refused;
    requests_ = 0;
    refusals_ = 0;
    refused_last_ = false;
    blocks_out_ = 0;
    blocks_.clear();
    history_.clear();
}

std::uint8_t* Pool::new_block(std::uint64_t size, std::uint8_t fill) {
    if (size > capacity - used_ || capacity - used_ - size < alignment + gap) return nullptr;
    std::uint8_t* start = memory_.get() + used_;
    used_ += (size + gap + alignment - 1) / alignment * alignment;
    ASAN_UNPOISON_MEMORY_REGION(start, size);
    std::memset(start, fill, size);
    blocks_.push_back({start, size, true});
    ++blocks_out_;
    return start;
}

std::uint8_t* Pool::take(std::size_t size, std::uint8_t fill) {
    std::uint8_t* block = new_block(size, fill);
    expect(block != nullptr, "the pool is too small for the target itself");
    return block;
}

void* Pool::alloc(std::uint64_t size, void* context) {
    Pool& pool = *static_cast<Pool*>(context);
    pool.history_.push_back({test::Request::What::alloc, size});
    const std::size_t request = pool.requests_++;
    const bool refuse = request < 16 && (pool.refused_ >> request & 1) != 0;
    std::uint8_t* block = refuse ? nullptr : pool.new_block(size, test::Ledger::fill);
    pool.refused_last_ = block == nullptr;
    if (block == nullptr) ++pool.refusals_;
    return block;
}

void Pool::release(void* start, void* context) {
    Pool& pool = *static_cast<Pool*>(context);
    const Block* block = pool.find(start);
    expect(block != nullptr && block->is_out, "what was released is no block that is out");
    const auto place = static_cast<std::size_t>(block - pool.blocks_.data());
    pool.history_.push_back({test::Request::What::release, place});
    ASAN_POISON_MEMORY_REGION(start, block->size);
    pool.blocks_[place].is_out = false;
    --pool.blocks_out_;
}

const Pool::Block* Pool::find(const void* start) const {
    const auto found = std::lower_bound(blocks_.begin(), blocks_.end(), start,
                                        [](const Block& block, const void* place) { return block.start < place; });
    return found != blocks_.end() && found->start == start ? &*found : nullptr;
}

}  // namespace vesk::fuzz
