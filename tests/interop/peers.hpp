// The two implementations that are compared, each behind the same few calls.
#pragma once

#include <memory>
#include <string>

#include "tests/interop/record.hpp"
#include "tests/support/arena.hpp"

namespace vesk::test {

// What an implementation makes of an input.
struct Reading {
    bool accepted;
    Record record;  // empty if refused

    bool operator==(const Reading& other) const { return accepted == other.accepted && record == other.record; }
};

void PrintTo(const Reading& reading, std::ostream* out);

// A cleared message of protobuf's generated code, by the type's name: "pem_data".
std::unique_ptr<google::protobuf::Message> new_message(const std::string& type_name);

// Null if protobuf refuses the input.
std::unique_ptr<google::protobuf::Message> parsed(const std::string& type_name, const Bytes& input);

Bytes serialized(const google::protobuf::Message& message);

Reading read_by_protobuf(const TypeInfo& type, const Bytes& input);

// The library's decoder with its memory; one type, any number of inputs.
class LibraryReader {
public:
    explicit LibraryReader(const TypeInfo& type) : type_(type), message_(type) {}

    Reading read(const Bytes& input);

private:
    const TypeInfo& type_;
    // Nothing is given back in it, so a block that the contract gives up for lost is none.
    Arena arena_{1 << 22};
    Storage message_;
};

// What comes out when an input is read and written again: the bytes in hexadecimal, or "refused". The library says with
// which code.
std::string through_protobuf(const std::string& type_name, const Bytes& input);
std::string through_library(const std::string& type_name, const Bytes& input);

// VESK_TEST_ROUNDS in the environment, or 200.
std::uint64_t rounds();

}  // namespace vesk::test
