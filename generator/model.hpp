// What the outputs need to know of a .proto file: messages with their fields, in C names.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "generator/names.hpp"

namespace vesk::generator {

enum class Kind {
    uint32,
    uint64,
    boolean,
    string,
    bytes,
    message,
    list,  // a repeated message
    // Only in the messages of others:
    sint32,
    sint64,
    int32,
    int64,
    fixed32,
    fixed64,
    sfixed32,
    sfixed64,
    single_float,
    double_float,
    enumeration
};

struct Field {
    std::string name;          // in the schema
    std::string member;        // in the structure
    std::string count_member;  // with the length of bytes or the number of elements; empty for the other kinds
    std::string presence;      // the enumerator of its presence bit
    std::uint32_t number;
    Kind kind;
    bool is_repeated = false;  // another kind than a list
    bool is_packed = false;
    std::string nested;   // C name of the nested message or element type; empty for the other kinds
    std::string comment;  // of the .proto file, on one line
    std::string remarks;  // what else is to be known of it, each after "; "
};

struct Enumerator {
    std::string name;
    std::int32_t number;
    std::string comment;
};

struct Enumeration {
    std::string name;
    std::string comment;
    std::vector<Enumerator> values;
};

struct Message {
    std::string name;        // C name, with the prefix
    std::string table_name;  // in the table of facts
    std::string family;      // heading of the family that begins here; empty inside a family
    std::string comment;
    std::vector<Enumeration> enumerations;  // that are nested in it
    std::vector<Field> fields;
};

struct Unit {
    std::string name;  // of the .proto file, without .proto, also in the table of facts
    std::string guard;
    std::string comment;
    std::string licence;  // the line with which it names its licence, if it has one; what is made of it says the same
    std::vector<std::string> notes;  // what its header says of all its messages, each a comment
    // As they stand after #include.
    std::string header;
    std::string field_lists;
    std::vector<std::string> imported_headers;
    std::vector<std::string> imported_field_lists;  // those of the same library
    // C names of another library's messages that this unit holds and that no unit of the same library that it imports
    // holds, with the name in the table and the unit of each.
    struct Imported {
        std::string table_name;
        std::string unit;
    };
    std::map<std::string, Imported> imported_messages;
    std::vector<Enumeration> enumerations;
    std::vector<Message> messages;
};

// All files that one call makes code of, and what they import.
struct Library {
    std::string name;
    std::vector<Unit> units;  // each after those that it imports
};

struct Options {
    bool is_house = false;  // the layout of this repository's own units
    std::string prefix;
    std::string library;
    std::set<std::string> imported;
    // Files about all units, written instead of code; both empty: code.
    std::string document;
    std::string sizes;
};

// What the generator cannot serve: one line that says where, what and the way around.
struct Refusal {
    std::string line;
};

// Reads a parameter as protoc hands it over. Throws Refusal.
Options read_options(const std::string& parameter);

// Throws Refusal if the file uses something that this repository's own messages do not have, or declares a message
// after one that holds it.
Unit read_house_unit(const google::protobuf::FileDescriptor& file, const Options& options);

// Reads the messages of others. Throws Refusal.
Library read_library(const std::vector<const google::protobuf::FileDescriptor*>& files, const Options& options);

// ---- For the two readers -------------------------------------------------------------------------------------------

std::string without_proto(const std::string& file_name);

// One line, as a comment's text stands in the .proto file.
std::string join_lines(const std::string& comment);

// Refuses `what` of something that a .proto file has: "unit.proto:3: record.f1: WHAT".
template <class Descriptor>
[[noreturn]] void refuse(const Descriptor& descriptor, const google::protobuf::FileDescriptor& file,
                         const std::string& what) {
    std::string name = descriptor.full_name();
    if (!file.package().empty()) name = name.substr(file.package().size() + 1);
    google::protobuf::SourceLocation location;
    const bool is_known = descriptor.GetSourceLocation(&location);
    throw Refusal{file.name() + ":" + (is_known ? std::to_string(location.start_line + 1) + ": " : " ") + name + ": " +
                  what};
}
[[noreturn]] void refuse_file(const google::protobuf::FileDescriptor& file, const std::string& what);

// The comment of the whole file, which stands before its syntax, and its licence.
void read_file_comment(const google::protobuf::FileDescriptor& file, Unit* unit);

// The kind of a field that is neither a group nor a map.
Kind kind_of(const google::protobuf::FieldDescriptor& field);

}  // namespace vesk::generator
