// The byte map of an encoded message: every byte belongs to exactly one span.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tools/vesk/differences.hpp"

namespace vesk::tool {

enum class Role { tag, length, value, unknown, beyond };

const char* name_of(Role role);

struct Span {
    std::uint64_t from;
    std::uint64_t to;  // exclusive
    Role role;
    std::uint32_t depth;  // messages around it
    // Both are there during the call alone.
    std::string_view path;  // of the field; of unknown and beyond the message that they stand in
    std::string_view text;  // what it means; characters of a message's strings are escaped
};

// Calls `take` for each span, by offset; none is empty. `report` is the pre-flight's, of the same input: where it names
// an error, the refused tag is a tag, and what follows it is beyond.
void for_each_span(const vesk_type* type, const std::uint8_t* input, std::uint64_t length, const vesk_report& report,
                   const std::function<void(const Span&)>& take);

// A place that a general protobuf parser would read in another way.
struct Difference {
    std::uint64_t at;       // offset of the field's tag
    std::string_view path;  // of the field; of an unknown one the message that it stands in; during the call alone
    const RowText* row;
};

// Calls `take` for each of them that decoding meets, by offset; `report` as above.
void for_each_difference(const vesk_type* type, const std::uint8_t* input, std::uint64_t length,
                         const vesk_report& report, const std::function<void(const Difference&)>& take);

}  // namespace vesk::tool
