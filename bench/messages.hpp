// Messages for measurements, drawn from a fixed seed: the same on every machine.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/type_info.hpp"

namespace vesk::bench {

using test::Bytes;
using test::FieldInfo;
using test::TypeInfo;

// A message with all that it points to.
class Message {
public:
    explicit Message(const TypeInfo& type) : structure_(type, 0) {}

    void* get() { return structure_.get(); }
    const void* get() const { return structure_.get(); }

    // Zeroed, and there for as long as the message is.
    std::uint8_t* new_block(std::size_t size);

private:
    test::Storage structure_;
    std::vector<std::unique_ptr<std::uint8_t[]>> blocks_;
};

// How the messages of a workload are drawn.
struct Recipe {
    bool daily = false;          // all messages have the same fields set, and each field values of its own narrow range
    unsigned percent_set = 100;  // of the fields of every message, nested ones included
    bool same_fields = false;    // all elements of a list have the same fields set
    std::uint32_t records = 0;   // elements of all lists together, dealt out one by one; entity identifiers have few
    std::uint64_t bytes_size = 64;  // of every bytes field
};

// The message whose turn it is in a workload. Strings have 4 to 24 characters, scalars any width with the same
// probability, entity identifiers 0 to 3 elements. The first record goes to another list in each turn.
//
// In a daily one, a field's strings differ in length by no more than 2. Of its 32-bit scalars three quarters take one
// byte and most of the others two; one in sixteen, and each of 64 bits, is a counter that grows from turn to turn. A
// flag is what it always is in fifteen of sixteen messages.
Message draw_message(const TypeInfo& type, const Recipe& recipe, std::size_t turn);

// What a message takes in memory and on the wire.
struct Extent {
    std::uint64_t structures = 0;    // bytes of the message and of its lists' elements
    std::uint64_t longest_part = 0;  // bytes of the longest string or bytes field, or elements of the longest list
};

Extent extent_of(const TypeInfo& type, const void* message);

}  // namespace vesk::bench
