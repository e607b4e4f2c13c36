// tests/fields.txt as data, and the checks that hold the tree to it. A check returns what it found, one sentence per
// difference, and nothing if all is well.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vesk::test {

struct Row {
    std::uint32_t number;
    std::string name;
    std::string kind;  // uint32 uint64 bool string bytes message list
    std::uint32_t bit;
    std::string nested;  // the type of a message or list; else empty
};

struct Type {
    std::string name;
    std::string unit;
    std::size_t field_count;  // as stated in front of the rows
    std::size_t presence_bytes;
    std::vector<Row> rows;
};

struct Table {
    std::vector<Type> types;

    const Type* find(const std::string& name) const;
    Type& at(const std::string& name);
};

using Findings = std::vector<std::string>;

inline const std::vector<std::string> units{"inventory_db", "client_service"};

// Throws std::runtime_error with the number of a line that is no comment, type or row.
Table parse_table(const std::string& text);

// The entity identifier, which the table leaves out: the libraries rely on its layout.
const Type& entity_identifier();

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
Findings check_header(const Table& table, const std::string& unit, const std::string& header);

// A unit's list of exported symbols: four functions per type and nothing else.
Findings check_symbols(const Table& table, const std::string& unit, const std::string& symbols);

// ---- For the checks ----------------------------------------------------------------------------------------------

// "2 f2 string, bit 1" or "1 eid message drin_eid_st, bit 0".
std::string to_string(const Row& row);

// Compares line by line and tells the first difference, with `what` in front.
void compare_lines(const std::vector<std::string>& expected, const std::vector<std::string>& found,
                   const std::string& what, Findings& findings);

}  // namespace vesk::test
