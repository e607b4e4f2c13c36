// Encoding: a message into the caller's buffer and segment list. Never fails; what does not fit is counted.
//
// There are two ways to one result. A message that fits is written without a check for each byte (pieces.hpp). Where
// the buffer is short, or segments are listed, every store and every segment is checked; that way stands here. It is
// rare, and so it is small rather than fast.
#pragma once

#include "runtime/pieces.hpp"

namespace vesk {

// The part of the caller's segment list that a message may fill.
struct Segments {
    vesk_segment* array;
    std::uint32_t capacity;
    bool counted;  // false if the caller asks for no count
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

// The two ways of a message type. The messages are of that type.
struct Ways {
    Written (*write_pieces)(const void* message, Target& target);
    void (*encode_fields)(const void* message, Progress& progress, const Output& output);
};

template <class Message>
void encode_fields(const void* untyped, Progress& progress, const Output& output);

template <class Message>
inline constexpr Ways ways_of{write_pieces<Message>, encode_fields<Message>};

// Encodes a message that stands by itself or in another one.
Encoded encode(const void* message, const Output& output, const Ways& ways);

template <class Message>
Encoded encode_any(const void* message, const Output& output) {
    if constexpr (is_imported<Message>) {
        std::uint32_t count = output.segments.capacity;
        const std::uint64_t length =
            imported<Message>.encode(static_cast<const Message*>(message), output.buffer.data, output.buffer.length,
                                     output.segments.array, &count, output.flags);
        return {length, count};
    } else {
        return encode(message, output, ways_of<Message>);
    }
}

template <class Message>
std::uint64_t measure_any(const void* untyped, std::uint32_t flags) {
    const Message& message = *static_cast<const Message*>(untyped);
    if constexpr (is_imported<Message>) {
        return measure_imported(message, flags);
    } else {
        Sizes<Message> sizes;
        return measure(message, sizes, flags).size;
    }
}

// What the functions that all types share need to know of a nested type.
struct NestedEncoder {
    std::size_t size;  // of the structure
    std::uint64_t (*measure)(const void* nested, std::uint32_t flags);
    Encoded (*encode)(const void* nested, const Output& output);
};

template <class Message>
inline constexpr NestedEncoder encoder_of{sizeof(Message), measure_any<Message>, encode_any<Message>};

// ---- The checked way -----------------------------------------------------------------------------------------------

// Each of these writes one field with its tag, or a run of numbers with theirs.
void encode_numbers(const void* message, std::uint64_t presence, WriteNumbers write, Progress& progress,
                    const Output& output);
// The characters are stored whole or not at all.
void encode_string(std::uint32_t tag, const char* string, Progress& progress, const Output& output);
// The data is stored whole or not at all, or listed as a segment.
void encode_bytes(std::uint32_t tag, const std::uint8_t* data, std::uint64_t length, Progress& progress,
                  const Output& output);
// A nested message is written if it has content or is present. The position advances by its measured size whatever the
// writing call says: an imported type that measures one length and writes another cannot move the fields behind it.
void encode_nested(std::uint32_t tag, const void* nested, bool present, const NestedEncoder& encoder,
                   Progress& progress, const Output& output);
// Every element is written, also an empty one, each with its tag and length.
void encode_list(std::uint32_t tag, const void* array, std::uint32_t count, const NestedEncoder& encoder,
                 Progress& progress, const Output& output);

template <class Message, std::size_t Index>
[[gnu::always_inline]] inline void encode_field(const Message& message, bool present, Progress& progress,
                                                const Output& output) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    constexpr std::uint32_t tag = tag_of<Message, Index>;
    if constexpr (kind == Kind::message) {
        // A nested message with content is written even if its bit is clear.
        // See encode_nested.content_with_clear_bit_is_written.
        encode_nested(tag, &(message.*field.member), present, encoder_of<NestedOf<Message, Index>>, progress, output);
    } else if constexpr (kind == Kind::list) {
        if (!present) return;
        encode_list(tag, message.*field.array, message.*field.count, encoder_of<NestedOf<Message, Index>>, progress,
                    output);
    } else if constexpr (kind == Kind::string) {
        if (!present || message.*field.member == nullptr) return;
        encode_string(tag, message.*field.member, progress, output);
    } else {
        static_assert(kind == Kind::bytes);
        if (present) encode_bytes(tag, message.*field.data, message.*field.length, progress, output);
    }
}

template <class Message, std::size_t Index>
[[gnu::always_inline]] inline void encode_from(const Message& message, std::uint64_t presence, Progress& progress,
                                               const Output& output) {
    if constexpr (Index == field_count<Message>) {
        return;
    } else if constexpr (is_number<Message, Index>) {
        constexpr std::size_t end = end_of_numbers<Message, Index>();
        encode_numbers(&message, presence, write_numbers<Message, Index, end>, progress, output);
        encode_from<Message, end>(message, presence, progress, output);
    } else {
        encode_field<Message, Index>(message, has_bit<Index>(presence), progress, output);
        encode_from<Message, Index + 1>(message, presence, progress, output);
    }
}

// Writes all fields of a Message.
template <class Message>
[[gnu::cold]] void encode_fields(const void* untyped, Progress& progress, const Output& output) {
    const Message& message = *static_cast<const Message*>(untyped);
    encode_from<Message, 0>(message, load_presence(message), progress, output);
}

// ---- Both ways -----------------------------------------------------------------------------------------------------

// True if a few numbers are the whole message.
template <class Message>
consteval bool is_few_numbers() {
    constexpr std::uint64_t longest = longest_numbers<Message, 0, field_count<Message>>();
    return longest != 0 && longest <= 64;
}

// What an exported function does, with the arguments as it got them, if it is not to measure alone.
std::uint64_t encode_ext(const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                         std::uint32_t* segment_count, std::uint32_t flags, const Ways& ways);

template <class Message>
inline std::uint64_t measure_or_encode(const Message* message, void* buffer, std::uint64_t length,
                                       vesk_segment* segments, std::uint32_t* segment_count, std::uint32_t flags) {
    if (buffer == nullptr && segment_count == nullptr) {
        if constexpr (is_small<Message>()) {
            return measure_small(*message);
        } else {
            return measure_any<Message>(message, flags);
        }
    }
    if constexpr (is_few_numbers<Message>()) {
        // The usual call of such a message takes less time than the way to the functions that all types share.
        constexpr std::size_t last = field_count<Message>;
        const bool listed = segment_count != nullptr && *segment_count != 0;
        const bool fits = length >= longest_numbers<Message, 0, last>() || length >= measure_small(*message);
        if (buffer != nullptr && fits && !listed) [[likely]] {
            std::uint8_t* const begin = static_cast<std::uint8_t*>(buffer);
            const std::uint8_t* const end =
                write_few_numbers<Message, 0, last>(*message, load_presence(*message), begin);
            if (segment_count != nullptr) *segment_count = end != begin;
            return static_cast<std::uint64_t>(end - begin);
        }
    }
    return encode_ext(message, buffer, length, segments, segment_count, flags, ways_of<Message>);
}

}  // namespace vesk
