// What an arena takes for a request.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstddef>
#include <cstdint>

namespace vesk {

inline constexpr std::uint64_t arena_alignment = alignof(std::max_align_t);  // malloc's

// To a multiple of the alignment, which 64 bits can say.
constexpr std::uint64_t round_up(std::uint64_t size) { return (size + (arena_alignment - 1)) & ~(arena_alignment - 1); }

// 0 if 64 bits cannot say it.
constexpr std::uint64_t arena_bytes_for(std::uint64_t size) {
    if (size > UINT64_MAX - (arena_alignment - 1)) return 0;
    return round_up(size == 0 ? 1 : size);
}

// Bytes of a buffer, whatever its alignment, with room for requests that take so many.
constexpr std::uint64_t arena_size_for(std::uint64_t arena_bytes) {
    return arena_bytes == 0 ? 0 : arena_bytes + arena_alignment - 1;
}

// Makes an arena that has nothing to give, of which nothing else is set.
inline void refuse_all(vesk_arena& arena) { arena.blocks_left = 0; }

// Takes its buffer from an arena that has no other memory: the buffer may be touched again, the arena gives nothing.
void take_buffer(vesk_arena& arena);

}  // namespace vesk
