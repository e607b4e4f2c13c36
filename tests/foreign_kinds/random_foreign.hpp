// Messages of any type in a table of facts, filled at random, and damaged encodings of them.
#pragma once

#include <vesk/vesk_facts.h>

#include <memory>
#include <random>
#include <vector>

#include "tests/support/bytes.hpp"

namespace vesk::test {

// Every member is filled in about every second message, with its presence bit or without; strings and bytes in arrays
// are null now and then. Of the identifier nothing is set but an empty structure.
class RandomForeign {
public:
    RandomForeign(const vesk_type* type, std::uint64_t seed);

    const void* get() const { return message_; }

private:
    void fill(const vesk_type* type, std::uint8_t* message);
    void fill_value(std::uint16_t kind, std::uint8_t* member);
    bool chance(unsigned percent) { return random_() % 100 < percent; }
    std::uint8_t* new_block(std::size_t size);
    char* new_string();
    std::uint64_t scalar() { return chance(20) ? ~std::uint64_t{0} >> random_() % 64 : random_() >> random_() % 64; }

    std::mt19937_64 random_;
    std::vector<std::unique_ptr<std::uint64_t[]>> blocks_;
    std::uint8_t* message_;
};

// A sequence of fields with numbers of the type, most of them with a wire type and content that decode takes.
Bytes random_fields(const vesk_type* type, std::mt19937_64& random);

}  // namespace vesk::test
