// Where in a message something is, as "port_list[1].entity_common.f2".
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>

namespace vesk {

inline constexpr std::uint32_t no_element = UINT32_MAX;

// A field, or an element of a list, of the message at `outer`; null at the top. One for each level, on the stack.
struct Place {
    const Place* outer;
    const vesk_field* field;
    std::uint32_t element;  // no_element: the field as a whole
};

// `path` has VESK_PATH_SIZE bytes; what does not fit is cut off at the end. Returns the length.
std::uint32_t print_path(const Place* place, char* path);

}  // namespace vesk
