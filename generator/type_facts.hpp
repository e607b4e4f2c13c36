// What follows from the rows of a type and of all that it nests.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "generator/model.hpp"

namespace vesk::generator {

enum class Pointers { of_32_bits, of_64_bits };

struct Facts {
    std::size_t size = 0;  // of the structure; where pointers have 32 bits, the larger of those that compilers make
    std::size_t alignment = 1;
    std::optional<std::size_t> longest;  // encoding, if there is a longest
    std::size_t memory_per_byte = 0;     // that a decode asks for, for each byte of input: the most, rounded up
    std::vector<std::string> nests;
    std::vector<std::string> nested_by;
};

using FactsByType = std::map<std::string, Facts>;

// `units` stand in the order of their imports: what a message nests was declared in its own unit or in one before.
FactsByType gather_facts(const std::vector<Unit>& units, Pointers pointers);

}  // namespace vesk::generator
