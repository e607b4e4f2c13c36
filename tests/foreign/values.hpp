// Random messages on both sides, and the comparison of the two.
#pragma once

#include <random>

#include "tests/foreign/schema.hpp"

namespace vesk::test {

using Random = std::mt19937_64;

// Fills protobuf's message: any values, texts in UTF-8 without a NUL, enumerations with the values that they name.
void fill(google::protobuf::Message* message, Random& random);

// Fills a structure with what a caller may put there, also what protobuf has no form for: an empty list that is
// present, a null string, a message without its bit. Enumerations whose values are closed get those that they name.
void fill(Structure* structure, Random& random);

// The first difference between a structure and protobuf's message, "held.number: 3, not 4"; empty if they agree: if the
// message has what the structure writes.
std::string difference(const Structure& structure, const google::protobuf::Message& message);

}  // namespace vesk::test
