#include "runtime/encode.hpp"

namespace vesk {
namespace {

// True if `length` bytes from `position` on lie inside the buffer. No sum, so nothing wraps.
bool fits(std::uint64_t length, std::uint64_t position, Buffer buffer) {
    return length <= buffer.length && position <= buffer.length - length;
}

// Stores `length` bytes whole or not at all.
void store_whole(const void* data, std::uint64_t length, std::uint64_t position, Buffer buffer) {
    if (length != 0 && fits(length, position, buffer)) {
        std::memcpy(buffer.data + position, data, static_cast<std::size_t>(length));
    }
}

// Enters a segment into the list if it has room; counts it either way.
std::uint32_t add_segment(const void* data, std::uint64_t length, std::uint32_t used, Segments segments) {
    if (segments.capacity > used) segments.array[used] = {data, length};
    return used + 1;
}

// The address of a position, computed as an integer: the buffer may be null, and the position may lie behind its end.
const void* address_of(std::uint64_t position, Buffer buffer) {
    const std::uintptr_t base = reinterpret_cast<std::uintptr_t>(buffer.data);
    return reinterpret_cast<const void*>(base + static_cast<std::uintptr_t>(position));
}

// What is left of an output for a nested message: (null, 0) where nothing is.
Output rest_of(const Output& output, Progress progress) {
    const auto& [buffer, segments, flags] = output;
    Output rest{{nullptr, 0}, {nullptr, 0}, flags};
    if (progress.position < buffer.length) {
        rest.buffer = {buffer.data + progress.position, buffer.length - progress.position};
    }
    if (progress.segments_used < segments.capacity) {
        rest.segments = {segments.array + progress.segments_used, segments.capacity - progress.segments_used};
    }
    return rest;
}

}  // namespace

std::uint64_t encode_number(std::uint32_t tag, std::uint64_t value, std::uint64_t position, Buffer buffer) {
    position = write_varint(tag, position, buffer);
    return write_varint(value, position, buffer);
}

std::uint64_t encode_string(std::uint32_t tag, const char* string, std::uint64_t position, Buffer buffer) {
    const std::uint64_t length = std::strlen(string);
    position = write_varint(tag, position, buffer);
    position = write_length(length, position, buffer);
    store_whole(string, length, position, buffer);
    return position + length;
}

Progress close_run(Progress progress, const Output& output) {
    progress.segments_used =
        add_segment(address_of(progress.run_start, output.buffer), progress.position - progress.run_start,
                    progress.segments_used, output.segments);
    progress.run_start = progress.position;
    return progress;
}

Progress encode_bytes(std::uint32_t tag, const std::uint8_t* data, std::uint64_t length, Progress progress,
                      const Output& output) {
    progress.position = write_varint(tag, progress.position, output.buffer);
    progress.position = write_length(length, progress.position, output.buffer);
    const std::uint64_t size = bytes_size(length, progress.position, output.flags);
    store_whole(data, size, progress.position, output.buffer);
    progress.position += size;
    if ((output.flags & VESK_BYTES_BY_REFERENCE) != 0 && length != 0) {
        progress = close_run(progress, output);
        progress.segments_used = add_segment(data, length, progress.segments_used, output.segments);
    }
    return progress;
}

Progress encode_nested(std::uint32_t tag, const void* nested, std::uint64_t size, EncodeNested encode_one,
                       Progress progress, const Output& output) {
    progress.position = write_varint(tag, progress.position, output.buffer);
    progress.position = write_length(size, progress.position, output.buffer);
    const Encoded encoded = encode_one(nested, rest_of(output, progress));
    progress.position += size;
    progress.segments_used += encoded.segments;
    return progress;
}

Progress encode_list(std::uint32_t tag, const void* array, std::uint32_t count, std::size_t element_size,
                     MeasureNested measure_one, EncodeNested encode_one, Progress progress, const Output& output) {
    const char* element = static_cast<const char*>(array);
    for (std::uint32_t i = 0; i < count; ++i, element += element_size) {
        const std::uint64_t size = measure_one(element, output.flags);
        progress = encode_nested(tag, element, size, encode_one, progress, output);
    }
    return progress;
}

}  // namespace vesk
