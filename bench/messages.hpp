// Messages for measurements, drawn from a fixed seed: the same on every machine.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/type_info.hpp"

namespace vesk::bench {

using test::Bytes;
using test::FieldInfo;
using test::TypeInfo;

// How messages of a workload are drawn.
struct Recipe {
    unsigned percent_set = 100;     // of the fields of every message, nested ones included
    bool same_fields = false;       // all elements of a list have the same fields set
    std::uint32_t records = 0;      // elements of all lists together, dealt out one by one; entity identifiers have few
    std::uint32_t first_list = 0;   // the list that gets the first of them
    std::uint64_t bytes_size = 64;  // of every bytes field
};

// A message with all that it points to. Strings have 4 to 24 characters, numbers any width with the same probability,
// entity identifiers 0 to 3 elements.
class DrawnMessage {
public:
    DrawnMessage(const TypeInfo& type, const Recipe& recipe, std::uint64_t seed);

    const void* get() const { return message_.get(); }

private:
    void fill(const TypeInfo& type, void* message, unsigned depth);
    bool fill_field(const FieldInfo& field, void* message, unsigned depth, std::uint32_t elements);
    bool fill_list(const FieldInfo& field, void* message, unsigned depth, std::uint32_t count);
    std::uint64_t number() { return values_() >> values_() % 64; }
    std::uint8_t* new_block(std::size_t size);

    Recipe recipe_;
    std::mt19937_64 choices_;  // which fields are set, how many elements a list has
    std::mt19937_64 values_;   // what is in them
    std::vector<std::unique_ptr<std::uint8_t[]>> blocks_;
    test::Storage message_;
};

// What a message takes in memory and on the wire.
struct Extent {
    std::uint64_t structures = 0;    // bytes of the message and of its lists' elements
    std::uint64_t longest_part = 0;  // bytes of the longest string or bytes field, or elements of the longest list
};

Extent extent_of(const TypeInfo& type, const void* message);

}  // namespace vesk::bench
