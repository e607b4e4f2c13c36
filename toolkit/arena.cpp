#include "toolkit/arena.hpp"

// A program with AddressSanitizer has them, another has not: the library need not be compiled with it.
extern "C" {  // the sanitizer's names: NOLINTBEGIN(bugprone-reserved-identifier)
[[gnu::weak]] void __asan_poison_memory_region(const volatile void* at, std::size_t size);
[[gnu::weak]] void __asan_unpoison_memory_region(const volatile void* at, std::size_t size);
}  // NOLINTEND(bugprone-reserved-identifier)

namespace {

using vesk::arena_alignment;

constexpr std::uint64_t usual_chunk = 8192;

// A block that the arena asked for; its memory follows it.
struct alignas(arena_alignment) Chunk {
    Chunk* next;
    unsigned char* end;
};

bool can_forbid() { return __asan_poison_memory_region != nullptr; }

void forbid(unsigned char* at, const unsigned char* end) {
    if (can_forbid()) __asan_poison_memory_region(at, static_cast<std::size_t>(end - at));
}

void permit(unsigned char* at, const unsigned char* end) {
    if (__asan_unpoison_memory_region != nullptr) __asan_unpoison_memory_region(at, static_cast<std::size_t>(end - at));
}

Chunk* chunk_of(void* untyped) { return static_cast<Chunk*>(untyped); }

unsigned char* memory_of(Chunk* chunk) { return reinterpret_cast<unsigned char*>(chunk + 1); }

// What is allotted lies between `next` and `end`, which is never more than the limit in bytes leaves; `bytes_left` is
// what it leaves beyond. It is a multiple of the alignment, as all requests are when rounded. So a request looks at one
// end alone, and before it is rounded.
void allot(vesk_arena& arena, unsigned char* begin, const unsigned char* end) {
    const std::uint64_t room = static_cast<std::uint64_t>(end - begin);
    const std::uint64_t allotted = (room < arena.bytes_left ? room : arena.bytes_left) & ~(arena_alignment - 1);
    arena.next = begin;
    arena.end = begin + allotted;
    arena.bytes_left -= allotted;
}

// Gives back to the limit what was allotted and not used.
void withdraw(vesk_arena& arena) {
    arena.bytes_left += static_cast<std::uint64_t>(arena.end - arena.next);
    arena.end = arena.next;
}

void enter(vesk_arena& arena, Chunk* chunk) {
    withdraw(arena);
    arena.chunk = chunk;
    allot(arena, memory_of(chunk), chunk->end);
}

void give_back(const vesk_arena& arena, Chunk* chunk) {
    permit(memory_of(chunk), chunk->end);
    arena.release(chunk, arena.context);
}

// Goes on with a chunk that has room for `size` bytes: one that an earlier message has left, or a new one. Those that
// are too small are given back: else every message that is larger than all before it would leave one behind. So what is
// held where a chunk is asked for was needed by this message, each for a request that did not fit into the one before.
bool next_chunk(vesk_arena& arena, std::uint64_t size) {
    const std::uint64_t within_limit = arena.bytes_left + static_cast<std::uint64_t>(arena.end - arena.next);
    if (arena.alloc == nullptr || size > within_limit || size > SIZE_MAX - sizeof(Chunk)) return false;
    Chunk* const current = chunk_of(arena.chunk);
    while (current != nullptr && current->next != nullptr) {
        Chunk* const kept = current->next;
        if (static_cast<std::uint64_t>(kept->end - memory_of(kept)) >= size) {
            enter(arena, kept);
            return true;
        }
        current->next = kept->next;
        give_back(arena, kept);
    }
    const std::uint64_t whole = size + sizeof(Chunk) > usual_chunk ? size + sizeof(Chunk) : usual_chunk;
    void* const block = arena.alloc(whole, arena.context);
    if (block == nullptr) return false;
    Chunk* const made = chunk_of(block);
    *made = {nullptr, static_cast<unsigned char*>(block) + whole};
    if (current != nullptr) {
        current->next = made;
    } else {
        arena.first_chunk = made;
    }
    forbid(memory_of(made), made->end);
    enter(arena, made);
    return true;
}

// A block that takes `whole` bytes, for which there is room.
void* take(vesk_arena& arena, std::uint64_t whole) {
    unsigned char* const block = arena.next;
    arena.next += whole;
    --arena.blocks_left;
    return block;
}

// Any request, also one of 0 bytes or for which there is no room yet. No part of what is called for each block, which
// it would make slower.
[[gnu::noinline]] void* take_slowly(vesk_arena& arena, std::uint64_t size) {
    const std::uint64_t whole = vesk::arena_bytes_for(size);
    if (whole == 0 || arena.blocks_left == 0) return nullptr;
    if (static_cast<std::uint64_t>(arena.end - arena.next) < whole && !next_chunk(arena, whole)) return nullptr;
    void* const block = take(arena, whole);
    permit(static_cast<unsigned char*>(block), static_cast<unsigned char*>(block) + size);
    return block;
}

// Member by member: compilers clear the whole by one instruction that takes longer.
void begin(vesk_arena* arena) {
    arena->size = sizeof *arena;
    arena->next = arena->end = nullptr;
    arena->bytes_left = arena->blocks_left = UINT64_MAX;
    arena->buffer = arena->buffer_end = nullptr;
    arena->first_chunk = arena->chunk = nullptr;
    arena->alloc = nullptr;
    arena->release = nullptr;
    arena->context = nullptr;
    arena->most_bytes = arena->most_blocks = UINT64_MAX;
}

}  // namespace

void vesk::take_buffer(vesk_arena& arena) {
    permit(arena.buffer, arena.buffer_end);
    arena.next = arena.end = arena.buffer = arena.buffer_end = nullptr;
}

void vesk_arena_of_buffer(vesk_arena* arena, void* buffer, uint64_t size) {
    begin(arena);
    const std::uint64_t gap =
        (arena_alignment - reinterpret_cast<std::uintptr_t>(buffer) % arena_alignment) % arena_alignment;
    if (buffer == nullptr || size < gap) return;
    arena->buffer = static_cast<unsigned char*>(buffer) + gap;
    arena->buffer_end = arena->buffer + (size - gap);
    allot(*arena, arena->buffer, arena->buffer_end);
    forbid(arena->buffer, arena->buffer_end);
}

void vesk_arena_of_blocks(vesk_arena* arena, vesk_alloc alloc, vesk_release release, void* context) {
    begin(arena);
    arena->alloc = alloc;
    arena->release = release;
    arena->context = context;
}

void vesk_arena_limit(vesk_arena* arena, uint64_t bytes, uint64_t blocks) {
    withdraw(*arena);
    arena->most_bytes = arena->bytes_left = bytes;
    arena->most_blocks = arena->blocks_left = blocks;
    if (arena->buffer != nullptr) {
        allot(*arena, arena->next, arena->buffer_end);
    } else if (arena->chunk != nullptr) {
        allot(*arena, arena->next, chunk_of(arena->chunk)->end);
    }
}

uint64_t vesk_arena_limit_for(uint64_t length) {
    constexpr std::uint64_t least = 4096;
    constexpr std::uint64_t ratio = 32;
    return length <= (UINT64_MAX - least) / ratio ? least + ratio * length : UINT64_MAX;
}

void* vesk_arena_alloc(uint64_t size, void* untyped) {
    vesk_arena& arena = *static_cast<vesk_arena*>(untyped);
    const std::uint64_t room = static_cast<std::uint64_t>(arena.end - arena.next);
    if (size == 0 || size > room || arena.blocks_left == 0 || can_forbid()) [[unlikely]]  // 0 bytes take some, too
        return take_slowly(arena, size);
    return take(arena, vesk::round_up(size));
}

void vesk_arena_release(void*, void*) {}

void vesk_arena_reset(vesk_arena* arena) {
    arena->bytes_left = arena->most_bytes;
    arena->blocks_left = arena->most_blocks;
    if (arena->buffer != nullptr) {
        allot(*arena, arena->buffer, arena->buffer_end);
        forbid(arena->buffer, arena->buffer_end);
    } else if (arena->first_chunk != nullptr) {
        Chunk* const first = chunk_of(arena->first_chunk);
        arena->chunk = first;
        allot(*arena, memory_of(first), first->end);
        for (Chunk* chunk = chunk_of(arena->first_chunk); can_forbid() && chunk != nullptr; chunk = chunk->next) {
            forbid(memory_of(chunk), chunk->end);
        }
    }
}

void vesk_arena_close(vesk_arena* arena) {
    if (arena->buffer != nullptr) permit(arena->buffer, arena->buffer_end);
    for (Chunk* chunk = chunk_of(arena->first_chunk); chunk != nullptr;) {
        Chunk* const next = chunk->next;
        give_back(*arena, chunk);
        chunk = next;
    }
    begin(arena);
}
