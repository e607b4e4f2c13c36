// Encoding from a message's last field to its first, so that each length is known when its turn comes: into segments
// for a gathering write, or into one block.
#include <vesk/vesk_toolkit.h>

#include <cstring>

#include "runtime/wire.hpp"
#include "toolkit/message.hpp"
#include "toolkit/options.hpp"

namespace vesk {
namespace {

// Buffer and list are filled from their ends. What does not fit is counted alone, and so is everything before it.
struct Writer {
    std::uint8_t* buffer;
    std::uint64_t room;  // of the buffer, in bytes
    vesk_segment* segments;
    std::uint64_t capacity;
    std::uint64_t threshold;  // bytes fields of so many bytes are listed

    std::uint64_t total = 0;    // bytes of the encoding so far; above most_in_all: too long
    std::uint64_t used = 0;     // of these, those in the buffer
    std::uint64_t covered = 0;  // of these, those that segments cover
    std::uint64_t count = 0;    // of segments
    bool opaque = false;        // there was a message of another library, whose functions nobody here knows
};

constexpr std::uint64_t list_none = UINT64_MAX;  // as a threshold
constexpr std::uint64_t most_in_all = INT64_MAX;

bool is_too_long(const Writer& writer) { return writer.total > most_in_all; }

// From then on nothing is stored.
void give_up(Writer& writer) { writer.total = most_in_all + 1; }

// By at most most_in_all, so that the sum does not wrap.
VESK_INLINE bool grow(Writer& writer, std::uint64_t length) {
    writer.total += length;
    if (!is_too_long(writer)) [[likely]]
        return true;
    give_up(writer);
    return false;
}

// The last of the buffer's bytes that are still free; null if there are fewer.
VESK_INLINE std::uint8_t* take(Writer& writer, std::uint64_t length) {
    if (!grow(writer, length)) return nullptr;
    writer.used += length;
    return writer.used <= writer.room ? writer.buffer + (writer.room - writer.used) : nullptr;
}

void put(Writer& writer, const void* data, std::uint64_t length) {
    std::uint8_t* const at = take(writer, length);
    if (at != nullptr && length != 0) std::memcpy(at, data, static_cast<std::size_t>(length));
}

// A tag, and a scalar or length.
void put_head(Writer& writer, std::uint32_t tag, std::uint64_t value) {
    if ((tag | value) < 0x80) [[likely]] {
        std::uint8_t* const at = take(writer, 2);
        if (at == nullptr) return;
        at[0] = static_cast<std::uint8_t>(tag);
        at[1] = static_cast<std::uint8_t>(value);
        return;
    }
    std::uint8_t* const at = take(writer, measure_varint(tag) + measure_varint(value));
    if (at != nullptr) put_varint(put_varint(at, tag), value);
}

void add_segment(Writer& writer, const void* data, std::uint64_t length) {
    if (++writer.count <= writer.capacity) writer.segments[writer.capacity - writer.count] = {data, length};
}

// Lists what was put since the last segment.
void end_stretch(Writer& writer) {
    const std::uint64_t length = writer.used - writer.covered;
    if (length == 0) return;
    const bool has_room = writer.used <= writer.room;
    add_segment(writer, has_room ? writer.buffer + (writer.room - writer.used) : nullptr, length);
    writer.covered = writer.used;
}

void write_bytes(Writer& writer, std::uint32_t tag, Data data) {
    // Before anything is read or added: the length may be nonsense.
    if (data.length > longest_content) return give_up(writer);
    if (data.length != 0 && data.length >= writer.threshold) {
        end_stretch(writer);
        add_segment(writer, data.at, data.length);
        grow(writer, data.length);
    } else {
        put(writer, data.at, data.length);
    }
    put_head(writer, tag, data.length);
}

void write_string(Writer& writer, std::uint32_t tag, const char* characters) {
    const std::uint64_t length = std::strlen(characters);
    if (length > longest_content) return give_up(writer);
    put(writer, characters, length);
    put_head(writer, tag, length);
}

void write_elsewhere(Writer& writer, const vesk_type* type, const void* identifier) {
    if (type != own_identifier() && !is_identifier(type)) {
        writer.opaque = writer.opaque || has_content(type, identifier);
        return;
    }
    const std::uint64_t size = measure_identifier(identifier);
    if (size > longest_content) return give_up(writer);
    std::uint8_t* const at = take(writer, size);
    if (at != nullptr && size != 0) put_identifier(identifier, at, size);
}

void write_fields(Writer& writer, const vesk_type* type, const void* message);

void write_content(Writer& writer, const vesk_type* type, const void* message) {
    if (is_elsewhere(type)) return write_elsewhere(writer, type, message);
    write_fields(writer, type, message);
}

void write_nested(Writer& writer, const vesk_type* type, std::uint32_t tag, const void* nested, bool even_if_empty) {
    const std::uint64_t before = writer.total;
    write_content(writer, type, nested);
    const std::uint64_t length = writer.total - before;
    if (length > longest_content) return give_up(writer);
    if (length != 0 || even_if_empty) put_head(writer, tag, length);
}

// ---- Kinds that messages of others have ----

// A scalar's value without a tag.
void put_value(Writer& writer, std::uint16_t kind, std::uint64_t number) {
    const std::uint64_t wire = wire_of_number(kind, number);
    const std::uint32_t size = fixed_size(kind);
    std::uint8_t* const at = take(writer, size != 0 ? size : measure_varint(wire));
    if (at == nullptr) return;
    if (size == 0) {
        put_varint(at, wire);
        return;
    }
    for (std::uint32_t i = 0; i < size; ++i) at[i] = static_cast<std::uint8_t>(wire >> 8 * i);
}

void put_tag(Writer& writer, std::uint32_t tag) {
    std::uint8_t* const at = take(writer, measure_varint(tag));
    if (at != nullptr) put_varint(at, tag);
}

void write_scalar(Writer& writer, std::uint32_t tag, std::uint16_t kind, std::uint64_t number) {
    put_value(writer, kind, number);
    put_tag(writer, tag);
}

// There is an element.
void write_packed(Writer& writer, std::uint32_t tag, const Repeated& repeated) {
    const std::uint64_t before = writer.total;
    for (std::uint32_t left = repeated.count; left != 0 && !is_too_long(writer); --left) {
        put_value(writer, repeated.kind, load_number(repeated.kind, element_at(repeated, left - 1)));
    }
    const std::uint64_t length = writer.total - before;
    if (length > longest_content) return give_up(writer);
    put_head(writer, tag, length);
}

void write_repeated(Writer& writer, const vesk_field* field, const void* message) {
    const Repeated repeated = load_repeated(field, message);
    if (is_packed_field(field)) return write_packed(writer, field->tag, repeated);
    for (std::uint32_t left = repeated.count; left != 0; --left) {
        switch (repeated.kind) {
            case VESK_KIND_STRING: write_string(writer, field->tag, string_at(repeated, left - 1)); break;
            case VESK_KIND_BYTES: write_bytes(writer, field->tag, data_at(repeated, left - 1)); break;
            default:
                write_scalar(writer, field->tag, repeated.kind,
                             load_number(repeated.kind, element_at(repeated, left - 1)));
        }
    }
}

[[gnu::noinline]] void write_other(Writer& writer, const vesk_field* field, const void* message) {
    if (is_repeated_field(field)) return write_repeated(writer, field, message);
    write_scalar(writer, field->tag, field->kind, load_number(field->kind, member_at(message, field->offset)));
}

VESK_INLINE void write_field(Writer& writer, const vesk_field* field, std::uint64_t presence, const void* message) {
    if (field->kind == VESK_KIND_MESSAGE) {
        return write_nested(writer, vesk_field_nested(field), field->tag, member_at(message, field->offset),
                            is_marked(presence, field));
    }
    if (!is_written(presence, field, message)) return;
    switch (field->kind) {
        case VESK_KIND_STRING: return write_string(writer, field->tag, load_string(field, message));
        case VESK_KIND_BYTES: return write_bytes(writer, field->tag, load_data(field, message));
        case VESK_KIND_LIST: {
            const List list = load_list(field, message);
            for (std::uint32_t left = list.count; left != 0; --left) {
                write_nested(writer, list.type, field->tag, element_at(list, left - 1), true);
            }
            return;
        }
        case VESK_KIND_UINT32:
        case VESK_KIND_UINT64:
        case VESK_KIND_BOOL: return put_head(writer, field->tag, load_scalar(field, message));
        default: return write_other(writer, field, message);
    }
}

void write_fields(Writer& writer, const vesk_type* type, const void* message) {
    const std::uint64_t presence = load_presence(type, message);
    const vesk_field* field = vesk_type_field(type, type->field_count);
    for (std::uint32_t left = type->field_count; left != 0; --left) {
        field = previous_row(type, field);
        write_field(writer, field, presence, message);
    }
}

// What the whole takes; the segments then stand at the front of the list.
std::int32_t finish(Writer& writer, std::uint64_t* length, std::uint32_t* segment_count) {
    end_stretch(writer);
    if (writer.opaque || is_too_long(writer) || writer.count > UINT32_MAX) {
        *length = 0;
        *segment_count = 0;
        return writer.opaque ? VESK_OPAQUE : VESK_TOO_LONG;
    }
    *length = writer.used;
    *segment_count = static_cast<std::uint32_t>(writer.count);
    if (writer.used > writer.room || writer.count > writer.capacity) return VESK_TOO_SHORT;
    if (writer.count != 0) {
        std::memmove(writer.segments, writer.segments + (writer.capacity - writer.count),
                     static_cast<std::size_t>(writer.count) * sizeof *writer.segments);
    }
    return VESK_OK;
}

}  // namespace
}  // namespace vesk

int32_t vesk_gather(const vesk_type* type, const void* message, void* buffer, uint64_t* length, vesk_segment* segments,
                    uint32_t* segment_count, const vesk_options* given) {
    vesk_options own;
    const vesk_options& options = vesk::read_options(given, &own);
    vesk::Writer writer{static_cast<std::uint8_t*>(buffer), *length, segments, *segment_count,
                        options.gather_threshold};
    vesk::write_content(writer, type, message);
    return vesk::finish(writer, length, segment_count);
}

int32_t vesk_encode(const vesk_type* type, const void* message, vesk_alloc alloc, void* context, void** bytes,
                    uint64_t* length) {
    *bytes = nullptr;
    *length = 0;
    vesk::Writer measuring{nullptr, 0, nullptr, 0, vesk::list_none};
    vesk::write_content(measuring, type, message);
    if (measuring.opaque) return VESK_OPAQUE;
    if (vesk::is_too_long(measuring)) return VESK_TOO_LONG;
    void* const block = alloc(measuring.total, context);
    if (block == nullptr) return VESK_NO_MEMORY;
    vesk::Writer writer{static_cast<std::uint8_t*>(block), measuring.total, nullptr, 0, vesk::list_none};
    vesk::write_content(writer, type, message);
    *bytes = block;
    *length = writer.total;
    return VESK_OK;
}
