#include "runtime/encode.hpp"

namespace vesk {
namespace {

// ---- Segments ------------------------------------------------------------------------------------------------------

// Enters a segment into the list if it has room; counts it either way.
void add_segment(const void* data, std::uint64_t length, Writer& writer) {
    if (writer.segments_used < writer.capacity) writer.segments[writer.segments_used] = {data, length};
    ++writer.segments_used;
}

// The address of a position, computed as an integer: the buffer may be null, and the position may lie past its end.
const void* address_of(std::uint64_t position, Buffer buffer) {
    const std::uintptr_t base = reinterpret_cast<std::uintptr_t>(buffer.data);
    return reinterpret_cast<const void*>(base + static_cast<std::uintptr_t>(position));
}

// Enters the stretch of the buffer from the run's start to the position into the list.
void close_run(Writer& writer) {
    add_segment(address_of(writer.run_start, writer.buffer), writer.position - writer.run_start, writer);
    writer.run_start = writer.position;
}

// ---- Drafts --------------------------------------------------------------------------------------------------------

// A draft knows nothing of segments. Where they are counted, only a message that is one segment may be drafted; where
// they are listed, none.
bool may_draft(const TypeEncoder& type, std::uint32_t capacity, bool counted, std::uint32_t flags) {
    return capacity == 0 && (!counted || (type.flat && (flags & VESK_BYTES_BY_REFERENCE) == 0));
}

}  // namespace

template <std::size_t DraftClass>
Drafted encode_draft(const void* message, const TypeEncoder& type, std::uint32_t tag, Buffer buffer,
                     std::uint32_t flags) {
    Draftbook<DraftClass> book;
    Draft draft = type.draft(message, book.open(), flags);
    std::uint64_t length = book.length_of(draft);
    const std::uint32_t own_segment = length != 0;
    if (tag != 0) {
        draft.at = put_head_before(draft.at, tag, length);
        length = book.length_of(draft);
    }
    if (length >= vast || length > buffer.length) return {vast, 0};
    return {length, own_segment + assemble(draft, book.inserts, buffer, flags)};
}

static_assert(draft_classes == 4);
template Drafted encode_draft<0>(const void*, const TypeEncoder&, std::uint32_t, Buffer, std::uint32_t);
template Drafted encode_draft<1>(const void*, const TypeEncoder&, std::uint32_t, Buffer, std::uint32_t);
template Drafted encode_draft<2>(const void*, const TypeEncoder&, std::uint32_t, Buffer, std::uint32_t);
template Drafted encode_draft<3>(const void*, const TypeEncoder&, std::uint32_t, Buffer, std::uint32_t);

namespace {

// ---- Checked writing -----------------------------------------------------------------------------------------------

// Stores `length` bytes whole or not at all.
void store_whole(const void* data, std::uint64_t length, const Writer& writer) {
    if (length != 0 && has_room(length, writer)) {
        std::memcpy(writer.buffer.data + writer.position, data, static_cast<std::size_t>(length));
    }
}

void write_head(std::uint32_t tag, std::uint64_t length, Writer& writer) {
    writer.position = write_varint(tag, writer.position, writer.buffer);
    writer.position = write_length(length, writer.position, writer.buffer);
}

// Puts a small element, whose length takes one byte. Returns false if there may be no room.
bool put_small_element(std::uint32_t tag, const void* element, const TypeEncoder& type, Writer& writer) {
    constexpr std::uint64_t longest_head = 3;
    if (!has_room(longest_head + type.longest, writer)) return false;
    std::uint8_t* const at = writer.buffer.data + writer.position;
    std::uint8_t* const body = put_varint(at, tag) + 1;
    const std::uint8_t* const past = type.put(body, element);
    body[-1] = static_cast<std::uint8_t>(past - body);
    writer.segments_used += past != body;
    writer.position += static_cast<std::uint64_t>(past - at);
    return true;
}

// Drafts an element. Returns false if it does not fit.
bool draft_element(std::uint32_t tag, const void* element, const TypeEncoder& type, Writer& writer) {
    if (!has_room(1, writer)) return false;
    const Buffer rest{writer.buffer.data + writer.position, writer.buffer.length - writer.position};
    const Drafted drafted = type.encode_draft(element, type, tag, rest, writer.flags);
    if (drafted.length == vast) return false;
    writer.segments_used += drafted.segments;
    writer.position += drafted.length;
    return true;
}

}  // namespace

void write_scalar(std::uint32_t tag, std::uint64_t value, Writer& writer) {
    writer.position = write_varint(tag, writer.position, writer.buffer);
    writer.position = write_varint(value, writer.position, writer.buffer);
}

void write_string(std::uint32_t tag, const char* string, Writer& writer) {
    const std::uint64_t length = std::strlen(string);
    write_head(tag, length, writer);
    store_whole(string, length, writer);
    writer.position += length;
}

void write_bytes(std::uint32_t tag, const std::uint8_t* data, std::uint64_t length, Writer& writer) {
    write_head(tag, length, writer);
    const std::uint64_t size = measure_bytes(length, writer.position, writer.flags);
    store_whole(data, size, writer);
    writer.position += size;
    if ((writer.flags & VESK_BYTES_BY_REFERENCE) != 0 && length != 0) {
        close_run(writer);
        add_segment(data, length, writer);
    }
}

void write_nested(std::uint32_t tag, const void* nested, std::uint64_t size, const TypeEncoder& type, Writer& writer) {
    write_head(tag, size, writer);
    // What is left for it: (null, 0) where nothing is.
    const bool room = has_room(1, writer);
    const bool listed = writer.segments_used < writer.capacity;
    std::uint8_t* const at = room ? writer.buffer.data + writer.position : nullptr;
    const std::uint64_t length = room ? writer.buffer.length - writer.position : 0;
    vesk_segment* const segments = listed ? writer.segments + writer.segments_used : nullptr;
    std::uint32_t count = listed ? writer.capacity - writer.segments_used : 0;
    if (type.imported != nullptr) {
        type.imported(nested, at, length, segments, &count, writer.flags);
    } else {
        encode_message(nested, at, length, segments, writer.counted ? &count : nullptr, writer.flags, type);
    }
    writer.segments_used += count;
    // Its measured size counts, whatever the call says: the fields after it cannot be moved.
    writer.position += size;
}

void write_list(std::uint32_t tag, const void* array, std::uint32_t count, const TypeEncoder& type, Writer& writer) {
    const bool drafting = may_draft(type, writer.capacity, writer.counted, writer.flags);
    const char* element = static_cast<const char*>(array);
    for (; count != 0; --count, element += type.size) {
        if (drafting && type.put != nullptr && put_small_element(tag, element, type, writer)) continue;
        if (drafting && type.draft != nullptr && draft_element(tag, element, type, writer)) continue;
        write_nested(tag, element, type.measure(element, writer.flags), type, writer);
    }
}

// ---- Messages ------------------------------------------------------------------------------------------------------

std::uint64_t encode_message(const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                             std::uint32_t* segment_count, std::uint32_t flags, const TypeEncoder& type) {
    const Buffer output{static_cast<std::uint8_t*>(buffer), length};
    const bool counted = segment_count != nullptr;
    const std::uint32_t capacity = counted ? *segment_count : 0;
    if (type.draft != nullptr && length != 0 && may_draft(type, capacity, counted, flags)) {
        const Drafted drafted = type.encode_draft(message, type, 0, output, flags);
        if (drafted.length != vast) [[likely]] {
            if (counted) *segment_count = drafted.segments;
            return drafted.length;
        }
    }
    Writer writer{output, segments, capacity, counted, flags, 0, 0, 0};
    type.write(message, writer);
    if (counted) {
        if (writer.run_start < writer.position) close_run(writer);
        *segment_count = writer.segments_used;
    }
    return writer.position;
}

}  // namespace vesk
