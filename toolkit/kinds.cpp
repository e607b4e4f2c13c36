#include "toolkit/kinds.hpp"

#include <vesk/vesk_runtime.h>

#include <cstring>

namespace vesk {
namespace {

// A whole number with the size and sign of a scalar's member, which is that itself or has its bits.
template <class Scalar>
using Whole = typename std::conditional_t<std::is_floating_point_v<typename Scalar::Member>,
                                          std::type_identity<typename Scalar::Wire>,
                                          std::type_identity<typename Scalar::Member>>::type;

}  // namespace

std::uint32_t size_of_element(std::uint16_t kind) {
    if (kind == VESK_KIND_STRING) return sizeof(char*);
    if (kind == VESK_KIND_BYTES) return sizeof(vesk_bytes);
    return with_scalar(kind, [](auto scalar) -> std::uint32_t { return sizeof(typename decltype(scalar)::Member); });
}

bool fits(std::uint16_t kind, std::uint64_t number) {
    return with_scalar(kind, [number](auto scalar) {
        using Scalar = decltype(scalar);
        if (sizeof(Whole<Scalar>) == 1) return number <= UINT32_MAX;  // a flag is read as any number of 32 bits
        return static_cast<std::uint64_t>(static_cast<Whole<Scalar>>(number)) == number;
    });
}

std::uint64_t load_number(std::uint16_t kind, const void* member) {
    return with_scalar(kind, [member](auto scalar) {
        Whole<decltype(scalar)> value;
        std::memcpy(&value, member, sizeof value);
        return static_cast<std::uint64_t>(value);
    });
}

void store_number(std::uint16_t kind, void* member, std::uint64_t number) {
    with_scalar(kind, [member, number](auto scalar) {
        const auto value = static_cast<Whole<decltype(scalar)>>(number);
        std::memcpy(member, &value, sizeof value);
    });
}

std::uint64_t wire_of_number(std::uint16_t kind, std::uint64_t number) {
    return with_scalar(kind, [number](auto scalar) -> std::uint64_t {
        using Scalar = decltype(scalar);
        const auto value = static_cast<Whole<Scalar>>(number);
        if constexpr (Scalar::wire_type != varint_type) {
            return static_cast<typename Scalar::Wire>(value);
        } else {
            return Scalar::to_wire(value);
        }
    });
}

const std::uint8_t* read_number(std::uint16_t kind, const std::uint8_t* at, const std::uint8_t* end,
                                std::uint64_t* number) {
    return with_scalar(kind, [=](auto scalar) {
        using Scalar = decltype(scalar);
        if constexpr (Scalar::wire_type != varint_type) {
            typename Scalar::Wire word;
            const std::uint8_t* const after = read_fixed(at, end, &word);
            if (after != nullptr) *number = static_cast<std::uint64_t>(static_cast<Whole<Scalar>>(word));
            return after;
        } else {
            std::uint64_t wire = 0;
            const std::uint8_t* const after = read_long_varint64(at, end, &wire);
            const auto word = static_cast<typename Scalar::Wire>(wire);
            if (after != nullptr) *number = static_cast<std::uint64_t>(Scalar::from_wire(word));
            return after;
        }
    });
}

}  // namespace vesk
