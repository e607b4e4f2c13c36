// What the tests over every type know of a message type: the facts of its field list and its four functions, the C++
// type itself forgotten. So one loop of ordinary code serves all types.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "runtime/schema.hpp"
#include "tests/support/bytes.hpp"
#include "tests/support/ledger.hpp"

namespace vesk::test {

struct TypeInfo;

struct FieldInfo {
    std::uint32_t number;
    Kind kind;
    std::size_t offset;
    std::size_t second_offset;  // of a bytes field's length, a list's or repeated field's count; else 0
    const TypeInfo* nested;     // of a nested message or of a list's elements; else null
    Kind element = kind;        // of a repeated field of scalars: what they are
    bool packed = false;
};

// The size of a scalar kind's member; 0 for any other kind.
std::size_t size_of_scalar(Kind kind);
inline bool is_scalar_kind(Kind kind) { return size_of_scalar(kind) != 0; }

// True for scalars, strings or bytes of which a field has any number.
constexpr bool is_repeated_kind(Kind kind) {
    return kind == Kind::repeated || kind == Kind::strings || kind == Kind::blobs;
}

// True for a scalar that is a varint on the wire.
inline bool is_varint_kind(Kind kind) {
    return is_scalar_kind(kind) && (kind < Kind::fixed32 || kind == Kind::enumeration);
}

struct TypeInfo {
    std::string name;  // "pem_data"
    std::size_t size;
    std::size_t alignment;
    std::size_t presence_offset;
    std::size_t presence_size;
    std::vector<FieldInfo> fields;

    std::uint64_t (*encode)(const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                            std::uint32_t* segment_count, std::uint32_t flags);
    std::int32_t (*decode)(void* message, const void* buffer, std::uint64_t length, vesk_alloc alloc, void* context,
                           std::uint32_t flags);
    std::int32_t (*duplicate)(void* destination, const void* source, vesk_alloc alloc, void* context);
    void (*free)(void* message, vesk_release release, void* context, std::uint32_t flags);
};

// Every type with exported functions. The entity identifier and its elements are reached as nested types only.
const std::vector<const TypeInfo*>& all_types();
// Null if there is no such type.
const TypeInfo* find_type(const std::string& name);

// ---- Messages whose type is known only at run time ---------------------------------------------------------------

// A member of a message. Members are copied bytewise: a pointer member's type is not known here.
template <class Member>
Member load(const void* message, std::size_t offset) {
    Member member;
    std::memcpy(&member, static_cast<const std::uint8_t*>(message) + offset, sizeof member);
    return member;
}

template <class Member>
void store(void* message, std::size_t offset, Member member) {
    std::memcpy(static_cast<std::uint8_t*>(message) + offset, &member, sizeof member);
}

// A scalar as the bits of its member; of what is stored, those that fit.
std::uint64_t load_scalar(Kind kind, const void* message, std::size_t offset);
void store_scalar(Kind kind, void* message, std::size_t offset, std::uint64_t value);

inline const std::uint8_t* member_at(const void* message, std::size_t offset) {
    return static_cast<const std::uint8_t*>(message) + offset;
}

inline std::uint8_t* element_at(void* array, const TypeInfo& type, std::size_t index) {
    return static_cast<std::uint8_t*>(array) + index * type.size;
}

bool is_present(const TypeInfo& type, const void* message, std::size_t field_index);

// True if every member is zero or null and no field is present, nested messages included.
bool is_clear(const TypeInfo& type, const void* message);

// True if every field is present, in nested messages and list elements too, and no list is empty.
bool is_full(const TypeInfo& type, const void* message);

// Every block that the message owns if it was decoded or duplicated: strings, bytes fields, lists and repeated fields
// with their elements, nested ones too.
std::vector<const void*> owned_blocks(const TypeInfo& type, const void* message);

// The encoding in a buffer of exactly its length, as `encoded` gives it for a type known to the compiler.
Bytes encoded(const TypeInfo& type, const void* message, std::uint32_t flags = 0);

// Raw storage for one message, of exactly its size.
class Storage {
public:
    explicit Storage(const TypeInfo& type, std::uint8_t fill = 0x5A) : bytes_(new std::uint8_t[type.size]) {
        std::memset(bytes_.get(), fill, type.size);
    }
    void* get() { return bytes_.get(); }
    const void* get() const { return bytes_.get(); }

private:
    std::unique_ptr<std::uint8_t[]> bytes_;
};

// A message with the ledger that owns its blocks, and its input. Freed at the end of its scope.
struct AnyDecoded {
    explicit AnyDecoded(const TypeInfo& type, const Bytes& bytes, std::uint32_t flags = 0);
    ~AnyDecoded() { type.free(message.get(), Ledger::release, &ledger, flags); }
    AnyDecoded(const AnyDecoded&) = delete;
    AnyDecoded& operator=(const AnyDecoded&) = delete;

    const TypeInfo& type;
    // A copy of its own, of exactly the input's length: reading behind it is seen by a sanitizer.
    std::unique_ptr<std::uint8_t[]> input;
    std::uint32_t flags;
    Ledger ledger;
    Storage message;
    std::int32_t code;
};

}  // namespace vesk::test
