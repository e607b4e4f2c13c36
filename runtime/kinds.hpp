// The kinds of a field. What a scalar kind is stands in one structure, and nowhere else.
#pragma once

#include <cstdint>

#include "runtime/wire.hpp"

namespace vesk {

enum class Kind { uint32, uint64, boolean, string, bytes, message, list };

// A scalar kind: its member in the structure, the varint on the wire, and how each is made of the other. Measuring,
// writing and reading follow from the width of the varint.

struct Uint32 {
    static constexpr Kind kind = Kind::uint32;
    static constexpr WireType wire_type = varint_type;
    static constexpr std::uint64_t longest = 5;  // bytes on the wire, without the tag
    using Wire = std::uint32_t;

    static constexpr Wire to_wire(std::uint32_t member) { return member; }
    static constexpr std::uint32_t from_wire(Wire value) { return value; }
};

struct Uint64 {
    static constexpr Kind kind = Kind::uint64;
    static constexpr WireType wire_type = varint_type;
    static constexpr std::uint64_t longest = 10;
    using Wire = std::uint64_t;

    static constexpr Wire to_wire(std::uint64_t member) { return member; }
    static constexpr std::uint64_t from_wire(Wire value) { return value; }
};

// The member is a byte, which a careless caller may have given another value than 0 or 1: it is written as it stands.
struct Bool {
    static constexpr Kind kind = Kind::boolean;
    static constexpr WireType wire_type = varint_type;
    static constexpr std::uint64_t longest = 2;
    using Wire = std::uint32_t;

    static constexpr Wire to_wire(std::uint8_t member) { return member; }
    static constexpr std::uint8_t from_wire(Wire value) { return value != 0; }
};

// Any other member is that of a nested message, bytes field or list.
struct NoScalar {
    static constexpr Kind kind = Kind::message;
    static constexpr WireType wire_type = length_type;
    static constexpr std::uint64_t longest = 0;
};

// The kind that follows from the type of a member.
template <class Member>
struct ScalarOfMember : NoScalar {};
template <>
struct ScalarOfMember<std::uint32_t> : Uint32 {};
template <>
struct ScalarOfMember<std::uint64_t> : Uint64 {};
template <>
struct ScalarOfMember<std::uint8_t> : Bool {};

}  // namespace vesk
