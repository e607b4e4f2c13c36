// Inputs that are almost a message: what a broken or hostile sender might send.
#pragma once

#include <random>

#include "tests/support/bytes.hpp"

namespace vesk::test {

// Changes an encoding in one to four places: a byte, a cut, a stretch left out, doubled, moved or made of tags and
// lengths, an over-long varint, a field of a wire type that is only skipped.
Bytes damage(Bytes input, std::mt19937_64& random);

}  // namespace vesk::test
