// The checks that hold the tree to tests/fields.txt. A check returns what it found, one sentence per difference, and
// nothing if all is well.
#pragma once

#include <string>
#include <vector>

#include "tests/support/table.hpp"

namespace vesk::test {

using Findings = std::vector<std::string>;

inline const std::vector<std::string> units{"inventory_db", "client_service"};

// ---- The checks --------------------------------------------------------------------------------------------------

// The table's own promises: bits from 0 in order, counts that are right, numbers and names used once, known kinds, and
// nested types that have a block.
Findings check_table(const Table& table);

// The .proto files, as protoc describes them in a serialised FileDescriptorSet.
Findings check_proto(const Table& table, const std::string& descriptors);

// The field lists, and through them the structures: the offset of every member, the presence bytes, size and alignment,
// compared with what the platform's C ABI makes of the table.
Findings check_structures(const Table& table);

// The text of a unit's header: the members with their types, names and comments, and the presence enumerators.
Findings check_header(const Table& table, const std::string& unit, const std::string& text);

// A unit's list of exported symbols: four functions per type and nothing else.
Findings check_symbols(const Table& table, const std::string& unit, const std::string& symbols);

// ---- For the checks ----------------------------------------------------------------------------------------------

// Compares line by line and tells the first difference, with `what` in front.
void compare_lines(const std::vector<std::string>& expected, const std::vector<std::string>& found,
                   const std::string& what, Findings& findings);

}  // namespace vesk::test
