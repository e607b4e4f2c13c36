// A second implementation of the four operations, of another shape: an interpreter of tests/fields.txt that works on
// raw memory, follows the rules one by one without any thought of speed, and shares no code with runtime/. Where it and
// the library differ, one of them is wrong.
//
// Arguments and results are those of the exported functions, with the type as a row of the table. The entity identifier
// is handled by its own library's four functions, as in the library under test.
#pragma once

#include <vesk/vesk_runtime.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vesk::test::interpreter {

// The words of the table for what a field is; from sint32 on those that messages of others have.
enum class TableKind {
    uint32,
    uint64,
    boolean,
    string,
    bytes,
    message,
    list,
    sint32,
    sint64,
    int32,
    int64,
    fixed32,
    fixed64,
    sfixed32,
    sfixed64,
    float32,
    float64,
    enumeration,
};

struct TableType;

// A row of the table with the place of its members.
struct TableField {
    std::uint32_t number;
    TableKind kind;
    std::size_t bit;
    const TableType* nested;    // of a message or list; null for the entity identifier
    std::size_t offset;         // of the value, or of the pointer
    std::size_t second_offset;  // of a bytes field's length or a list's or repeated field's count
    // Of messages of others: any number of scalars, strings or bytes; of scalars whether they are written in one piece.
    bool repeated = false;
    bool packed = false;
};

struct TableType {
    std::string name;
    std::vector<TableField> fields;
    std::size_t presence_offset;
    std::size_t presence_bytes;
    std::size_t size;
};

// A type of tests/fields.txt, which is read once. Throws std::out_of_range if there is no such type.
const TableType& find_type(const std::string& name);

std::uint64_t encode(const TableType& type, const void* message, void* buffer, std::uint64_t length,
                     vesk_segment* segments, std::uint32_t* segment_count, std::uint32_t flags);
std::int32_t decode(const TableType& type, void* message, const void* buffer, std::uint64_t length, vesk_alloc alloc,
                    void* context, std::uint32_t flags);
std::int32_t duplicate(const TableType& type, void* destination, const void* source, vesk_alloc alloc, void* context);
void release(const TableType& type, void* message, vesk_release release, void* context, std::uint32_t flags);

}  // namespace vesk::test::interpreter
