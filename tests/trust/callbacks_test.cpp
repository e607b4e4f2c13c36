// What a callback may see of the message that is being worked on.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/full_message.hpp"

namespace vesk::test {
namespace {

// A memory whose callback looks at the message that is being decoded before it gives a block.
struct WatchingMemory {
    explicit WatchingMemory(const TypeInfo& type) : type(type), message(type) {}

    const TypeInfo& type;
    Ledger ledger;
    Storage message;
    bool bits_are_clear = true;
    bool blocks_are_ours = true;
    std::size_t most_blocks = 0;
};

void* look_and_alloc(std::uint64_t size, void* context) {
    WatchingMemory& memory = *static_cast<WatchingMemory*>(context);
    const std::uint8_t* const present = member_at(memory.message.get(), memory.type.presence_offset);
    const auto is_zero = [](std::uint8_t byte) { return byte == 0; };
    memory.bits_are_clear &= std::all_of(present, present + memory.type.presence_size, is_zero);
    const std::vector<const void*> blocks = owned_blocks(memory.type, memory.message.get());
    memory.blocks_are_ours &=
        std::all_of(blocks.begin(), blocks.end(), [&](const void* block) { return memory.ledger.owns(block); });
    memory.most_blocks = std::max(memory.most_blocks, blocks.size());
    return Ledger::alloc(size, &memory.ledger);
}

TEST(callbacks, alloc_in_decode_sees_null_or_its_own_blocks_and_no_presence_bit) {
    std::size_t most_blocks = 0;
    for (const TypeInfo* type : all_types()) {
        SCOPED_TRACE(type->name);
        const Bytes input = full_encoding(*type);
        WatchingMemory memory(*type);
        EXPECT_EQ(type->decode(memory.message.get(), input.data(), input.size(), look_and_alloc, &memory, 0), VESK_OK);
        EXPECT_TRUE(memory.bits_are_clear);
        EXPECT_TRUE(memory.blocks_are_ours);
        EXPECT_TRUE(is_full(*type, memory.message.get()));
        most_blocks = std::max(most_blocks, memory.most_blocks);
        type->free(memory.message.get(), Ledger::release, &memory.ledger, 0);
    }
    EXPECT_GT(most_blocks, 100u);
}

}  // namespace
}  // namespace vesk::test
