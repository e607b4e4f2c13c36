// Drafting: a message is put into memory of the library's own from its last field to its first, so that every length is
// known when its turn comes. What is long or lies elsewhere (bytes fields, long strings, imported messages) is noted as
// an insert. Once the whole is known to fit, the encoding is assembled of both in the caller's buffer:
//
//     fields      1: 5      2: "fan1"     3: an imported message of 6 bytes   4: 1
//     draft       08 05 | 12 04 f a n 1 | 1A 06                             | 20 01
//     insert                                  ^
//     assembled   08 05   12 04 f a n 1   1A 06 . . . . . .                   20 01
#pragma once

#include <cstring>

#include "runtime/measure.hpp"

namespace vesk {

// An exported function, its message's type forgotten.
using Encode = std::uint64_t (*)(const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                                 std::uint32_t* segment_count, std::uint32_t flags);

struct Insert {
    const void* data;
    const std::uint8_t* position;  // of the draft, in front of which it belongs
    std::uint64_t total;           // its length and those of all inserts noted before it
    Encode encode;                 // of an imported message; null for data that is copied
    const Insert* imported;        // the imported message that was last noted before it; null if there is none
};

// How far the drafting has come.
struct Draft {
    std::uint8_t* at;  // of the first byte that was put
    Insert* last;      // that was noted
};

// ---- How much a draft takes ----------------------------------------------------------------------------------------

// Longer strings are inserts.
inline constexpr std::uint64_t longest_drafted_string = 24;

struct DraftSize {
    std::uint64_t bytes;
    std::size_t inserts;
    bool bounded = true;  // false if a list or repeated field is in it
    bool flat = true;     // false if a message of the library is in it
};

// A draft takes the smallest of these that holds it: few sizes share few functions, and a small message little stack.
inline constexpr DraftSize draft_sizes[] = {{160, 6}, {704, 12}, {1152, 28}, {3072, 56}};

inline constexpr std::size_t draft_classes = sizeof draft_sizes / sizeof *draft_sizes;

// Which of them; their number if none does.
consteval std::size_t draft_class(DraftSize size) {
    std::size_t index = 0;
    for (const DraftSize& most : draft_sizes) {
        if (size.bounded && size.bytes <= most.bytes && size.inserts <= most.inserts) break;
        ++index;
    }
    return index;
}
consteval DraftSize operator+(DraftSize one, DraftSize other) {
    return {one.bytes + other.bytes, one.inserts + other.inserts, one.bounded && other.bounded, one.flat && other.flat};
}

template <class Message, std::size_t Index = 0>
consteval DraftSize draft_size() {
    if constexpr (Index == field_count<Message>) {
        return {0, 0};
    } else {
        constexpr Kind kind = kind_of<Message, Index>;
        DraftSize size{measure_varint(tag_of<Message, Index>) + 5, 1};
        if constexpr (is_scalar<Message, Index>) {
            size = {facts_of<Message>.of_field[Index].longest, 0};
        } else if constexpr (kind == Kind::string) {
            size.bytes += longest_drafted_string;
        } else if constexpr (kind == Kind::list || kind == Kind::repeated || kind == Kind::strings ||
                             kind == Kind::blobs) {
            size.bounded = false;
        } else if constexpr (kind == Kind::message && !is_imported<NestedOf<Message, Index>>) {
            size = DraftSize{size.bytes, 0, true, false} + draft_size<NestedOf<Message, Index>>();
        }
        return size + draft_size<Message, Index + 1>();
    }
}

template <class Message>
inline constexpr bool is_draftable = draft_class(draft_size<Message>()) < draft_classes;

// Memory for a draft, filled from its end.
template <std::size_t Class>
struct Draftbook {
    static constexpr DraftSize size = draft_sizes[Class];
    static constexpr std::size_t spoiled = 8;       // before what was put
    static constexpr std::size_t longest_head = 7;  // of the message itself, if it is an element
    static constexpr std::size_t read_ahead = 16;   // when a part is copied

    // The first insert marks the end.
    Draft open() {
        inserts[0] = {nullptr, end(), 0, nullptr, nullptr};
        return {end(), inserts};
    }
    std::uint8_t* end() { return bytes + sizeof bytes - read_ahead; }
    std::uint64_t length_of(Draft draft) { return static_cast<std::uint64_t>(end() - draft.at) + draft.last->total; }

    std::uint8_t bytes[spoiled + longest_head + size.bytes + read_ahead];
    Insert inserts[1 + size.inserts];
};

// ---- Drafting ------------------------------------------------------------------------------------------------------

// More than any buffer has. An insert of 2 GiB or more is said to have this length, so that no sum wraps; what has one
// is written, not assembled.
inline constexpr std::uint64_t vast = std::uint64_t{1} << 56;

inline Insert* note_insert(Insert* last, const void* data, std::uint64_t length, const std::uint8_t* position) {
    const std::uint64_t total = last->total + (length <= INT32_MAX ? length : vast);
    const Insert* const imported = last->encode != nullptr ? last : last->imported;
    *++last = {data, position, total, nullptr, imported};
    return last;
}

template <class Message>
std::uint64_t encode_imported(const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                              std::uint32_t* segment_count, std::uint32_t flags) {
    return imported<Message>.encode(static_cast<const Message*>(message), buffer, length, segments, segment_count,
                                    flags);
}

using DraftMessage = Draft (*)(const void* message, Draft progress, std::uint32_t flags);

template <class Message>
Draft draft(const void* message, Draft progress, std::uint32_t flags);
template <class Message>
Draft draft_in_place(const Message& message, Draft progress, std::uint32_t flags);

struct Drafting {
    static constexpr bool backwards = true;

    VESK_INLINE void run(auto run, const auto& message, std::uint64_t presence) {
        progress.at = put_run_before<run.first, run.last>(progress.at, message, presence);
    }
    VESK_INLINE void string(auto field, const char* characters) {
        const std::uint64_t length = std::strlen(characters);
        if (length > longest_drafted_string) [[unlikely]]
            return insert(field, characters, length);
        progress.at -= length;
        put_bytes(progress.at, characters, length);
        put_head(field, length);
    }
    VESK_INLINE void bytes(auto field, const std::uint8_t* data, std::uint64_t length) {
        if ((flags & VESK_BYTES_BY_REFERENCE) == 0) return insert(field, data, length);
        put_head(field, length);
    }
    // Drafts the content, and leaves the head to `nested`.
    template <class Nested>
    VESK_INLINE std::uint64_t size_of(const Nested& nested) {
        if constexpr (is_imported<Nested>) {
            return measure_nested(nested, flags);
        } else {
            const Draft before = progress;
            progress =
                is_small<Nested> ? draft_in_place(nested, progress, flags) : draft<Nested>(&nested, progress, flags);
            std::uint64_t size = static_cast<std::uint64_t>(before.at - progress.at);
            if constexpr (draft_size<Nested>().inserts != 0) size += progress.last->total - before.last->total;
            return size;
        }
    }
    template <class Nested>
    VESK_INLINE void nested(auto field, const Nested& nested, std::uint64_t size) {
        if constexpr (is_imported<Nested>) {
            insert(field, &nested, size);
            progress.last->encode = encode_imported<Nested>;
        } else {
            put_head(field, size);
        }
    }

    VESK_INLINE void insert(auto field, const void* data, std::uint64_t length) {
        progress.last = note_insert(progress.last, data, length, progress.at);
        put_head(field, length);
    }
    VESK_INLINE void put_head(auto field, std::uint64_t length) {
        progress.at = put_head_before<field.tag>(progress.at, length);
    }

    Draft progress;
    std::uint32_t flags;
};

template <class Message>
VESK_INLINE Draft draft_in_place(const Message& message, Draft progress, std::uint32_t flags) {
    return walk(message, Drafting{progress, flags}).progress;
}

template <class Message>
[[gnu::noinline]] Draft draft(const void* message, Draft progress, std::uint32_t flags) {
    return draft_in_place(*static_cast<const Message*>(message), progress, flags);
}

// Assembles a draft in a buffer that has room for it; `end` is the insert that marks its end. Returns the number of
// segments that imported messages need.
std::uint32_t assemble(Draft draft, const Insert* end, Buffer buffer, std::uint32_t flags);

}  // namespace vesk
