// The caller's memory as the shared functions see it: the allocation callback, the release callback, and pointer
// members whose type they do not know.
#pragma once

#include <vesk/vesk_runtime.h>

#include <cstdint>
#include <cstring>

namespace vesk {

// Where a message's blocks come from: the caller's callback, which may be null, with its context.
struct Allocator {
    vesk_alloc alloc;
    void* context;
};

// Where they go back to.
struct Releaser {
    vesk_release release;
    void* context;
    std::uint32_t flags;
};

// Null if the callback is null or has no block.
inline void* allocate(const Allocator& allocator, std::uint64_t size) {
    return allocator.alloc != nullptr ? allocator.alloc(size, allocator.context) : nullptr;
}

// A list's array member, of which the shared functions know the element size but not the type: `member` is the address
// of an `Element*`. Copying its bytes is the one way to set it that no rule about types forbids.
inline void set_array(void* member, const void* block) { std::memcpy(member, &block, sizeof block); }

}  // namespace vesk
