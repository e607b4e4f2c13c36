// Lists in encoded bytes.
#pragma once

#include "runtime/wire.hpp"

namespace vesk {

// The position after the tag of a list's next element, `at` being that after an element; null if the list ends here. It
// goes on for as long as the field number stays: the wire type of its tags is not looked at, as in decode.
inline const std::uint8_t* next_element(std::uint32_t number, const std::uint8_t* at, const std::uint8_t* end) {
    const Varint tag = read_tag(at, end);
    const bool goes_on = tag.at != nullptr && field_number_of_tag(static_cast<std::uint32_t>(tag.value)) == number;
    return goes_on ? tag.at : nullptr;
}

}  // namespace vesk
