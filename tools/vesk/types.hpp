// Message types by name, and what the tool knows of them beyond the toolkit's table.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>
#include <string>
#include <vector>

#include "toolkit/kinds.hpp"

namespace vesk::tool {

// The 95 types, in the order of the headers; with a schema in use its own (schema.hpp).
std::vector<const vesk_type*> all_types();

// Of these names the one that `name` was probably meant to be.
std::string nearest(const std::string& name, const std::vector<std::string>& known);

// Throws Failure, with the name that is nearest: "no type is called pem_dat; the nearest is pem_data".
const vesk_type* find_type(const std::string& name);

// A nested type's own description: another library's, if it has one, else null.
const vesk_type* describe(const vesk_type* type);

// What is said of a nested type that describe() knows nothing of.
std::string opaque_in_words(const vesk_type* type);

// "uint32", "repeated sint32, packed".
std::string kind_name(const vesk_field* field);

// The functions of a type in its library, which take a message of any type.
struct Functions {
    std::uint64_t (*encode)(const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                            std::uint32_t* segment_count, std::uint32_t flags);
    std::int32_t (*decode)(void* message, const void* buffer, std::uint64_t length, vesk_alloc alloc, void* context,
                           std::uint32_t flags);
    std::int32_t (*duplicate)(void* destination, const void* source, vesk_alloc alloc, void* context);
    void (*free)(void* message, vesk_release release, void* context, std::uint32_t flags);
};
Functions functions_of(const vesk_type* type);

// A structure and its blocks, which are given back at the end.
class Message {
public:
    explicit Message(const vesk_type* type);
    ~Message();
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    const vesk_type* type() const { return type_; }
    void* get() { return storage_.data(); }
    static void* alloc(std::uint64_t size, void* arena) { return vesk_arena_alloc(size, arena); }
    vesk_arena* arena() { return &arena_; }
    std::int32_t decode(const void* bytes, std::uint64_t length);

private:
    const vesk_type* type_;
    std::vector<std::uint64_t> storage_;
    vesk_arena arena_;
};

}  // namespace vesk::tool
