// Which rows of the table of differences (docs/other_messages.md) an input touches. An input that touches none is read
// alike by both, down to the last value.
#pragma once

#include <google/protobuf/descriptor.h>

#include <set>
#include <string>

#include "tests/support/bytes.hpp"

namespace vesk::test {

// Each a test of the suite foreign_differences.
std::set<std::string> rows_of(const google::protobuf::Descriptor& type, const Bytes& input);

}  // namespace vesk::test
