// Input that an allocation callback rewrites while it is decoded, and what it may write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include "tests/support/ledger.hpp"

namespace vesk::test {

// Writes into an input at the n-th request of its decoding, counted from 1.
using Rewrite = std::function<void(std::uint64_t n, std::uint8_t* input, std::size_t length)>;

// A memory that rewrites the input before it gives a block.
struct RewritingMemory {
    Ledger ledger;
    const Rewrite& rewrite;
    std::uint8_t* input;
    std::size_t length;
};

// The callback; its context is the memory.
void* alloc_and_rewrite(std::uint64_t size, void* context);

struct NamedChange {
    const char* name;
    void (*change)(std::uint8_t* input, std::size_t length);
};

const std::vector<NamedChange>& named_changes();

// Bytes that make lengths, tags and continuations, some of them of just what is left.
void scribble(std::uint8_t* input, std::size_t length, std::mt19937_64& random);

}  // namespace vesk::test
