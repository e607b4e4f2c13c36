// Gathering into buffers and lists of any size: put together the segments are the plain encoding, or what is needed is
// told and nothing is stored outside. The same writer makes one block of it. Buffers and lists stand between poisoned
// memory.
#include <vesk/vesk_toolkit.h>

#include <cstring>

#include "fuzz/input.hpp"
#include "fuzz/messages.hpp"

namespace vesk::fuzz {
namespace {

struct Plain {
    const std::uint8_t* bytes;
    std::uint64_t length;
};

Plain encode_plainly(const TypeInfo& type, const void* message, Pool& memory) {
    const std::uint64_t length = measured(type, message);
    std::uint8_t* bytes = memory.take(length);
    type.encode(message, bytes, length, nullptr, nullptr, 0);
    return {bytes, length};
}

class Gatherer {
public:
    Gatherer(const vesk_type* type, const void* message, std::uint64_t threshold, Pool& memory)
        : type_(type), message_(message), memory_(memory) {
        options_.gather_threshold = threshold;
        const std::int32_t code = vesk_gather(type, message, nullptr, &length_, nullptr, &count_, &options_);
        expect(code == (length_ == 0 ? static_cast<std::int32_t>(VESK_OK) : VESK_TOO_SHORT), "measuring fails");
    }

    std::uint64_t length() const { return length_; }
    std::uint32_t count() const { return count_; }

    void into(std::uint64_t room, std::uint32_t capacity, Plain plain) {
        std::uint8_t* buffer = memory_.take(room);
        auto* segments = reinterpret_cast<vesk_segment*>(memory_.take(capacity * sizeof(vesk_segment)));
        std::uint64_t length = room;
        std::uint32_t count = capacity;
        const std::int32_t code = vesk_gather(type_, message_, buffer, &length, segments, &count, &options_);
        expect(length == length_ && count == count_, "what is needed depends on what there is");
        const bool fits = room >= length_ && capacity >= count_;
        expect(code == (fits ? static_cast<std::int32_t>(VESK_OK) : VESK_TOO_SHORT), "another code than what fits");
        if (fits) check_partition(segments, {buffer, room}, plain);
    }

private:
    void check_partition(const vesk_segment* segments, Plain buffer, Plain plain) const {
        const std::uint8_t* next = plain.bytes;
        std::uint64_t left = plain.length;
        std::uint64_t in_buffer = 0;
        for (std::uint32_t i = 0; i < count_; ++i) {
            const vesk_segment& segment = segments[i];
            const auto* at = static_cast<const std::uint8_t*>(segment.data);
            expect(segment.length != 0 && segment.length <= left, "a segment is empty, or leaves the encoding");
            expect(std::memcmp(at, next, segment.length) == 0, "the segments are not the encoding");
            const bool is_made = buffer.bytes <= at && at < buffer.bytes + buffer.length;
            expect(is_made || segment.length >= options_.gather_threshold, "data below the threshold is listed");
            if (is_made) in_buffer += segment.length;
            next += segment.length;
            left -= segment.length;
        }
        expect(left == 0, "the segments are not all of the encoding");
        expect(in_buffer == length_, "the segments leave out bytes of the buffer");
    }

    const vesk_type* type_;
    const void* message_;
    Pool& memory_;
    vesk_options options_ = vesk_default_options();
    std::uint64_t length_ = 0;
    std::uint32_t count_ = 0;
};

void check_encode(const vesk_type* type, const void* message, std::uint32_t refused, Plain plain) {
    static Pool pool;
    pool.reset(refused);
    void* bytes = &pool;
    std::uint64_t length = 1;
    const std::int32_t code = vesk_encode(type, message, Pool::alloc, &pool, &bytes, &length);
    expect(pool.history().size() == 1 && pool.history()[0].size == plain.length, "not one request for the encoding");
    if (pool.refusals() != 0) {
        expect(code == VESK_NO_MEMORY && bytes == nullptr && length == 0, "a refusal is not told");
        return;
    }
    expect(code == VESK_OK && length == plain.length, "encoding fails");
    expect(length == 0 || std::memcmp(bytes, plain.bytes, length) == 0, "the block is not the encoding");
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

    const vesk_type* facts = vesk_type_named(type.name.c_str());
    const Plain plain = encode_plainly(type, message, structures);
    Gatherer gatherer(facts, message, input.refused % 64, structures);
    gatherer.into(gatherer.length(), gatherer.count(), plain);
    gatherer.into(input.room % (gatherer.length() + 3), input.capacity % (gatherer.count() + 3), plain);
    check_encode(facts, message, input.refused, plain);
}

}  // namespace vesk::fuzz
