// Encoding: a message into the caller's buffer and segment list. Never fails; what does not fit is counted.
//
// A message is drafted, and assembled in the buffer if it fits there: no store is checked. One that does not fit, that
// holds a list, or whose segments are to be listed is written field by field, with every store and every segment
// checked; the messages in it and the elements of its lists are again drafted or written, each for itself.
#pragma once

#include "runtime/draft.hpp"

namespace vesk {

// Where a message is written, and what it has taken so far of the caller's buffer and segment list.
struct Writer {
    Buffer buffer;
    vesk_segment* segments;
    std::uint32_t capacity;
    bool counted;  // false if the caller asks for no count; nothing is listed then
    std::uint32_t flags;

    std::uint64_t position;
    std::uint64_t run_start;  // where the stretch of the buffer began that is not yet in the list
    std::uint32_t segments_used;
};

struct TypeEncoder;

struct Drafted {
    std::uint64_t length;  // `vast` if it does not fit
    std::uint32_t segments;
};

// Drafts a message, as an element with its tag and length in front unless the tag is 0, and assembles it if it fits.
using EncodeDraft = Drafted (*)(const void* message, const TypeEncoder& type, std::uint32_t tag, Buffer buffer,
                                std::uint32_t flags);
template <std::size_t DraftClass>
Drafted encode_draft(const void* message, const TypeEncoder& type, std::uint32_t tag, Buffer buffer,
                     std::uint32_t flags);

// What the functions that all types share need to know of a message type.
struct TypeEncoder {
    std::size_t size;  // of the structure
    std::uint64_t (*measure)(const void* message, std::uint32_t flags);
    Encode imported = nullptr;  // the exported function of an imported type, which has nothing of what follows

    void (*write)(const void* message, Writer& writer) = nullptr;  // writes every field
    bool flat = false;                                             // true if no message of the library is in it

    // Drafts the message, and how; null for one that no draft can hold, and for a small one.
    DraftMessage draft = nullptr;
    EncodeDraft encode_draft = nullptr;

    // Puts a small message, with a branch for each scalar, and the most bytes that it takes.
    std::uint8_t* (*put)(std::uint8_t* at, const void* message) = nullptr;
    std::uint64_t longest = 0;
};

// Encodes a message with the arguments as its exported function got them, if it is not to measure alone.
std::uint64_t encode_message(const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                             std::uint32_t* segment_count, std::uint32_t flags, const TypeEncoder& type);

// ---- Checked writing -----------------------------------------------------------------------------------------------

// Each of these writes one field with its tag.
void write_scalar(std::uint32_t tag, std::uint64_t value, Writer& writer);
// The characters are stored whole or not at all.
void write_string(std::uint32_t tag, const char* string, Writer& writer);
// The data is stored whole or not at all, or listed as a segment.
void write_bytes(std::uint32_t tag, const std::uint8_t* data, std::uint64_t length, Writer& writer);
void write_nested(std::uint32_t tag, const void* nested, std::uint64_t size, const TypeEncoder& type, Writer& writer);
// Every element is written, also an empty one, each with its tag and length.
void write_list(std::uint32_t tag, const void* array, std::uint32_t count, const TypeEncoder& type, Writer& writer);

// The same for a list whose tag takes more than two bytes.
void write_far_list(std::uint32_t tag, const void* array, std::uint32_t count, const TypeEncoder& type, Writer& writer);

inline bool has_room(std::uint64_t length, const Writer& writer) {
    return writer.position <= writer.buffer.length && length <= writer.buffer.length - writer.position;
}

// Writes the scalars of a repeated field, each with its tag; packed ones, whose head has been written, with the tag 0.
template <class Scalar>
[[gnu::noinline]] void write_values(std::uint32_t tag, const typename Scalar::Member* array, std::uint32_t count,
                                    Writer& writer) {
    constexpr std::uint64_t longest = 5 + Scalar::longest;
    for (; count != 0; --count, ++array) {
        const typename Scalar::Wire value = wire_word<Scalar>(*array);
        if (has_room(longest, writer)) [[likely]] {
            std::uint8_t* const at = writer.buffer.data + writer.position;
            const std::uint8_t* const past = put_value<Scalar>(tag != 0 ? put_varint(at, tag) : at, value);
            writer.position += static_cast<std::uint64_t>(past - at);
        } else {
            if (tag != 0) writer.position = write_varint(tag, writer.position, writer.buffer);
            writer.position = write_value<Scalar>(value, writer.position, writer.buffer);
        }
    }
}

template <std::size_t First, std::size_t Last, class Message>
VESK_INLINE void write_run(const Message& message, std::uint64_t presence, Writer& writer) {
    if constexpr (First < Last) {
        if (has_bit<First>(presence)) {
            using Scalar = ScalarOf<Message, First>;
            if constexpr (Scalar::wire_type == varint_type) {
                write_scalar(tag_of<Message, First>, wire_value<Message, First>(message), writer);
            } else {
                writer.position = write_varint(tag_of<Message, First>, writer.position, writer.buffer);
                writer.position =
                    write_value<Scalar>(wire_value<Message, First>(message), writer.position, writer.buffer);
            }
        }
        write_run<First + 1, Last>(message, presence, writer);
    }
}

template <class Message>
consteval TypeEncoder make_encoder();

template <class Message>
inline constexpr TypeEncoder encoder_of = make_encoder<Message>();

struct Writing {
    static constexpr bool backwards = false;

    template <class Message>
    VESK_INLINE void run(auto run, const Message& message, std::uint64_t presence) {
        // What is never drafted is written often, and usually has room.
        if constexpr (!is_draftable<Message>) {
            if (has_room(longest_run<Message, run.first, run.last>(), writer)) {
                std::uint8_t* const at = writer.buffer.data + writer.position;
                const std::uint8_t* const past = put_run<run.first, run.last>(at, message, presence);
                writer.position += static_cast<std::uint64_t>(past - at);
                return;
            }
        }
        write_run<run.first, run.last>(message, presence, writer);
    }
    VESK_INLINE void string(auto field, const char* characters) { write_string(field.tag, characters, writer); }
    VESK_INLINE void bytes(auto field, const std::uint8_t* data, std::uint64_t length) {
        write_bytes(field.tag, data, length, writer);
    }
    VESK_INLINE std::uint64_t size_of(const auto& nested) { return measure_nested(nested, writer.flags); }
    template <class Nested>
    VESK_INLINE void nested(auto field, const Nested& nested, std::uint64_t size) {
        write_nested(field.tag, &nested, size, encoder_of<Nested>, writer);
    }
    template <class Element>
    VESK_INLINE void list(auto field, const Element* array, std::uint32_t count) {
        if constexpr (field.tag < 1 << 14) {
            write_list(field.tag, array, count, encoder_of<Element>, writer);
        } else {
            write_far_list(field.tag, array, count, encoder_of<Element>, writer);
        }
    }
    VESK_INLINE void repeated(auto field, const auto* array, std::uint32_t count) {
        using Scalar = typename decltype(field)::Scalar;
        if constexpr (!field.is_packed) {
            write_values<Scalar>(field.tag, array, count, writer);
        } else if (count != 0) {
            writer.position = write_varint(field.tag, writer.position, writer.buffer);
            writer.position = write_length(measure_values<Scalar>(array, count), writer.position, writer.buffer);
            write_values<Scalar>(0, array, count, writer);
        }
    }
    VESK_INLINE void strings(auto field, const char* const* array, std::uint32_t count) {
        for (; count != 0; --count, ++array) write_string(field.tag, *array != nullptr ? *array : "", writer);
    }
    VESK_INLINE void blobs(auto field, const vesk_bytes* array, std::uint32_t count) {
        for (; count != 0; --count, ++array) write_bytes(field.tag, array->data, array->length, writer);
    }

    Writer& writer;
};

template <class Message>
void write_fields(const void* message, Writer& writer) {
    walk(*static_cast<const Message*>(message), Writing{writer});
}

// The same for what is usually drafted.
template <class Message>
[[gnu::cold]] void write_seldom(const void* message, Writer& writer) {
    walk(*static_cast<const Message*>(message), Writing{writer});
}

// ---- Message types -------------------------------------------------------------------------------------------------

template <class Message>
std::uint8_t* put_small(std::uint8_t* at, const void* untyped) {
    const Message& message = *static_cast<const Message*>(untyped);
    return put_run<0, field_count<Message>>(at, message, load_presence(message));
}

template <class Message>
consteval TypeEncoder make_encoder() {
    TypeEncoder type{.size = sizeof(Message), .measure = measure<Message>};
    if constexpr (is_imported<Message>) {
        type.imported = encode_imported<Message>;
    } else if constexpr (is_draftable<Message>) {
        type.write = write_seldom<Message>;
        type.flat = draft_size<Message>().flat;
        if constexpr (is_small<Message>) {
            type.put = put_small<Message>;
            type.longest = longest_run<Message, 0, field_count<Message>>();
        } else {
            type.draft = draft<Message>;
            type.encode_draft = encode_draft<draft_class(draft_size<Message>())>;
        }
    } else {
        type.write = write_fields<Message>;
    }
    return type;
}

// What an exported function does.
template <class Message>
VESK_INLINE std::uint64_t encode_ext(const Message* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                                     std::uint32_t* segment_count, std::uint32_t flags) {
    if (buffer == nullptr && segment_count == nullptr) return measure_nested(*message, flags);
    if constexpr (is_small<Message>) {
        // The usual call of such a message takes less time than the way to the functions that all types share.
        constexpr std::size_t count = field_count<Message>;
        const bool fits = length >= longest_run<Message, 0, count>() || length >= measure_nested(*message, flags);
        if (buffer != nullptr && fits && (segment_count == nullptr || *segment_count == 0)) [[likely]] {
            std::uint8_t* const at = static_cast<std::uint8_t*>(buffer);
            const std::uint8_t* const past = put_run<0, count>(at, *message, load_presence(*message));
            if (segment_count != nullptr) *segment_count = past != at;
            return static_cast<std::uint64_t>(past - at);
        }
    }
    return encode_message(message, buffer, length, segments, segment_count, flags, encoder_of<Message>);
}

}  // namespace vesk
