// The values of a message, whoever holds them: a structure of the library, a message of protobuf, or nobody yet. Two
// messages say the same if their records are equal.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "tests/support/type_info.hpp"

namespace google::protobuf {
class Message;
}

namespace vesk::test {

struct Record;

// Of one field. What its kind does not need is zero or empty.
struct Value {
    std::uint64_t number = 0;     // uint32, uint64, bool
    std::string text;             // string, bytes
    std::vector<Record> records;  // the one nested message, or the elements of a list

    bool operator==(const Value& other) const;
};

struct Record {
    std::map<std::uint32_t, Value> values;  // by field number; only what is present
    Bytes unknown;                          // fields that the type does not have, as they are encoded

    bool operator==(const Record& other) const;
};

// For failing tests: { 1: 5 2: "north" }.
void PrintTo(const Record& record, std::ostream* out);

// What a structure holds: a field is present if its bit is set.
Record stored_values(const TypeInfo& type, const void* message);
// What the library writes of a structure: nested messages with content count as present, a null string does not, and a
// flag is 0 or 1.
Record written_values(const TypeInfo& type, const void* message);

Record values_of(const google::protobuf::Message& message);
// Fills a cleared message. Unknown fields are left out.
void set_values(const Record& record, google::protobuf::Message& message);

// The encoding of a record without unknown fields, by the rules that everybody shares.
enum class Order { declared, by_number };
Bytes encoded(const TypeInfo& type, const Record& record, Order order);

}  // namespace vesk::test
