#include "toolkit/check.hpp"
#include "toolkit/options.hpp"

namespace vesk {
namespace {

// What the blocks of a message take in an arena, all together; 0 if it has none. Apart, for the report's large frame.
[[gnu::noinline]] std::int32_t measure_closely(const vesk_type* type, const void* input, std::uint64_t length,
                                               std::uint32_t flags, const vesk_options* options,
                                               std::uint64_t* arena_bytes) {
    vesk_options own;
    vesk_report report;
    const std::int32_t code = check_closely(type, input, length, flags, report, read_options(options, &own));
    *arena_bytes = report.arena_size == 0 ? 0 : report.arena_size - (arena_alignment - 1);
    return code;
}

}  // namespace
}  // namespace vesk

int32_t vesk_one_block_open(vesk_one_block* block, const vesk_type* type, const void* input, uint64_t length,
                            uint32_t flags, vesk_alloc alloc, void* context, const vesk_options* options) {
    block->size = sizeof *block;
    block->memory = nullptr;
    block->code = VESK_OK;
    std::uint64_t size = 0;
    if (type->alignment >= alignof(void*)) {  // else there is no pointer in the structure, so that it owns nothing
        vesk::Sums sums;
        if (!vesk::check_in_order(type, static_cast<const std::uint8_t*>(input), length, flags, sums)) {
            block->code = vesk::measure_closely(type, input, length, flags, options, &sums.arena_bytes);
            if (block->code != VESK_OK) return block->code;
        }
        size = sums.arena_bytes;
    }
    if (size == 0) {
        vesk::refuse_all(block->arena);  // should the decode ask after all, since the input has changed
        return VESK_OK;
    }
    block->memory = alloc != nullptr ? alloc(size, context) : nullptr;  // what it gives is aligned
    if (block->memory == nullptr) return block->code = VESK_NO_MEMORY;
    vesk_arena_of_buffer(&block->arena, block->memory, size);
    return VESK_OK;
}

void vesk_one_block_release(vesk_one_block* block, vesk_release release, void* context) {
    if (block->memory == nullptr) return;
    vesk::take_buffer(block->arena);
    release(block->memory, context);
    block->memory = nullptr;
}
