// The walk over a message's fields: the one place that knows which of them are written, and in which order. What is
// done with them is a sink's affair: measuring (measure.hpp), drafting (draft.hpp) and checked writing (encode.hpp) are
// sinks.
//
// A sink says whether it walks `backwards`, and has these functions, which tell fields apart by the type of their first
// argument:
//
//     run(Run<First, Last>, message, presence)   scalars in a row, some of which are present
//     string(FieldTag<Tag>, characters)
//     bytes(FieldTag<Tag>, data, length)
//     size_of(nested)                            the bytes that a nested message takes, asked before
//     nested(FieldTag<Tag>, nested, size)
//     list(FieldTag<Tag>, array, count)
//     repeated(RepeatedTag<...>, array, count)
//     strings(FieldTag<Tag>, array, count)
//     blobs(FieldTag<Tag>, array, count)
#pragma once

#include "runtime/schema.hpp"

namespace vesk {

template <std::size_t First, std::size_t Last>
struct Run {
    static constexpr std::size_t first = First;
    static constexpr std::size_t last = Last;  // one past it
};

template <std::size_t Index, class Message, class Sink>
VESK_INLINE void visit_field(const Message& message, bool present, Sink& sink) {
    constexpr auto field = field_of<Message, Index>;
    constexpr Kind kind = kind_of<Message, Index>;
    constexpr TagOf<Message, Index> tag;
    if constexpr (kind == Kind::message) {
        // A nested message with content is written even if its bit is clear.
        // See encode_nested.content_with_clear_bit_is_written.
        const std::uint64_t size = sink.size_of(message.*field.member);
        if (size != 0 || present) sink.nested(tag, message.*field.member, size);
    } else if constexpr (kind == Kind::list) {
        if (present) sink.list(tag, message.*field.array, message.*field.count);
    } else if constexpr (kind == Kind::repeated) {
        if (present) sink.repeated(tag, message.*field.array, message.*field.count);
    } else if constexpr (kind == Kind::strings) {
        if (present) sink.strings(tag, message.*field.array, message.*field.count);
    } else if constexpr (kind == Kind::blobs) {
        if (present) sink.blobs(tag, message.*field.array, message.*field.count);
    } else if constexpr (kind == Kind::string) {
        if (present && message.*field.member != nullptr) sink.string(tag, message.*field.member);
    } else {
        static_assert(kind == Kind::bytes);
        if (present) sink.bytes(tag, message.*field.data, message.*field.length);
    }
}

// One past the fields that are shown together: a run of scalars, or one field of another kind.
template <class Message, std::size_t Index>
consteval std::size_t end_of_visit() {
    constexpr std::size_t end = end_of_run<Message>(Index);
    return end != Index ? end : Index + 1;
}

template <std::size_t Index, class Message, class Sink>
VESK_INLINE void walk_from(const Message& message, std::uint64_t presence, Sink& sink) {
    if constexpr (Index < field_count<Message>) {
        constexpr std::size_t next = end_of_visit<Message, Index>();
        if constexpr (Sink::backwards) walk_from<next>(message, presence, sink);
        if constexpr (is_scalar<Message, Index>) {
            if constexpr (next - Index < 3) {
                // To ask about one or two scalars takes more time than it saves.
                sink.run(Run<Index, next>{}, message, presence);
            } else if ((presence & presence_bits<Index, next>) != 0) {
                sink.run(Run<Index, next>{}, message, presence);
            }
        } else {
            visit_field<Index>(message, has_bit<Index>(presence), sink);
        }
        if constexpr (!Sink::backwards) walk_from<next>(message, presence, sink);
    }
}

// Shows the sink the fields of the message, in the order of their declaration or backwards, and returns it.
template <class Message, class Sink>
VESK_INLINE Sink walk(const Message& message, Sink sink) {
    walk_from<0>(message, load_presence(message), sink);
    return sink;
}

}  // namespace vesk
