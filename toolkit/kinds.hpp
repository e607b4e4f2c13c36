// What the kinds of fields are in a structure and on the wire, those of other people's messages included. Where the
// library's own kinds are met first, and speed counts, they are told apart before anything here is asked.
//
// A scalar's number has 64 bits: of a kind with a sign two's complement, of a float or double its bits, of a flag the
// byte that the member has, or 0 or 1 if it was read from the wire.
#pragma once

#include <vesk/vesk_facts.h>

#include <cstdint>
#include <type_traits>

#include "runtime/kinds.hpp"
#include "runtime/repeated.hpp"

namespace vesk {

constexpr bool is_repeated_field(const vesk_field* field) { return field->kind >= VESK_KIND_REPEATED; }

// Of a repeated field its elements' kind, of any other its own.
constexpr std::uint16_t kind_of_values(const vesk_field* field) {
    return static_cast<std::uint16_t>(field->kind & ~VESK_KIND_REPEATED);
}

// Of a kind without VESK_KIND_REPEATED.
constexpr bool is_scalar_kind(std::uint16_t kind) { return kind <= VESK_KIND_BOOL || kind > VESK_KIND_LIST; }

// Whether a field has a number of elements beside its pointer.
constexpr bool has_count(const vesk_field* field) { return field->kind == VESK_KIND_LIST || is_repeated_field(field); }

constexpr bool is_repeated_scalar(const vesk_field* field) {
    return is_repeated_field(field) && is_scalar_kind(kind_of_values(field));
}

// Calls `visit` with the structure of a scalar kind.
template <class Visit>
constexpr auto with_scalar(std::uint16_t kind, Visit visit) {
    switch (kind) {
        case VESK_KIND_UINT32: return visit(Uint32{});
        case VESK_KIND_BOOL: return visit(Bool{});
        case VESK_KIND_SINT32: return visit(Sint32{});
        case VESK_KIND_SINT64: return visit(Sint64{});
        case VESK_KIND_INT32: return visit(Int32{});
        case VESK_KIND_INT64: return visit(Int64{});
        case VESK_KIND_FIXED32: return visit(Fixed32{});
        case VESK_KIND_FIXED64: return visit(Fixed64{});
        case VESK_KIND_SFIXED32: return visit(Sfixed32{});
        case VESK_KIND_SFIXED64: return visit(Sfixed64{});
        case VESK_KIND_FLOAT: return visit(Float{});
        case VESK_KIND_DOUBLE: return visit(Double{});
        case VESK_KIND_ENUM: return visit(Enum{});
        default: return visit(Uint64{});
    }
}

// Of a scalar that stands by itself.
constexpr WireType wire_type_of_scalar(std::uint16_t kind) {
    return with_scalar(kind, [](auto scalar) { return scalar.wire_type; });
}

// Bytes that a scalar kind always takes on the wire; 0 if that is a varint.
constexpr std::uint32_t fixed_size(std::uint16_t kind) {
    const WireType wire_type = wire_type_of_scalar(kind);
    return wire_type == varint_type ? 0 : static_cast<std::uint32_t>(width_of(wire_type));
}

// Of a whole number: whether it may be below 0.
constexpr bool has_sign(std::uint16_t kind) {
    return with_scalar(kind, [](auto scalar) {
        using Member = typename decltype(scalar)::Member;
        return std::is_integral_v<Member> && std::is_signed_v<Member>;
    });
}

// Whether decode reads a tag of the field's number as this field: a repeated scalar field may come packed or not.
constexpr bool takes_tag(const vesk_field* field, std::uint32_t tag) {
    if (field->tag == tag) return true;
    const std::uint32_t wire_type = wire_type_of_tag(tag);
    return is_repeated_scalar(field) &&
           (wire_type == length_type || wire_type == wire_type_of_scalar(kind_of_values(field)));
}

constexpr bool is_packed_field(const vesk_field* field) {
    return is_repeated_scalar(field) && wire_type_of_tag(field->tag) == length_type;
}

// Bytes of an element in a repeated field's array.
std::uint32_t size_of_element(std::uint16_t kind);

// Whether a whole number fits a kind's member.
bool fits(std::uint16_t kind, std::uint64_t number);

// A scalar's member, and its number.
std::uint64_t load_number(std::uint16_t kind, const void* member);
void store_number(std::uint16_t kind, void* member, std::uint64_t number);

// What stands on the wire for a scalar's number: a varint's value, or the bits of four or eight bytes.
std::uint64_t wire_of_number(std::uint16_t kind, std::uint64_t number);

// Reads a scalar. The position after it, or null if it runs past `end`; `*number` is written only on success.
const std::uint8_t* read_number(std::uint16_t kind, const std::uint8_t* at, const std::uint8_t* end,
                                std::uint64_t* number);

// Steps over one; null if it runs past `end`.
inline const std::uint8_t* skip_number(std::uint16_t kind, const std::uint8_t* at, const std::uint8_t* end) {
    const std::uint32_t size = fixed_size(kind);
    if (size == 0) return skip_varint(at, end);
    return size <= static_cast<std::uint64_t>(end - at) ? at + size : nullptr;
}

}  // namespace vesk
