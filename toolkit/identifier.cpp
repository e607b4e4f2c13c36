#include "toolkit/identifier.hpp"

#include <vesk/drin_eid.h>

namespace vesk {
namespace {

// The caller's scratch memory, and what was asked for. Once it is exhausted nothing can be said any more.
struct Trial {
    vesk_arena arena;
    vesk_cost* cost;
    bool exhausted;
};

void* allocate(std::uint64_t size, void* context) {
    Trial& trial = *static_cast<Trial*>(context);
    void* const block = vesk_arena_alloc(size, &trial.arena);
    trial.exhausted = trial.exhausted || block == nullptr;
    trial.cost->bytes += size;
    trial.cost->blocks += 1;
    if (size > trial.cost->largest) trial.cost->largest = size;
    return block;
}

}  // namespace

std::int32_t try_identifier(const vesk_options& options, const void* bytes, std::uint64_t length, std::uint32_t flags,
                            vesk_cost* cost) {
    if (options.check_identifier != nullptr) {
        return options.check_identifier(bytes, length, flags, cost, options.context);
    }
    if (options.scratch == nullptr) return VESK_OPAQUE;
    Trial trial{{}, cost, false};
    vesk_arena_of_buffer(&trial.arena, options.scratch, options.scratch_size);
    void* const message = vesk_arena_alloc(sizeof(vesk_drin_eid_st), &trial.arena);
    std::int32_t code = VESK_OPAQUE;
    if (message != nullptr) {
        code = vesk_drin_eid_st_decode_ext(static_cast<vesk_drin_eid_st*>(message), bytes, length, allocate, &trial,
                                           flags);
    }
    vesk_arena_close(&trial.arena);
    return trial.exhausted ? VESK_OPAQUE : code;
}

}  // namespace vesk
