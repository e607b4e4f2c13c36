// The seven routines of the wire format, as its rules are written: a position is an offset, checked before each byte.
// Each unit has a copy of its own.
#pragma once

#include <vesk/vesk_runtime.h>

#include <cstdint>

namespace {

// Steps over the bytes of a varint from its last possible one on, which has been read.
[[maybe_unused]] std::int32_t skip_continuation(std::uint8_t byte, std::uint64_t at, std::uint64_t* position,
                                                const std::uint8_t* buffer, std::uint64_t length) {
    while ((byte & 0x80) != 0) {
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
    }
    *position = at;
    return VESK_OK;
}

[[maybe_unused]] std::int32_t read_varint32(std::uint32_t* value, std::uint64_t* position, const std::uint8_t* buffer,
                                            std::uint64_t length) {
    std::uint64_t at = *position;
    std::uint32_t result;
    std::uint8_t byte;
    do {
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result = byte & 0x7Fu;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= (byte & 0x7Fu) << 7;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= (byte & 0x7Fu) << 14;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= (byte & 0x7Fu) << 21;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= static_cast<std::uint32_t>(byte) << 28;
        const std::int32_t code = skip_continuation(byte, at, &at, buffer, length);
        if (code != VESK_OK) return code;
    } while (false);
    if (value != nullptr) *value = result;
    *position = at;
    return VESK_OK;
}

[[maybe_unused]] std::int32_t read_varint64(std::uint64_t* value, std::uint64_t* position, const std::uint8_t* buffer,
                                            std::uint64_t length) {
    std::uint64_t at = *position;
    std::uint64_t result;
    std::uint8_t byte;
    do {
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result = byte & 0x7Fu;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= static_cast<std::uint64_t>(byte & 0x7F) << 7;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= static_cast<std::uint64_t>(byte & 0x7F) << 14;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= static_cast<std::uint64_t>(byte & 0x7F) << 21;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= static_cast<std::uint64_t>(byte & 0x7F) << 28;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= static_cast<std::uint64_t>(byte & 0x7F) << 35;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= static_cast<std::uint64_t>(byte & 0x7F) << 42;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= static_cast<std::uint64_t>(byte & 0x7F) << 49;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= static_cast<std::uint64_t>(byte & 0x7F) << 56;
        if ((byte & 0x80) == 0) break;
        if (at >= length) return VESK_MALFORMED;
        byte = buffer[at++];
        result |= static_cast<std::uint64_t>(byte) << 63;
        const std::int32_t code = skip_continuation(byte, at, &at, buffer, length);
        if (code != VESK_OK) return code;
    } while (false);
    if (value != nullptr) *value = result;
    *position = at;
    return VESK_OK;
}

// The position may pass the end: that ends the message.
[[maybe_unused]] std::int32_t skip_field(std::uint32_t wire_type, std::uint64_t* position, const std::uint8_t* buffer,
                                         std::uint64_t length) {
    switch (wire_type) {
        case 0: return read_varint32(nullptr, position, buffer, length);
        case 1: *position += 8; return VESK_OK;
        case 2: {
            std::uint32_t size;
            const std::int32_t code = read_varint32(&size, position, buffer, length);
            if (code != VESK_OK) return code;
            *position += size;
            return VESK_OK;
        }
        case 5: *position += 4; return VESK_OK;
        default: return VESK_UNKNOWN_WIRE_TYPE;
    }
}

[[maybe_unused]] std::uint64_t write_tag1(std::uint32_t tag, std::uint64_t position, std::uint8_t* buffer,
                                          std::uint64_t length) {
    if (position < length) buffer[position] = static_cast<std::uint8_t>(tag);
    return position + 1;
}

[[maybe_unused]] std::uint64_t write_tag2(std::uint32_t tag, std::uint64_t position, std::uint8_t* buffer,
                                          std::uint64_t length) {
    if (position < length) buffer[position] = static_cast<std::uint8_t>(tag);
    ++position;
    if ((tag & 0x80) != 0) {
        if (position < length) buffer[position] = 1;
        ++position;
    }
    return position;
}

[[maybe_unused]] std::uint64_t write_varint32(std::uint32_t value, std::uint64_t position, std::uint8_t* buffer,
                                              std::uint64_t length) {
    while (value > 0x7F) {
        if (position < length) buffer[position] = static_cast<std::uint8_t>((value & 0x7F) | 0x80);
        value >>= 7;
        ++position;
    }
    if (position < length) buffer[position] = static_cast<std::uint8_t>(value);
    return position + 1;
}

[[maybe_unused]] std::uint64_t write_varint64(std::uint64_t value, std::uint64_t position, std::uint8_t* buffer,
                                              std::uint64_t length) {
    while (value > 0x7F) {
        if (position < length) buffer[position] = static_cast<std::uint8_t>((value & 0x7F) | 0x80);
        value >>= 7;
        ++position;
    }
    if (position < length) buffer[position] = static_cast<std::uint8_t>(value);
    return position + 1;
}

// A stretch of the output as a segment. The address is computed even if the buffer is null.
[[maybe_unused]] vesk_segment run(const std::uint8_t* buffer, std::uint64_t start, std::uint64_t end) {
    return {reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(buffer) + start), end - start};
}

}  // namespace
