// Options as this version of the library knows them, whatever version the caller was compiled with.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>
#include <cstring>

namespace vesk {

// Copies what both versions of a structure that begins with its size have, and leaves the rest of `known` as it is.
template <class Structure>
void copy_common(Structure& known, const void* given, std::size_t given_size) {
    std::memcpy(&known, given, given_size < sizeof known ? given_size : sizeof known);
}

inline vesk_options read_options(const vesk_options* given) {
    vesk_options options = vesk_default_options();
    if (given != nullptr) copy_common(options, given, given->size);
    return options;
}

// Fills the caller's structure, which may be of another version, and leaves its size as it is.
template <class Structure>
void write_common(Structure* out, const Structure& value) {
    const std::size_t size = out->size;
    std::memcpy(out, &value, size < sizeof value ? size : sizeof value);
    out->size = size;
}

}  // namespace vesk
