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

inline constexpr vesk_options default_options{sizeof(vesk_options), 0, 1, nullptr, nullptr, nullptr, 0};

// The caller's options, or what stands for them: the defaults, or in `own` those of another version.
inline const vesk_options& read_options(const vesk_options* given, vesk_options* own) {
    if (given == nullptr) return default_options;
    if (given->size == sizeof *given) return *given;
    *own = default_options;
    copy_common(*own, given, given->size);
    return *own;
}

// Fills the caller's structure, which may be of another version, and leaves its size as it is.
template <class Structure>
void write_common(Structure* out, const Structure& value) {
    const std::size_t size = out->size;
    std::memcpy(out, &value, size < sizeof value ? size : sizeof value);
    out->size = size;
}

}  // namespace vesk
