// A library of another schema, which protoc-gen-vesk has made: with one, its types and functions stand for the 95.
#pragma once

#include <vesk/vesk_facts.h>

#include <string>

namespace vesk::tool {

// Loads the library, whose own code may run then. From now on all_types, find_type and functions_of are those of it.
// Throws Failure.
void use_schema(const std::string& library);

// The first of its types; null if none is in use.
const vesk_type* first_of_schema();

// One of its functions; throws Failure if it has none of this name.
void* function_of_schema(const std::string& name);

}  // namespace vesk::tool
