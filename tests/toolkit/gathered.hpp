// What vesk_gather makes of a message, as a test wants to look at it.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <string>
#include <vector>

#include "tests/support/bytes.hpp"

namespace vesk::test {

inline const vesk_type* facts_of(const std::string& name) { return vesk_type_named(name.c_str()); }

struct Gathered {
    std::int32_t code;
    std::uint64_t length;  // as it was told
    std::uint32_t count;
    Bytes buffer;
    std::vector<vesk_segment> segments;

    // The segments put together.
    Bytes joined() const {
        Bytes bytes;
        for (const vesk_segment& segment : segments) {
            const auto* data = static_cast<const std::uint8_t*>(segment.data);
            bytes.insert(bytes.end(), data, data + segment.length);
        }
        return bytes;
    }
    bool is_in_buffer(const vesk_segment& segment) const {
        const auto* data = static_cast<const std::uint8_t*>(segment.data);
        return buffer.data() <= data && data < buffer.data() + buffer.size();
    }
};

// Into a buffer and a list of just the size that is needed.
inline Gathered gather(const vesk_type* type, const void* message, std::uint64_t threshold = 1) {
    vesk_options options = vesk_default_options();
    options.gather_threshold = threshold;
    Gathered gathered{};
    gathered.code = vesk_gather(type, message, nullptr, &gathered.length, nullptr, &gathered.count, &options);
    if (gathered.code != VESK_TOO_SHORT) return gathered;
    gathered.buffer.resize(gathered.length);
    gathered.segments.resize(gathered.count);
    gathered.code = vesk_gather(type, message, gathered.buffer.data(), &gathered.length, gathered.segments.data(),
                                &gathered.count, &options);
    return gathered;
}

}  // namespace vesk::test
