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
    Output rest{{nullptr, 0}, {nullptr, 0, true}, flags};
    if (progress.position < buffer.length) {
        rest.buffer = {buffer.data + progress.position, buffer.length - progress.position};
    }
    if (progress.segments_used < segments.capacity) {
        rest.segments.array = segments.array + progress.segments_used;
        rest.segments.capacity = segments.capacity - progress.segments_used;
    }
    return rest;
}

// Enters the stretch of the buffer from the run's start to the position into the list.
void close_run(Progress& progress, const Output& output) {
    progress.segments_used =
        add_segment(address_of(progress.run_start, output.buffer), progress.position - progress.run_start,
                    progress.segments_used, output.segments);
    progress.run_start = progress.position;
}

// One segment covers the message itself, if it is not empty.
std::uint32_t count_segments(Written written, const std::uint8_t* begin) {
    return static_cast<std::uint32_t>(written.segments + (written.at != begin));
}

// Encodes the unchecked way. Returns a null position if segments are to be listed or the message does not fit.
[[gnu::always_inline]] inline Written write_unchecked(const void* message, const Output& output, const Ways& ways) {
    const auto& [buffer, segments, flags] = output;
    if (segments.capacity != 0) return does_not_fit;
    if (segments.counted && (flags & VESK_BYTES_BY_REFERENCE) != 0) return does_not_fit;
    // A length that no buffer can have is held to the buffer byte by byte.
    const std::uint64_t behind = ~reinterpret_cast<std::uintptr_t>(buffer.data);
    if (buffer.length > behind || buffer.length > PTRDIFF_MAX) return does_not_fit;
    Target target{buffer.data, buffer.data + buffer.length, buffer.data, flags};
    return ways.write_pieces(message, target);
}

[[gnu::noinline]] Encoded encode_checked(const void* message, const Output& output, const Ways& ways) {
    Progress progress{0, 0, 0};
    ways.encode_fields(message, progress, output);
    if (progress.run_start < progress.position) close_run(progress, output);
    return {progress.position, progress.segments_used};
}

// Writes a nested message that is not left out.
void encode_measured(std::uint32_t tag, const void* nested, std::uint64_t size, const NestedEncoder& encoder,
                     Progress& progress, const Output& output) {
    progress.position = write_varint(tag, progress.position, output.buffer);
    progress.position = write_length(size, progress.position, output.buffer);
    const Encoded encoded = encoder.encode(nested, rest_of(output, progress));
    progress.segments_used += encoded.segments;
    progress.position += size;
}

}  // namespace

void encode_numbers(const void* message, std::uint64_t presence, WriteNumbers write, Progress& progress,
                    const Output& output) {
    std::uint8_t aside[longest_of_all_numbers];
    const std::uint8_t* const end = write(message, presence, aside);
    for (const std::uint8_t* at = aside; at < end; ++at) {
        progress.position = write_byte(*at, progress.position, output.buffer);
    }
}

void encode_string(std::uint32_t tag, const char* string, Progress& progress, const Output& output) {
    const std::uint64_t length = std::strlen(string);
    progress.position = write_varint(tag, progress.position, output.buffer);
    progress.position = write_length(length, progress.position, output.buffer);
    store_whole(string, length, progress.position, output.buffer);
    progress.position += length;
}

void encode_bytes(std::uint32_t tag, const std::uint8_t* data, std::uint64_t length, Progress& progress,
                  const Output& output) {
    progress.position = write_varint(tag, progress.position, output.buffer);
    progress.position = write_length(length, progress.position, output.buffer);
    const std::uint64_t size = bytes_size(length, progress.position, output.flags);
    store_whole(data, size, progress.position, output.buffer);
    progress.position += size;
    if ((output.flags & VESK_BYTES_BY_REFERENCE) != 0 && length != 0) {
        close_run(progress, output);
        progress.segments_used = add_segment(data, length, progress.segments_used, output.segments);
    }
}

void encode_nested(std::uint32_t tag, const void* nested, bool present, const NestedEncoder& encoder,
                   Progress& progress, const Output& output) {
    const std::uint64_t size = encoder.measure(nested, output.flags);
    if (size != 0 || present) encode_measured(tag, nested, size, encoder, progress, output);
}

void encode_list(std::uint32_t tag, const void* array, std::uint32_t count, const NestedEncoder& encoder,
                 Progress& progress, const Output& output) {
    const char* element = static_cast<const char*>(array);
    for (std::uint32_t i = 0; i < count; ++i, element += encoder.size) {
        encode_measured(tag, element, encoder.measure(element, output.flags), encoder, progress, output);
    }
}

Encoded encode(const void* message, const Output& output, const Ways& ways) {
    const std::uint8_t* const begin = output.buffer.data;
    const Written written = write_unchecked(message, output, ways);
    if (written.at == nullptr) return encode_checked(message, output, ways);
    return {static_cast<std::uint64_t>(written.at - begin), count_segments(written, begin)};
}

std::uint64_t encode_ext(const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                         std::uint32_t* segment_count, std::uint32_t flags, const Ways& ways) {
    // Without a count nothing can be listed, as with a list that has no room.
    const bool counted = segment_count != nullptr;
    const Output output{
        {static_cast<std::uint8_t*>(buffer), length}, {segments, counted ? *segment_count : 0, counted}, flags};
    const Written written = write_unchecked(message, output, ways);
    if (written.at != nullptr) {
        if (counted) *segment_count = count_segments(written, output.buffer.data);
        return static_cast<std::uint64_t>(written.at - output.buffer.data);
    }
    const Encoded encoded = encode_checked(message, output, ways);
    if (counted) *segment_count = encoded.segments;
    return encoded.length;
}

}  // namespace vesk
