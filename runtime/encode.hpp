// Encoding: a message into the caller's buffer and segment list. Never fails; what does not fit is counted.
#pragma once

#include "runtime/measure.hpp"

namespace vesk {

// The part of the caller's segment list that a message may fill.
struct Segments {
    vesk_segment* array;
    std::uint32_t capacity;
};

// Where a message goes.
struct Output {
    Buffer buffer;
    Segments segments;
    std::uint32_t flags;
};

// What a message has taken of the buffer and of the segment list so far.
struct Progress {
    std::uint64_t position;
    std::uint64_t run_start;  // where the stretch of the buffer began that is not yet in the list
    std::uint32_t segments_used;
};

// What a message took in all.
struct Encoded {
    std::uint64_t length;
    std::uint32_t segments;
};

template <class Message>
Encoded encode(const Message& message, const Output& output);

// `encode` for the functions that all types share, which do not know the nested type.
using EncodeNested = Encoded (*)(const void* nested, const Output& output);

template <class Nested>
Encoded encode_any(const void* nested, const Output& output) {
    return encode(*static_cast<const Nested*>(nested), output);
}

// Each of these writes one field with its tag and returns the position behind it.
std::uint64_t encode_number(std::uint32_t tag, std::uint64_t value, std::uint64_t position, Buffer buffer);
// The characters are stored whole or not at all.
std::uint64_t encode_string(std::uint32_t tag, const char* string, std::uint64_t position, Buffer buffer);
// The data is stored whole or not at all, or listed as a segment.
Progress encode_bytes(std::uint32_t tag, const std::uint8_t* data, std::uint64_t length, Progress progress,
                      const Output& output);

// Writes a nested message with its tag and its measured size. The position advances by that size whatever the writing
// call says: an imported type that measures one length and writes another cannot move the fields behind it.
Progress encode_nested(std::uint32_t tag, const void* nested, std::uint64_t size, EncodeNested encode_one,
                       Progress progress, const Output& output);

// Writes every element of a list, also an empty one, each with its tag and length.
Progress encode_list(std::uint32_t tag, const void* array, std::uint32_t count, std::size_t element_size,
                     MeasureNested measure_one, EncodeNested encode_one, Progress progress, const Output& output);

// Enters the stretch of the buffer from the run's start to the position into the list.
Progress close_run(Progress progress, const Output& output);

template <class Message>
Encoded encode_imported(const Message& message, const Output& output) {
    const auto& [buffer, segments, flags] = output;
    std::uint32_t count = segments.capacity;
    const std::uint64_t length =
        imported<Message>.encode(&message, buffer.data, buffer.length, segments.array, &count, flags);
    return {length, count};
}

template <class Message, std::size_t Index>
inline Progress encode_field(const Message& message, Progress progress, const Output& output) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    constexpr std::uint32_t tag = tag_of<Message, Index>;
    const bool present = is_present<Message, Index>(message);
    if constexpr (kind == Kind::message) {
        // A nested message with content is written even if its bit is clear.
        // See encode_nested.content_with_clear_bit_is_written.
        using Nested = std::remove_cvref_t<decltype(message.*field.member)>;
        const std::uint64_t size = measure(message.*field.member, output.flags);
        if (size == 0 && !present) return progress;
        return encode_nested(tag, &(message.*field.member), size, encode_any<Nested>, progress, output);
    } else if constexpr (kind == Kind::list) {
        using Element = std::remove_cvref_t<decltype(*(message.*field.array))>;
        if (!present) return progress;
        return encode_list(tag, message.*field.array, message.*field.count, sizeof(Element), measure_any<Element>,
                           encode_any<Element>, progress, output);
    } else if constexpr (kind == Kind::string) {
        if (!present || message.*field.member == nullptr) return progress;
        progress.position = encode_string(tag, message.*field.member, progress.position, output.buffer);
    } else if constexpr (kind == Kind::bytes) {
        if (!present) return progress;
        return encode_bytes(tag, message.*field.data, message.*field.length, progress, output);
    } else {
        if (present) progress.position = encode_number(tag, message.*field.member, progress.position, output.buffer);
    }
    return progress;
}

template <class Message, std::size_t Index = 0>
[[gnu::always_inline]] inline Progress encode_fields(const Message& message, Progress progress, const Output& output) {
    if constexpr (Index == field_count<Message>) {
        return progress;
    } else {
        progress = encode_field<Message, Index>(message, progress, output);
        return encode_fields<Message, Index + 1>(message, progress, output);
    }
}

template <class Message>
[[gnu::noinline]] Encoded encode(const Message& message, const Output& output) {
    if constexpr (is_imported<Message>) {
        return encode_imported(message, output);
    } else {
        Progress progress = encode_fields<Message>(message, {0, 0, 0}, output);
        if (progress.run_start < progress.position) progress = close_run(progress, output);
        return {progress.position, progress.segments_used};
    }
}

}  // namespace vesk
