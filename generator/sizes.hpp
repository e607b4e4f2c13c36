// vesk_sizes.h: what is known of each type while compiling, for callers.
#pragma once

#include <string>
#include <vector>

#include "generator/model.hpp"

namespace vesk::generator {

// `units` as for gather_facts.
std::string print_sizes(const std::vector<Unit>& units);

}  // namespace vesk::generator
