// A message as text, for comparing two of them: every member of every field, every presence byte, strings and data
// with their content, nested messages and lists in full. Padding is left out.
#pragma once

#include <functional>
#include <string>

#include "tests/support/type_info.hpp"

namespace vesk::test {

// `name_pointer` tells a pointer member apart from others, beyond what it points at: its offset in an arena, say.
std::string describe(const TypeInfo& type, const void* message,
                     const std::function<std::string(const void*)>& name_pointer);

}  // namespace vesk::test
