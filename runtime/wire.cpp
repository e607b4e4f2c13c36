#include "runtime/wire.hpp"

namespace vesk {
namespace {

// Steps over continuation bytes up to and including the first byte without bit 7. Null if there is none before `end`.
const std::uint8_t* skip_continuation(const std::uint8_t* at, const std::uint8_t* end) {
    while (at < end) {
        if (*at++ < 0x80) return at;
    }
    return nullptr;
}

// Steps over `length` bytes, or to `end` if there are fewer.
const std::uint8_t* skip_bytes(std::uint64_t length, const std::uint8_t* at, const std::uint8_t* end) {
    return length < static_cast<std::uint64_t>(end - at) ? at + length : end;
}

}  // namespace

// Extra continuation bytes are accepted and ignored: other encoders write a negative number in ten bytes.
// See read_varint32.ten_byte_negative_keeps_low_bits.
const std::uint8_t* read_long_varint32(const std::uint8_t* at, const std::uint8_t* end, std::uint32_t* value) {
    std::uint32_t result = 0;
    for (unsigned shift = 0; shift <= 28; shift += 7) {
        if (at >= end) return nullptr;
        const std::uint32_t byte = *at++;
        result |= (byte & 0x7F) << shift;  // of the fifth group only 4 bits fit
        if (byte < 0x80) {
            *value = result;
            return at;
        }
    }
    at = skip_continuation(at, end);
    if (at != nullptr) *value = result;
    return at;
}

const std::uint8_t* read_long_varint64(const std::uint8_t* at, const std::uint8_t* end, std::uint64_t* value) {
    std::uint64_t result = 0;
    for (unsigned shift = 0; shift <= 63; shift += 7) {
        if (at >= end) return nullptr;
        const std::uint64_t byte = *at++;
        result |= (byte & 0x7F) << shift;  // of the tenth group only 1 bit fits
        if (byte < 0x80) {
            *value = result;
            return at;
        }
    }
    at = skip_continuation(at, end);
    if (at != nullptr) *value = result;
    return at;
}

Step skip_field(std::uint32_t wire_type, const std::uint8_t* at, const std::uint8_t* end) {
    switch (wire_type) {
        case varint_type: at = skip_continuation(at, end); return {at, at != nullptr ? VESK_OK : VESK_MALFORMED};
        case fixed64_type: return {skip_bytes(8, at, end), VESK_OK};
        case length_type: {
            std::uint32_t length;
            at = read_varint32(at, end, &length);
            if (at == nullptr) return {nullptr, VESK_MALFORMED};
            return {skip_bytes(length, at, end), VESK_OK};
        }
        case fixed32_type: return {skip_bytes(4, at, end), VESK_OK};
        default: return {nullptr, VESK_UNKNOWN_WIRE_TYPE};
    }
}

}  // namespace vesk
