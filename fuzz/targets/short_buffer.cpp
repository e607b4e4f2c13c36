// Encoding into buffers and segment lists of any size: the result is the whole length, what fits is the beginning of
// the encoding, and a short list is the beginning of the full one. Buffers and lists stand between poisoned memory.
#include <algorithm>
#include <cstring>

#include "fuzz/fields.hpp"
#include "fuzz/input.hpp"
#include "fuzz/messages.hpp"

namespace vesk::fuzz {
namespace {

constexpr std::uint8_t untouched = 0xEE;

struct Stretch {
    const std::uint8_t* bytes;
    std::uint64_t length;
};

struct List {
    const vesk_segment* segments;
    std::uint32_t count;
};

class Encoder {
public:
    Encoder(const TypeInfo& type, const void* message, std::uint32_t flags, Pool& memory)
        : type_(type), message_(message), flags_(flags), memory_(memory), length_(measured(type, message, flags)) {}

    std::uint64_t length() const { return length_; }

    // A buffer of `room` bytes with what an encoding leaves in it.
    Stretch into_buffer(std::uint64_t room) {
        std::uint8_t* buffer = memory_.take(room, untouched);
        encode(buffer, room, nullptr, nullptr);
        return {buffer, room};
    }

    // The list that an encoding into `buffer` leaves; it has exactly `capacity` segments.
    List into_list(Stretch buffer, std::uint32_t capacity) {
        auto* segments = reinterpret_cast<vesk_segment*>(memory_.take(capacity * sizeof(vesk_segment), untouched));
        std::uint32_t count = capacity;
        encode(const_cast<std::uint8_t*>(buffer.bytes), buffer.length, capacity == 0 ? nullptr : segments, &count);
        return {segments, count};
    }

private:
    void encode(std::uint8_t* buffer, std::uint64_t room, vesk_segment* segments, std::uint32_t* count) {
        expect(type_.encode(message_, buffer, room, segments, count, flags_) == length_,
               "the result is not the length of the whole encoding");
    }

    const TypeInfo& type_;
    const void* message_;
    std::uint32_t flags_;
    Pool& memory_;
    std::uint64_t length_;
};

// A byte is stored if it fits, but the content of a string or bytes field only if it fits whole.
void check_content(const TypeInfo& type, Stretch whole, Stretch part) {
    static std::vector<FoundField> fields;
    fields.clear();
    expect(find_fields(type, whole.bytes, whole.length, fields), "the encoding is no encoding");
    const auto is_cut_content = [&](const FoundField& field) {
        return field.has_length() && !field.is_nested() && field.content < part.length && field.end > part.length;
    };
    const auto cut = std::find_if(fields.begin(), fields.end(), is_cut_content);
    const std::size_t stored = cut != fields.end() ? cut->content : std::min(part.length, whole.length);
    expect(std::memcmp(part.bytes, whole.bytes, stored) == 0, "a short buffer does not hold the beginning");
    expect(
        std::all_of(part.bytes + stored, part.bytes + part.length, [](std::uint8_t byte) { return byte == untouched; }),
        "something was stored of a content that does not fit, or behind the encoding");
}

// Without the data of bytes fields an encoding cannot be read, but every byte is its own or untouched.
void check_bytes(Stretch whole, Stretch part) {
    for (std::uint64_t i = 0; i < part.length; ++i) {
        expect(part.bytes[i] == untouched || (i < whole.length && part.bytes[i] == whole.bytes[i]),
               "a short buffer holds another byte than the whole one");
    }
}

// In a short buffer, a message that begins behind its end is listed with offsets from null.
void check_addresses(List whole, Stretch whole_buffer, List part, Stretch part_buffer) {
    expect(whole.count == part.count, "the number of segments depends on the buffer");
    for (std::uint32_t i = 0; i < whole.count; ++i) {
        const vesk_segment& expected = whole.segments[i];
        const vesk_segment& listed = part.segments[i];
        expect(expected.length == listed.length, "the length of a segment depends on the buffer");
        const auto* at = static_cast<const std::uint8_t*>(expected.data);
        if (at < whole_buffer.bytes || at >= whole_buffer.bytes + whole_buffer.length) {
            expect(expected.data == listed.data, "data by reference depends on the buffer");
            continue;
        }
        const auto offset = static_cast<std::uintptr_t>(at - whole_buffer.bytes);
        const auto address = reinterpret_cast<std::uintptr_t>(listed.data);
        expect(address == reinterpret_cast<std::uintptr_t>(part_buffer.bytes) + offset || address <= offset,
               "a segment is at another place of a short buffer");
    }
}

void check_capacity(List full, List part, std::uint32_t capacity) {
    expect(part.count == full.count, "the number of segments depends on the capacity");
    const std::uint32_t listed = std::min(capacity, full.count);
    for (std::uint32_t i = 0; i < listed; ++i) {
        expect(part.segments[i].data == full.segments[i].data && part.segments[i].length == full.segments[i].length,
               "a short list is not the beginning of the full one");
    }
    const auto* behind = reinterpret_cast<const std::uint8_t*>(part.segments + listed);
    const auto* end = reinterpret_cast<const std::uint8_t*>(part.segments + capacity);
    expect(std::all_of(behind, end, [](std::uint8_t byte) { return byte == untouched; }),
           "a segment was stored that is not counted");
}

}  // namespace

void check(const Input& input) {
    static Pool structures;
    static Pool pool;
    structures.reset();
    pool.reset();
    const TypeInfo& type = *input.type;
    std::uint8_t* message = take_distorted(input, structures, pool);
    if (message == nullptr) return;

    Encoder encoder(type, message, input.flags, structures);
    const std::uint64_t room = input.room % (encoder.length() + 3);
    const Stretch whole = encoder.into_buffer(encoder.length());
    const Stretch part = encoder.into_buffer(room);
    if ((input.flags & VESK_BYTES_BY_REFERENCE) == 0) {
        check_content(type, whole, part);
    } else {
        check_bytes(whole, part);
    }

    const std::uint32_t needed = encoder.into_list(whole, 0).count;
    const List full = encoder.into_list(whole, needed);
    const List full_of_part = encoder.into_list(part, needed);
    check_addresses(full, whole, full_of_part, part);
    const std::uint32_t capacity = input.capacity % (needed + 2);
    check_capacity(full_of_part, encoder.into_list(part, capacity), capacity);
}

}  // namespace vesk::fuzz
