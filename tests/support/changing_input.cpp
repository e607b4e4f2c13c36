#include "tests/support/changing_input.hpp"

#include <algorithm>

namespace vesk::test {

void* alloc_and_rewrite(std::uint64_t size, void* context) {
    RewritingMemory& memory = *static_cast<RewritingMemory*>(context);
    memory.rewrite(memory.ledger.requests_made() + 1, memory.input, memory.length);
    return Ledger::alloc(size, &memory.ledger);
}

namespace {

template <std::uint8_t Byte>
void fill(std::uint8_t* input, std::size_t length) {
    std::fill_n(input, length, Byte);
}

}  // namespace

const std::vector<NamedChange>& named_changes() {
    static const std::vector<NamedChange> changes{
        {"empty elements and zeros", fill<0x00>},
        {"elements of one byte", fill<0x01>},
        {"lengths and tags that do not end", fill<0x80>},
        {"tags of an unknown wire type", fill<0x0B>},
        // The first element takes all that is left, and the others find nothing.
        {"lengths that reach just to the end",
         [](std::uint8_t* input, std::size_t length) {
             for (std::size_t i = 0; i < length; ++i) {
                 const std::size_t left = length - i - 1;
                 input[i] = static_cast<std::uint8_t>(left < 0x80 ? left : 0x80);
             }
         }},
        {"lengths that reach one byte past the end",
         [](std::uint8_t* input, std::size_t length) {
             for (std::size_t i = 0; i < length; ++i) {
                 const std::size_t left = length - i;
                 input[i] = static_cast<std::uint8_t>(left < 0x80 ? left : 0x80);
             }
         }},
        {"the same a byte earlier",
         [](std::uint8_t* input, std::size_t length) { std::rotate(input, input + 1, input + length); }},
        {"the same a byte later",
         [](std::uint8_t* input, std::size_t length) { std::rotate(input, input + length - 1, input + length); }},
        {"the same backwards", [](std::uint8_t* input, std::size_t length) { std::reverse(input, input + length); }},
        {"no continuation",
         [](std::uint8_t* input, std::size_t length) {
             for (std::size_t i = 0; i < length; ++i) input[i] &= 0x7F;
         }},
    };
    return changes;
}

void scribble(std::uint8_t* input, std::size_t length, std::mt19937_64& random) {
    for (std::uint64_t times = 1 + random() % 8; times != 0; --times) {
        const std::size_t at = random() % length;
        const std::size_t left = length - at - 1;
        const std::uint64_t bytes[] = {0x00, 0x01, 0x80, 0xFF, left, left + 1, left / 2, random()};
        input[at] = static_cast<std::uint8_t>(bytes[random() % std::size(bytes)]);
    }
}

}  // namespace vesk::test
