// Encodings that no encoder makes: fields of any type in a table of facts, in any order and of any wire type.
#pragma once

#include <vesk/vesk_facts.h>

#include <random>

#include "tests/support/bytes.hpp"

namespace vesk::test {

// A sequence of fields with numbers of the type, most of them with a wire type and content that decode takes.
Bytes random_fields(const vesk_type* type, std::mt19937_64& random);

}  // namespace vesk::test
