// What the outputs need to know of a .proto file: messages with their fields, in C names.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace vesk::generator {

enum class Kind { uint32, uint64, boolean, string, bytes, message, list };

struct Field {
    std::string name;
    std::uint32_t number;
    Kind kind;
    std::string nested;   // C name of the nested message or element type; empty for the other kinds
    std::string comment;  // what stands after the field in the .proto file, on one line
};

struct Message {
    std::string name;    // C name, with the prefix
    std::string family;  // heading of the family that begins here; empty inside a family
    std::string comment;
    std::vector<Field> fields;
};

struct Unit {
    std::string name;  // of the .proto file, without .proto
    std::string prefix;
    std::string comment;
    std::string licence;  // the line with which it names its licence, if it has one; what is made of it says the same
    std::vector<std::string> imports;          // every imported file, without .proto
    std::vector<std::string> library_imports;  // those of the same library
    // C names of another library's messages that this unit holds and that no unit in library_imports holds, and the
    // unit of each.
    std::map<std::string, std::string> imported_messages;
    std::vector<Message> messages;
};

struct Options {
    std::string prefix = "vesk";
    std::set<std::string> imported;
    // Files about all units, written instead of code; both empty: code.
    std::string document;
    std::string sizes;
};

// Reads a parameter as protoc hands it over. False with one line in `error` if it is not understood.
bool read_options(const std::string& parameter, Options* options, std::string* error);

// False with one line in `error` if the file uses something that the wire rules do not have, or declares a message
// after one that holds it.
bool read_unit(const google::protobuf::FileDescriptor& file, const Options& options, Unit* unit, std::string* error);

std::string upper_case(const std::string& text);

}  // namespace vesk::generator
