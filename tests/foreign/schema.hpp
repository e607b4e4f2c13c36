// A library of generated messages beside a general protobuf that reads the same .proto files: its functions, found by
// name as the command vesk finds them, its table of facts, and for each of its types protobuf's description.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <vesk/vesk_facts.h>
#include <vesk/vesk_runtime.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/bytes.hpp"

namespace vesk::test {

struct ForeignType {
    const vesk_type* facts;
    const google::protobuf::Descriptor* descriptor;
    std::uint64_t (*encode)(const void*, void*, std::uint64_t, vesk_segment*, std::uint32_t*, std::uint32_t);
    std::int32_t (*decode)(void*, const void*, std::uint64_t, vesk_alloc, void*, std::uint32_t);
    std::int32_t (*duplicate)(void*, const void*, vesk_alloc, void*);
    void (*free)(void*, vesk_release, void*, std::uint32_t);

    std::string name() const { return vesk_type_name(facts); }
    std::unique_ptr<google::protobuf::Message> new_message() const;
};

class ForeignSchema {
public:
    // Opens a library and the files of its types, looked for in the folders. Ends the program if one is missing.
    ForeignSchema(const std::string& library, const std::vector<std::string>& folders);
    ForeignSchema(const ForeignSchema&) = delete;
    ForeignSchema& operator=(const ForeignSchema&) = delete;
    ~ForeignSchema();

    const std::vector<ForeignType>& types() const { return types_; }
    const ForeignType& type_of(const google::protobuf::Descriptor* descriptor) const;
    const ForeignType& named(const std::string& name) const;
    void* symbol(const std::string& name) const;

private:
    struct Files;
    void add_type(const vesk_type* facts);

    std::unique_ptr<Files> files_;
    void* library_;
    std::vector<ForeignType> types_;
};

// The one that the tests are given.
const ForeignSchema& schema();

// ---- Structures, by the table ---------------------------------------------------------------------------------------

// A structure on the heap, with what it owns.
class Structure {
public:
    explicit Structure(const ForeignType& type);  // empty
    Structure(const Structure&) = delete;
    Structure& operator=(const Structure&) = delete;
    ~Structure();

    const ForeignType& type() const { return type_; }
    void* get() { return memory_.get(); }
    const void* get() const { return memory_.get(); }

    Bytes encode() const;
    std::int32_t decode(const Bytes& input, std::uint32_t flags = 0);
    std::int32_t duplicate(const Structure& source);

private:
    const ForeignType& type_;
    std::unique_ptr<char[]> memory_;
    std::uint32_t flags_ = 0;
};

std::size_t blocks_in_use();
void take_lost_blocks();  // those that a nested message lost that came a second time
void* give_block(std::uint64_t size, void*);
void take_block(void* block, void*);

template <class Value>
Value load(const void* structure, std::uint32_t offset) {
    Value value;
    std::memcpy(&value, static_cast<const char*>(structure) + offset, sizeof value);
    return value;
}
template <class Value>
void store(void* structure, std::uint32_t offset, Value value) {
    std::memcpy(static_cast<char*>(structure) + offset, &value, sizeof value);
}

bool has_bit(const vesk_type* type, const vesk_field* field, const void* structure);
void set_bit(const vesk_type* type, const vesk_field* field, void* structure);

// Bytes of a value of a kind, without VESK_KIND_REPEATED, in an array.
std::size_t size_of_kind(unsigned kind);

}  // namespace vesk::test
