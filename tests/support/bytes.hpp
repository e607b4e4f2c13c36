// The vocabulary in which tests spell bytes, so that a case reads as the message it sends:
//
//     message(tag(3, varint_type), over_long(150, 5), tag(13, length_type), text("north"))
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/wire.hpp"

namespace vesk::test {

using Bytes = std::vector<std::uint8_t>;

// Bytes from hexadecimal digits; blanks are ignored.
Bytes hex(std::string_view digits);
std::string to_hex(const Bytes& bytes);

Bytes varint(std::uint64_t value);
// A varint of exactly `size` bytes: continuation bytes without content behind the value.
Bytes over_long(std::uint64_t value, std::size_t size);
Bytes tag(std::uint32_t number, std::uint32_t wire_type);

Bytes concatenate(const std::vector<Bytes>& parts);

template <class... Parts>
Bytes message(const Parts&... parts) {
    return concatenate({Bytes(parts)...});
}

// Content behind its length, as a string, bytes field or nested message stands behind its tag.
Bytes sized(const Bytes& content);
Bytes text(std::string_view characters);

// A whole field.
inline Bytes number_field(std::uint32_t number, std::uint64_t value) {
    return message(tag(number, varint_type), varint(value));
}
inline Bytes text_field(std::uint32_t number, std::string_view characters) {
    return message(tag(number, length_type), text(characters));
}
inline Bytes message_field(std::uint32_t number, const Bytes& content) {
    return message(tag(number, length_type), sized(content));
}

}  // namespace vesk::test
