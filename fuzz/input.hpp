// What the fuzzer's bytes mean: the first ones choose the message type and the circumstances of the calls, the others
// are the message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/support/type_info.hpp"

namespace vesk::fuzz {

using test::TypeInfo;

// The bytes in front of the message. A target looks at those that mean something to it.
namespace header {
inline constexpr std::size_t type = 0;        // its place in target_types(), which is gone round
inline constexpr std::size_t flags = 1;       // bits 0 to 6: of the flags word; bit 7: there is no allocation callback
inline constexpr std::size_t refused = 2;     // two bytes, little-endian: bit n refuses allocation n + 1
inline constexpr std::size_t room = 4;        // two bytes, little-endian: of the buffer that is encoded into
inline constexpr std::size_t capacity = 6;    // of the segment list
inline constexpr std::size_t distortion = 7;  // see distort() in messages.hpp; 0: the message stays as decoded
inline constexpr std::size_t size = 8;
}  // namespace header

struct Input {
    const TypeInfo* type;
    std::uint32_t flags;
    bool has_alloc;
    std::uint32_t refused;
    std::uint32_t room;
    std::uint32_t capacity;
    std::uint32_t distortion;
    const std::uint8_t* message;
    std::size_t length;
};

// The types that inputs are of: those of the library, unless a target defines this itself.
const std::vector<const TypeInfo*>& target_types();

const TypeInfo& type_of_input(const std::uint8_t* data);

// What a target does with an input; each target defines it.
void check(const Input& input);

// Says what does not hold, and of which input, then ends the program: the fuzzer keeps the input.
[[noreturn]] void fail(const char* what);

inline void expect(bool holds, const char* what) {
    if (!holds) fail(what);
}

}  // namespace vesk::fuzz
