#include "toolkit/arena.hpp"

int32_t vesk_one_block_open(vesk_one_block* block, const vesk_type* type, const void* input, uint64_t length,
                            uint32_t flags, vesk_alloc alloc, void* context, const vesk_options* options) {
    block->size = sizeof *block;
    block->memory = nullptr;
    vesk_report report;
    report.size = sizeof report;
    block->code = vesk_check(type, input, length, flags, &report, options);
    if (block->code != VESK_OK) return block->code;
    if (report.cost.blocks == 0) {
        vesk_arena_of_buffer(&block->arena, nullptr, 0);
        return VESK_OK;
    }
    const std::uint64_t size = report.arena_size - (vesk::arena_alignment - 1);  // what `alloc` gives is aligned
    block->memory = alloc != nullptr ? alloc(size, context) : nullptr;
    if (block->memory == nullptr) return block->code = VESK_NO_MEMORY;
    vesk_arena_of_buffer(&block->arena, block->memory, size);
    return VESK_OK;
}

void vesk_one_block_release(vesk_one_block* block, vesk_release release, void* context) {
    if (block->memory == nullptr) return;
    vesk_arena_close(&block->arena);  // under AddressSanitizer the block may be touched again
    release(block->memory, context);
    block->memory = nullptr;
}
