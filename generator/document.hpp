// docs/messages.md: every message type for a reader, from the same facts as the code.
#pragma once

#include <string>
#include <vector>

#include "generator/model.hpp"

namespace vesk::generator {

// `units` stand in the order of their imports: what a message nests was declared in its own unit or in one before.
std::string print_document(const std::vector<Unit>& units);

}  // namespace vesk::generator
