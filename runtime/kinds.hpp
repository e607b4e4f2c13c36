// The kinds of a field. What a scalar kind is stands in one structure, and nowhere else.
#pragma once

#include <cstdint>

#include "runtime/wire.hpp"

namespace vesk {

enum class Kind {
    uint32,
    uint64,
    boolean,
    string,
    bytes,
    message,
    list,
    // Of messages of others alone:
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
    repeated,  // scalars
    strings,
    blobs
};

// A scalar kind: its member in the structure, the varint or fixed word on the wire, and how each is made of the other.
// Measuring, writing and reading follow from the wire type and the width of the word.

struct Uint32 {
    static constexpr Kind kind = Kind::uint32;
    static constexpr WireType wire_type = varint_type;
    static constexpr std::uint64_t longest = 5;  // bytes on the wire, without the tag
    using Member = std::uint32_t;
    using Wire = std::uint32_t;

    static constexpr Wire to_wire(std::uint32_t member) { return member; }
    static constexpr std::uint32_t from_wire(Wire value) { return value; }
};

struct Uint64 {
    static constexpr Kind kind = Kind::uint64;
    static constexpr WireType wire_type = varint_type;
    static constexpr std::uint64_t longest = 10;
    using Member = std::uint64_t;
    using Wire = std::uint64_t;

    static constexpr Wire to_wire(std::uint64_t member) { return member; }
    static constexpr std::uint64_t from_wire(Wire value) { return value; }
};

// The member is a byte, which a careless caller may have given another value than 0 or 1: it is written as it stands.
struct Bool {
    static constexpr Kind kind = Kind::boolean;
    static constexpr WireType wire_type = varint_type;
    static constexpr std::uint64_t longest = 2;
    using Member = std::uint8_t;
    using Wire = std::uint32_t;

    static constexpr Wire to_wire(std::uint8_t member) { return member; }
    static constexpr std::uint8_t from_wire(Wire value) { return value != 0; }
};

// A signed number whose sign stands in the lowest bit: -1 is 1, 1 is 2.
struct Sint32 {
    static constexpr Kind kind = Kind::sint32;
    static constexpr WireType wire_type = varint_type;
    static constexpr std::uint64_t longest = 5;
    using Member = std::int32_t;
    using Wire = std::uint32_t;

    static constexpr Wire to_wire(Member member) {
        return member < 0 ? ~static_cast<Wire>(member) << 1 | 1 : static_cast<Wire>(member) << 1;
    }
    static constexpr Member from_wire(Wire value) {
        return static_cast<Member>((value & 1) != 0 ? ~(value >> 1) : value >> 1);
    }
};

struct Sint64 {
    static constexpr Kind kind = Kind::sint64;
    static constexpr WireType wire_type = varint_type;
    static constexpr std::uint64_t longest = 10;
    using Member = std::int64_t;
    using Wire = std::uint64_t;

    static constexpr Wire to_wire(Member member) {
        return member < 0 ? ~static_cast<Wire>(member) << 1 | 1 : static_cast<Wire>(member) << 1;
    }
    static constexpr Member from_wire(Wire value) {
        return static_cast<Member>((value & 1) != 0 ? ~(value >> 1) : value >> 1);
    }
};

// A signed number as 64 bits: ten bytes if it is below 0.
template <Kind OfKind, class OfMember>
struct Signed {
    static constexpr Kind kind = OfKind;
    static constexpr WireType wire_type = varint_type;
    static constexpr std::uint64_t longest = 10;
    using Member = OfMember;
    using Wire = std::uint64_t;

    static constexpr Wire to_wire(Member member) { return static_cast<Wire>(std::int64_t{member}); }
    static constexpr Member from_wire(Wire value) { return static_cast<Member>(value); }
};

struct Int32 : Signed<Kind::int32, std::int32_t> {};
struct Int64 : Signed<Kind::int64, std::int64_t> {};
struct Enum : Signed<Kind::enumeration, std::int32_t> {};  // whatever its value

// A word of four or eight bytes, the lowest first: the member's own, bit by bit.
template <Kind OfKind, class OfMember, class OfWire>
struct Fixed {
    static constexpr Kind kind = OfKind;
    static constexpr WireType wire_type = sizeof(OfWire) == 4 ? fixed32_type : fixed64_type;
    static constexpr std::uint64_t longest = sizeof(OfWire);
    using Member = OfMember;
    using Wire = OfWire;
};

struct Fixed32 : Fixed<Kind::fixed32, std::uint32_t, std::uint32_t> {};
struct Fixed64 : Fixed<Kind::fixed64, std::uint64_t, std::uint64_t> {};
struct Sfixed32 : Fixed<Kind::sfixed32, std::int32_t, std::uint32_t> {};
struct Sfixed64 : Fixed<Kind::sfixed64, std::int64_t, std::uint64_t> {};
struct Float : Fixed<Kind::float32, float, std::uint32_t> {};
struct Double : Fixed<Kind::float64, double, std::uint64_t> {};

// Any other member is that of a nested message, of a field with a length, or of one with a number of elements.
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

// ---- A scalar's value on the wire, without its tag ------------------------------------------------------------------

// The word that a member is on the wire. A floating member is not loaded as such: some processors change what is no
// number.
template <class Scalar>
VESK_INLINE auto wire_word(const typename Scalar::Member& member) {
    if constexpr (Scalar::wire_type != varint_type) {
        typename Scalar::Wire word;
        __builtin_memcpy(&word, &member, sizeof word);
        return word;
    } else {
        return Scalar::to_wire(member);
    }
}

template <class Scalar>
VESK_INLINE std::uint64_t measure_value(typename Scalar::Wire value) {
    if constexpr (Scalar::wire_type != varint_type) return sizeof value;
    return measure_varint(value);
}

template <class Scalar>
VESK_INLINE std::uint8_t* put_value(std::uint8_t* at, typename Scalar::Wire value) {
    if constexpr (Scalar::wire_type != varint_type) return put_fixed(at, value);
    return put_varint(at, value);
}

template <class Scalar>
VESK_INLINE std::uint8_t* put_value_before(std::uint8_t* at, typename Scalar::Wire value) {
    if constexpr (Scalar::wire_type != varint_type) {
        put_fixed(at - sizeof value, value);
        return at - sizeof value;
    } else {
        return put_varint_before(at, value);
    }
}

template <class Scalar>
VESK_INLINE std::uint64_t write_value(typename Scalar::Wire value, std::uint64_t position, Buffer buffer) {
    if constexpr (Scalar::wire_type != varint_type) {
        return write_fixed(value, position, buffer);
    } else {
        return write_varint(value, position, buffer);
    }
}

}  // namespace vesk
