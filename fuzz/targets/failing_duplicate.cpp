// A copy of a message, some of its allocations refused: it lacks just the fields that were refused, shares no block
// with its source, and gives back all that it owns.
#include <cstring>

#include "fuzz/input.hpp"
#include "fuzz/messages.hpp"

namespace vesk::fuzz {
namespace {

constexpr std::uint8_t background = 0x5A;

// The spare presence bits of a message in storage that was filled with one byte.
std::uint8_t spare_bits_of(const TypeInfo& type, std::uint8_t fill) {
    const std::size_t used = type.fields.size() % 8;
    return used == 0 ? 0 : static_cast<std::uint8_t>(fill >> used << used);
}

// Compares a copy with its source, and counts what it lacks and what it owns.
class CopyCheck {
public:
    explicit CopyCheck(const Pool& pool) : pool_(pool) {}

    // The copy's storage was filled with `fill`.
    void compare(const TypeInfo& type, const void* source, const void* copy, std::uint8_t fill) {
        expect(spare_bits(type, copy) == spare_bits_of(type, fill), "a presence bit of no field was changed");
        for (std::size_t index = 0; index < type.fields.size(); ++index) {
            const FieldInfo& field = type.fields[index];
            const bool is_empty = is_owner(field) && pointed_size(field, source) == 0;
            const bool is_lost = is_owner(field) && !is_empty && pointer_of(field, copy) == nullptr;
            expect(test::is_present(type, copy, index) == (test::is_present(type, source, index) && !is_lost),
                   "a field is present though it was not copied, or absent though it was");
            if (is_lost) ++lost_;
            if (is_lost || is_empty) {
                expect(pointer_of(field, copy) == nullptr && pointed_size(field, copy) == 0,
                       "a field that was not copied is not empty");
            } else {
                compare_field(field, source, copy, fill);
            }
        }
    }

    std::size_t lost() const { return lost_; }
    std::size_t owned() const { return owned_; }

private:
    void compare_field(const FieldInfo& field, const void* source, const void* copy, std::uint8_t fill) {
        if (is_number(field)) {
            expect(number_of(field, source) == number_of(field, copy), "a number was not copied");
        } else if (field.kind == Kind::message) {
            compare(*field.nested, test::member_at(source, field.offset), test::member_at(copy, field.offset), fill);
        } else {
            compare_block(field, source, copy);
        }
    }

    void compare_block(const FieldInfo& field, const void* source, const void* copy) {
        const std::uint8_t* from = pointer_of(field, source);
        const std::uint8_t* to = pointer_of(field, copy);
        const std::uint64_t size = pointed_size(field, source);
        const Pool::Block* block = pool_.find(to);
        expect(block != nullptr && block->is_out && block->size == size, "a copied field has no block of its size");
        ++owned_;
        if (field.kind != Kind::list) {
            expect(std::memcmp(from, to, size) == 0, "the content of a block was not copied");
            expect(pointed_size(field, copy) == size, "the length was not copied");
            return;
        }
        expect(pointed_size(field, copy) == size, "the number of elements was not copied");
        for (std::uint64_t offset = 0; offset < size; offset += field.nested->size) {
            compare(*field.nested, from + offset, to + offset, test::Ledger::fill);
        }
    }

    const Pool& pool_;
    std::size_t lost_ = 0;
    std::size_t owned_ = 0;
};

}  // namespace

void check(const Input& input) {
    static Pool structures;
    static Pool sources;
    static Pool pool;
    structures.reset();
    sources.reset();
    pool.reset(input.refused);
    const TypeInfo& type = *input.type;

    std::uint8_t* source = structures.take(type.size);
    // Also a message of which only the beginning could be read is one.
    type.decode(source, input.message, input.length, Pool::alloc, &sources, input.flags);
    distort(type, source, input.distortion);
    std::uint8_t* before = structures.take(type.size);
    std::memcpy(before, source, type.size);

    std::uint8_t* copy = structures.take(type.size, background);
    const std::int32_t code = type.duplicate(copy, source, input.has_alloc ? Pool::alloc : nullptr, &pool);
    expect(std::memcmp(source, before, type.size) == 0, "duplicating changed the source");
    CopyCheck copied(pool);
    copied.compare(type, source, copy, background);
    expect(code == (copied.lost() == 0 ? VESK_OK : VESK_NO_MEMORY),
           "the code does not say whether something is missing");
    expect(!input.has_alloc || copied.lost() == pool.refusals(), "other fields are missing than were refused");
    expect(copied.owned() == pool.blocks_out(), "the copy does not own every block, each once");

    type.free(copy, Pool::release, &pool, 0);
    expect(pool.blocks_out() == 0, "freeing the copy did not give back every block");
}

}  // namespace vesk::fuzz
