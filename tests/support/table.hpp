// tests/fields.txt, the table of all message types that was typed in by hand, as data, and the layout that the
// platform's C ABI gives to a type of the table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vesk::test {

struct Row {
    std::uint32_t number;
    std::string name;
    // uint32 uint64 bool string bytes message list; in messages of others also sint32 sint64 int32 int64 fixed32
    // fixed64 sfixed32 sfixed64 float double enum, and any of them, string or bytes with repeated_ or packed_ before
    // it.
    std::string kind;
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

// Throws std::runtime_error with the number of a line that is no comment, type or row.
Table parse_table(const std::string& text);

// The entity identifier, which the table leaves out: the libraries rely on its layout.
const Type& entity_identifier();

// "2 f2 string, bit 1" or "1 eid message drin_eid_st, bit 0".
std::string to_string(const Row& row);

bool is_repeated(const Row& row);

// What a member or a structure takes.
struct Extent {
    std::size_t size;
    std::size_t alignment;
};

struct Layout {
    std::vector<std::size_t> offsets;         // of each row's first member
    std::vector<std::size_t> second_offsets;  // of a bytes field's length, a list's or repeated field's count; else 0
    std::size_t presence_offset = 0;
    Extent whole{0, 1};
};

// Throws std::runtime_error if a nested type is not in the table.
Layout layout_of(const Table& table, const Type& type);

}  // namespace vesk::test
