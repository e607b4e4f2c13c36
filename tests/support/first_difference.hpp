// Two messages compared as a caller sees them: members and presence bits, strings, data and lists by their content.
// Padding, presence bits that belong to no field, and where blocks lie, are left out.
#pragma once

#include <string>

#include "tests/support/type_info.hpp"

namespace vesk::test {

// The field in which the messages differ first, with both values: "entity_common_data.3: 7 and 8". Empty if they are
// the same.
std::string first_difference(const TypeInfo& type, const void* left, const void* right);

}  // namespace vesk::test
