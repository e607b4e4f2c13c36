#include "tests/support/bytes.hpp"

#include <cctype>
#include <stdexcept>

namespace vesk::test {

Bytes hex(std::string_view digits) {
    std::string packed;
    for (char c : digits) {
        if (std::isspace(static_cast<unsigned char>(c))) continue;
        if (!std::isxdigit(static_cast<unsigned char>(c)))
            throw std::invalid_argument("not hexadecimal: " + std::string(digits));
        packed += c;
    }
    if (packed.size() % 2 != 0) throw std::invalid_argument("half a byte: " + std::string(digits));
    Bytes bytes;
    for (std::size_t i = 0; i < packed.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(packed.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

std::string to_hex(const Bytes& bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string result;
    for (std::uint8_t byte : bytes) {
        if (!result.empty()) result += ' ';
        result += digits[byte >> 4];
        result += digits[byte & 15];
    }
    return result;
}

Bytes varint(std::uint64_t value) {
    Bytes bytes;
    for (; value > 0x7F; value >>= 7) bytes.push_back(static_cast<std::uint8_t>(0x80 | (value & 0x7F)));
    bytes.push_back(static_cast<std::uint8_t>(value));
    return bytes;
}

Bytes over_long(std::uint64_t value, std::size_t size) {
    Bytes bytes = varint(value);
    if (bytes.size() > size) throw std::invalid_argument("the value needs more bytes");
    while (bytes.size() < size) {
        bytes.back() |= 0x80;
        bytes.push_back(0);
    }
    return bytes;
}

Bytes tag(std::uint32_t number, std::uint32_t wire_type) { return varint(std::uint64_t{number} << 3 | wire_type); }

Bytes concatenate(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes sized(const Bytes& content) { return message(varint(content.size()), content); }

Bytes text(std::string_view characters) { return sized(Bytes(characters.begin(), characters.end())); }

}  // namespace vesk::test
