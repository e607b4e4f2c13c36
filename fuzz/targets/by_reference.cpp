// Bytes by reference: a message decoded so says the same as a copying one, asks for no block for its data, leaves it
// alone when it is freed, and lists it in the segments of its encoding.
#include <algorithm>
#include <cstring>

#include "fuzz/input.hpp"
#include "fuzz/messages.hpp"

namespace vesk::fuzz {
namespace {

using test::load;

struct Stretch {
    const std::uint8_t* data;
    std::uint64_t length;
};

// Finds the data that a message refers to, in the order in which it is written.
class ReferenceFinder {
public:
    explicit ReferenceFinder(const Input& input) : input_(input) { found_.clear(); }

    void operator()(const TypeInfo& type, const void* message, std::size_t index) {
        const FieldInfo& field = type.fields[index];
        if (is_owner(field) && pointer_of(field, message) != nullptr) ++pointers_;
        if (field.kind != Kind::bytes || !test::is_present(type, message, index)) return;
        const std::uint8_t* data = pointer_of(field, message);
        const auto length = load<std::uint64_t>(message, field.second_offset);
        const std::uint8_t* end = input_.message + input_.length;
        expect(input_.message <= data && data <= end && length <= static_cast<std::uint64_t>(end - data),
               "data by reference does not lie in the input");
        ++references_;
        if (length != 0) found_.push_back({data, length});
    }

    static const std::vector<Stretch>& found() { return found_; }
    std::size_t references() const { return references_; }
    std::size_t blocks() const { return pointers_ - references_; }

private:
    const Input& input_;
    std::size_t pointers_ = 0;
    std::size_t references_ = 0;
    inline static std::vector<Stretch> found_;
};

bool nests_nothing(const TypeInfo& type) {
    return std::all_of(type.fields.begin(), type.fields.end(),
                       [](const FieldInfo& field) { return field.nested == nullptr; });
}

// Encodes by reference and looks for the data in the list. The list of a message without nested ones, sent one segment
// after the other, is the encoding.
void check_segments(const Input& input, const void* message, const void* copied, const std::vector<Stretch>& data,
                    Pool& memory) {
    const TypeInfo& type = *input.type;
    const std::uint32_t flags = input.flags | VESK_BYTES_BY_REFERENCE;
    std::uint32_t needed = 0;
    const std::uint64_t length = type.encode(message, nullptr, 0, nullptr, &needed, flags);
    auto* segments = reinterpret_cast<vesk_segment*>(memory.take(needed * sizeof(vesk_segment)));
    std::uint8_t* buffer = memory.take(length);
    std::uint32_t count = needed;
    expect(type.encode(message, buffer, length, segments, &count, flags) == length && count == needed,
           "counting and listing give different lengths or counts");

    auto next = data.begin();
    std::uint64_t listed = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        const auto* at = static_cast<const std::uint8_t*>(segments[i].data);
        listed += segments[i].length;
        if (buffer <= at && at < buffer + length) {
            expect(segments[i].length <= static_cast<std::uint64_t>(buffer + length - at),
                   "a segment leaves the buffer");
            continue;
        }
        expect(next != data.end() && at == next->data && segments[i].length == next->length,
               "a segment is neither a stretch of the buffer nor the next data");
        ++next;
    }
    expect(next == data.end(), "data by reference is not listed");

    if (!nests_nothing(type)) return;
    const std::uint64_t whole = measured(type, copied);
    expect(listed == whole, "the segments are not as long as the encoding");
    std::uint8_t* expected = memory.take(whole);
    type.encode(copied, expected, whole, nullptr, nullptr, 0);
    for (std::uint32_t i = 0; i < count; ++i) {
        expect(std::memcmp(expected, segments[i].data, segments[i].length) == 0, "the segments are not the encoding");
        expected += segments[i].length;
    }
}

// The copy of such a message owns its data.
void check_copy(const TypeInfo& type, const void* message, Pool& structures) {
    static Pool pool;
    pool.reset();
    std::uint8_t* copy = structures.take(type.size);
    expect(type.duplicate(copy, message, Pool::alloc, &pool) == VESK_OK || pool.refusals() != 0,
           "a message by reference cannot be duplicated");
    expect(pool.refusals() != 0 || have_same_values(type, copy, message), "a duplicate says something else");
    type.free(copy, Pool::release, &pool, 0);
    expect(pool.blocks_out() == 0, "freeing a duplicate did not give back every block");
}

}  // namespace

void check(const Input& input) {
    static Pool structures;
    static Pool copying;
    static Pool referring;
    structures.reset();
    copying.reset();
    referring.reset();
    const TypeInfo& type = *input.type;
    const std::uint32_t other_flags = input.flags & ~std::uint32_t{VESK_BYTES_BY_REFERENCE};
    const std::uint32_t flags = input.flags | VESK_BYTES_BY_REFERENCE;

    std::uint8_t* copied = structures.take(type.size);
    std::uint8_t* referred = structures.take(type.size);
    const std::int32_t code = type.decode(copied, input.message, input.length, Pool::alloc, &copying, other_flags);
    if (copying.refusals() != 0) return;  // by reference there may be enough memory
    expect(type.decode(referred, input.message, input.length, Pool::alloc, &referring, flags) == code,
           "copying and referring give different codes");
    expect(have_same_values(type, copied, referred), "copying and referring give different values");

    ReferenceFinder references(input);
    for_every_field(type, referred, references);
    // Each reference saves a block. A nested message that is replaced may have saved more.
    expect(copying.history().size() >= referring.history().size() + references.references(),
           "a block was asked for data by reference");
    // Of a list that ends in an error the elements are there, but they are not written.
    if (code == VESK_OK) check_segments(input, referred, copied, references.found(), structures);
    check_copy(type, referred, structures);

    const std::size_t out = referring.blocks_out();
    type.free(referred, Pool::release, &referring, flags);
    expect(out - referring.blocks_out() == references.blocks(),
           "freeing gave back other blocks than the message owned");
}

}  // namespace vesk::fuzz
