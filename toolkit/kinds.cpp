#include "toolkit/kinds.hpp"

#include <vesk/vesk_runtime.h>

#include <cstring>

namespace vesk {
namespace {

template <class Member>
Member load_from(const void* member) {
    Member value;
    std::memcpy(&value, member, sizeof value);
    return value;
}

// With the sign, if the member has one.
template <class Member>
std::uint64_t load_integer(const void* member) {
    return static_cast<std::uint64_t>(load_from<Member>(member));
}

// The low bits.
template <class Member>
void store_to(void* member, std::uint64_t number) {
    const Member value = static_cast<Member>(number);
    std::memcpy(member, &value, sizeof value);
}

constexpr std::uint64_t extend_sign(std::uint64_t low_32) {
    return static_cast<std::uint64_t>(static_cast<std::int32_t>(static_cast<std::uint32_t>(low_32)));
}

// The wire's order of 0, -1, 1, -2 and back.
constexpr std::uint64_t zigzag(std::uint64_t number) { return number << 1 ^ (0 - (number >> 63)); }
constexpr std::uint64_t unzigzag(std::uint64_t wire) { return wire >> 1 ^ (0 - (wire & 1)); }

std::uint64_t number_of_wire(std::uint16_t kind, std::uint64_t wire) {
    switch (kind) {
        case VESK_KIND_UINT32: return static_cast<std::uint32_t>(wire);
        case VESK_KIND_BOOL: return static_cast<std::uint32_t>(wire) != 0;
        case VESK_KIND_SINT32: return unzigzag(static_cast<std::uint32_t>(wire));
        case VESK_KIND_SINT64: return unzigzag(wire);
        case VESK_KIND_INT32:
        case VESK_KIND_ENUM:
        case VESK_KIND_SFIXED32: return extend_sign(wire);
        default: return wire;
    }
}

}  // namespace

std::uint32_t size_of_element(std::uint16_t kind) {
    switch (kind) {
        case VESK_KIND_BOOL: return sizeof(std::uint8_t);
        case VESK_KIND_UINT32:
        case VESK_KIND_SINT32:
        case VESK_KIND_INT32:
        case VESK_KIND_FIXED32:
        case VESK_KIND_SFIXED32:
        case VESK_KIND_FLOAT:
        case VESK_KIND_ENUM: return sizeof(std::uint32_t);
        case VESK_KIND_STRING: return sizeof(char*);
        case VESK_KIND_BYTES: return sizeof(vesk_bytes);
        default: return sizeof(std::uint64_t);
    }
}

bool fits(std::uint16_t kind, std::uint64_t number) {
    if (size_of_element(kind) == 8) return true;
    return has_sign(kind) ? extend_sign(number) == number : number <= UINT32_MAX;
}

std::uint64_t load_number(std::uint16_t kind, const void* member) {
    switch (kind) {
        case VESK_KIND_BOOL: return load_integer<std::uint8_t>(member);
        case VESK_KIND_UINT32:
        case VESK_KIND_FIXED32:
        case VESK_KIND_FLOAT: return load_integer<std::uint32_t>(member);
        case VESK_KIND_SINT32:
        case VESK_KIND_INT32:
        case VESK_KIND_SFIXED32:
        case VESK_KIND_ENUM: return load_integer<std::int32_t>(member);
        default: return load_integer<std::uint64_t>(member);
    }
}

void store_number(std::uint16_t kind, void* member, std::uint64_t number) {
    switch (size_of_element(kind)) {
        case sizeof(std::uint8_t): return store_to<std::uint8_t>(member, number);
        case sizeof(std::uint32_t): return store_to<std::uint32_t>(member, number);
        default: return store_to<std::uint64_t>(member, number);
    }
}

std::uint64_t wire_of_number(std::uint16_t kind, std::uint64_t number) {
    switch (kind) {
        case VESK_KIND_SINT32:
        case VESK_KIND_SINT64: return zigzag(number);
        case VESK_KIND_SFIXED32: return static_cast<std::uint32_t>(number);
        default: return number;
    }
}

const std::uint8_t* read_number(std::uint16_t kind, const std::uint8_t* at, const std::uint8_t* end,
                                std::uint64_t* number) {
    std::uint64_t wire = 0;
    if (const std::uint32_t size = fixed_size(kind); size != 0) {
        if (size > static_cast<std::uint64_t>(end - at)) return nullptr;
        for (std::uint32_t i = 0; i < size; ++i) wire |= std::uint64_t{*at++} << 8 * i;
    } else {
        at = read_long_varint64(at, end, &wire);
        if (at == nullptr) return nullptr;
    }
    *number = number_of_wire(kind, wire);
    return at;
}

}  // namespace vesk
