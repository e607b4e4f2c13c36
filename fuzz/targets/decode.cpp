// Any bytes, decoded with any flags, without a callback, or with memory that runs out: the code is a documented one,
// the message is whole up to the error, and freeing it gives back every block that it owns.
#include <cstring>

#include "fuzz/fields.hpp"
#include "fuzz/input.hpp"
#include "fuzz/messages.hpp"

namespace vesk::fuzz {
namespace {

using test::load;
using test::store;

// Holds every field of a decoded message to what the decoder promises, and counts the blocks.
class DecodedCheck {
public:
    DecodedCheck(const Input& input, const Pool& pool, std::int32_t code)
        : input_(input), pool_(pool), is_complete_(code == VESK_OK) {}

    void operator()(const TypeInfo& type, const void* message, std::size_t index) {
        if (index == 0) expect(spare_bits(type, message) == 0, "a presence bit of no field is set");
        const FieldInfo& field = type.fields[index];
        const bool is_present = test::is_present(type, message, index);
        if (field.kind == Kind::message) {
            // An error inside leaves it filled and absent.
            expect(is_present || !is_complete_ || test::is_clear(*field.nested, test::member_at(message, field.offset)),
                   "an absent nested message is not clear");
        } else if (is_number(field)) {
            const std::uint64_t number = number_of(field, message);
            expect(is_present || number == 0, "an absent number is not 0");
            expect(field.kind != Kind::boolean || number <= 1, "a flag is neither 0 nor 1");
        } else {
            check_owner(field, message, is_present);
        }
    }

    std::size_t owned() const { return owned_; }

private:
    void check_owner(const FieldInfo& field, const void* message, bool is_present) {
        const std::uint8_t* pointer = pointer_of(field, message);
        const bool is_partial_list = field.kind == Kind::list && !is_complete_ && !is_present;
        expect((pointer != nullptr) == is_present || is_partial_list,
               "a field is present without data or absent with it");
        if (pointer == nullptr) {
            expect(pointed_size(field, message) == 0, "a field without data has a size");
        } else if (field.kind == Kind::bytes && (input_.flags & VESK_BYTES_BY_REFERENCE) != 0) {
            check_reference(pointer, load<std::uint64_t>(message, field.second_offset));
        } else {
            check_block(field, message, pool_.find(pointer));
            ++owned_;
        }
    }

    void check_reference(const std::uint8_t* pointer, std::uint64_t length) const {
        const std::uint8_t* end = input_.message + input_.length;
        expect(input_.message <= pointer && pointer <= end && length <= static_cast<std::uint64_t>(end - pointer),
               "data by reference does not lie in the input");
    }

    static void check_block(const FieldInfo& field, const void* message, const Pool::Block* block) {
        expect(block != nullptr && block->is_out, "a member points at no block");
        if (field.kind == Kind::string) {
            expect(block->size != 0 && block->start[block->size - 1] == '\0', "a string does not end with its block");
        } else {
            expect(block->size == pointed_size(field, message), "a block is not of the size of what it holds");
        }
        expect(field.kind != Kind::list || block->size != 0, "a list has a block and no element");
    }

    const Input& input_;
    const Pool& pool_;
    bool is_complete_;
    std::size_t owned_ = 0;
};

// True if a nested message occurs twice in one message: the blocks of the first are lost, as the contract says.
bool replaces_nested_message(const Input& input) {
    static std::vector<FoundField> fields;
    fields.clear();
    find_fields(*input.type, input.message, input.length, fields);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields[i].info == nullptr || fields[i].info->kind != Kind::message) continue;
        for (std::size_t j = 0; j < i; ++j) {
            if (fields[j].parent == fields[i].parent && fields[j].info == fields[i].info) return true;
        }
    }
    return false;
}

void check_code(const Input& input, const Pool& pool, std::int32_t code) {
    expect(VESK_NO_MEMORY <= code && code <= VESK_OK, "the code is none of the documented ones");
    expect(pool.refusals() == 0 || (pool.refused_last() && code == VESK_NO_MEMORY), "decoding went on without memory");
    expect(code != VESK_NO_MEMORY || !input.has_alloc || pool.refusals() != 0, "memory was there");
}

// Sets what a free is to leave null or 0: the pointers to blocks and the counts of lists.
void forget_blocks(const TypeInfo& type, std::uint8_t* message, std::uint32_t flags) {
    for (const FieldInfo& field : type.fields) {
        if (field.kind == Kind::message) {
            forget_blocks(*field.nested, message + field.offset, flags);
        } else if (is_owner(field) && (field.kind != Kind::bytes || (flags & VESK_BYTES_BY_REFERENCE) == 0)) {
            store<void*>(message, field.offset, nullptr);
            if (field.kind == Kind::list) store<std::uint32_t>(message, field.second_offset, 0);
        }
    }
}

}  // namespace

void check(const Input& input) {
    static Pool structures;
    static Pool pool;
    structures.reset();
    pool.reset(input.refused);
    const TypeInfo& type = *input.type;
    std::uint8_t* message = structures.take(type.size);

    const std::int32_t code =
        type.decode(message, input.message, input.length, input.has_alloc ? Pool::alloc : nullptr, &pool, input.flags);
    check_code(input, pool, code);
    DecodedCheck decoded(input, pool, code);
    for_every_field(type, message, decoded);
    expect(decoded.owned() == pool.blocks_out() || replaces_nested_message(input), "a block was lost");

    const std::size_t lost = pool.blocks_out() - decoded.owned();
    std::uint8_t* freed = structures.take(type.size);
    std::memcpy(freed, message, type.size);
    forget_blocks(type, freed, input.flags);
    type.free(message, Pool::release, &pool, input.flags);
    expect(pool.blocks_out() == lost, "freeing did not give back every block");
    expect(std::memcmp(message, freed, type.size) == 0, "freeing changed more than pointers and counts, or less");
    type.free(message, Pool::release, &pool, input.flags);
    expect(pool.blocks_out() == lost, "freeing twice released something");
}

}  // namespace vesk::fuzz
