// The library against the interpreter of tests/support, operation by operation: the same code, length and bytes, the
// same segments, the same members down to the block that a pointer points at, the same requests and releases.
#pragma once

#include "fuzz/input.hpp"
#include "tests/support/interpreter.hpp"

namespace vesk::fuzz {

// `table_type` is the input's type as the interpreter knows it.
void hold_against_interpreter(const Input& input, const test::interpreter::TableType& table_type);

}  // namespace vesk::fuzz
