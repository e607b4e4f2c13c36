// The library against the interpreter of tests/support, operation by operation: the same code, length and bytes, the
// same segments, the same members down to the block that a pointer points at, the same requests and releases.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/input.hpp"
#include "fuzz/messages.hpp"
#include "tests/support/interpreter.hpp"

namespace vesk::fuzz {
namespace {

using test::interpreter::TableType;

// One implementation's memory, and what it made of the input.
struct Side {
    Pool structures;
    Pool pool;
    std::uint8_t* message = nullptr;
    std::int32_t code = 0;

    void reset(std::uint32_t refused) {
        structures.reset();
        pool.reset(refused);
    }
};

Side library;
Side interpreter;

const TableType& table_type_of(const TypeInfo& type) {
    static const std::vector<const TableType*> table_types = [] {
        std::vector<const TableType*> found;
        for (const TypeInfo* each : test::all_types()) found.push_back(&test::interpreter::find_type(each->name));
        return found;
    }();
    const auto& types = test::all_types();
    return *table_types[static_cast<std::size_t>(std::find(types.begin(), types.end(), &type) - types.begin())];
}

// Compares the two sides' messages. A pointer is the same if it points at the same block of its side's pool, or at no
// block and the same place.
class SameMessage {
public:
    static void check(const TypeInfo& type, const std::uint8_t* left, const std::uint8_t* right) {
        expect(std::memcmp(left + type.presence_offset, right + type.presence_offset, type.presence_size) == 0,
               "the presence bits differ");
        for (const FieldInfo& field : type.fields) check_field(field, left, right);
    }

private:
    static void check_field(const FieldInfo& field, const std::uint8_t* left, const std::uint8_t* right) {
        if (is_number(field)) {
            expect(number_of(field, left) == number_of(field, right), "a number differs");
        } else if (field.kind == Kind::message) {
            check(*field.nested, left + field.offset, right + field.offset);
        } else {
            check_block(field, left, right);
        }
    }

    static void check_block(const FieldInfo& field, const std::uint8_t* left, const std::uint8_t* right) {
        const std::uint8_t* from = pointer_of(field, left);
        const std::uint8_t* to = pointer_of(field, right);
        if (field.kind != Kind::string) {
            expect(pointed_size(field, left) == pointed_size(field, right), "a length or count differs");
        }
        const Pool::Block* left_block = from == nullptr ? nullptr : library.pool.find(from);
        const Pool::Block* right_block = to == nullptr ? nullptr : interpreter.pool.find(to);
        if (left_block == nullptr || right_block == nullptr) {
            expect(left_block == right_block && from == to, "a pointer differs");
            return;
        }
        expect(left_block - library.pool.blocks().data() == right_block - interpreter.pool.blocks().data(),
               "a pointer points at another block");
        if (field.kind == Kind::list) {
            for (std::uint64_t offset = 0; offset < pointed_size(field, left); offset += field.nested->size) {
                check(*field.nested, from + offset, to + offset);
            }
        } else {
            expect(std::memcmp(from, to, std::min(left_block->size, right_block->size)) == 0,
                   "a block's content differs");
        }
    }
};

void compare_results(const TypeInfo& type) {
    expect(library.code == interpreter.code, "the codes differ");
    SameMessage::check(type, library.message, interpreter.message);
    expect(library.pool.history() == interpreter.pool.history(), "the requests and releases differ");
}

void compare_decoding(const Input& input) {
    const TypeInfo& type = *input.type;
    const vesk_alloc alloc = input.has_alloc ? Pool::alloc : nullptr;
    library.message = library.structures.take(type.size);
    interpreter.message = interpreter.structures.take(type.size);
    library.code = type.decode(library.message, input.message, input.length, alloc, &library.pool, input.flags);
    interpreter.code = test::interpreter::decode(table_type_of(type), interpreter.message, input.message, input.length,
                                                 alloc, &interpreter.pool, input.flags);
    compare_results(type);
}

void compare_freeing(const TypeInfo& type, std::uint32_t flags) {
    type.free(library.message, Pool::release, &library.pool, flags);
    test::interpreter::release(table_type_of(type), interpreter.message, Pool::release, &interpreter.pool, flags);
    compare_results(type);
}

void compare_duplicating(const Input& input, const void* source) {
    const TypeInfo& type = *input.type;
    const vesk_alloc alloc = input.has_alloc ? Pool::alloc : nullptr;
    library.message = library.structures.take(type.size);
    interpreter.message = interpreter.structures.take(type.size);
    library.code = type.duplicate(library.message, source, alloc, &library.pool);
    interpreter.code =
        test::interpreter::duplicate(table_type_of(type), interpreter.message, source, alloc, &interpreter.pool);
    compare_results(type);
}

// Both encode one message into one buffer and one list, so that addresses are the same, too.
class Encoding {
public:
    Encoding(const Input& input, const void* message) : input_(input), message_(message) {}

    void compare() {
        const TypeInfo& type = *input_.type;
        const std::uint64_t whole = measured(type, message_, input_.flags);
        const std::uint64_t room = input_.room % (whole + 3);
        const std::uint32_t capacity = input_.capacity % 16;
        // The highest capacities stand for no list at all.
        const bool wants_list = input_.capacity < 0xC0;

        std::uint8_t* buffer = library.structures.take(room, untouched);
        auto* segments =
            reinterpret_cast<vesk_segment*>(library.structures.take(capacity * sizeof(vesk_segment), untouched));
        std::uint8_t* buffer_before = interpreter.structures.take(room);
        std::uint8_t* segments_before = interpreter.structures.take(capacity * sizeof(vesk_segment));

        std::uint32_t count = capacity;
        const std::uint64_t length = type.encode(message_, room == 0 ? nullptr : buffer, room, segments,
                                                 wants_list ? &count : nullptr, input_.flags);
        std::memcpy(buffer_before, buffer, room);
        std::memcpy(segments_before, segments, capacity * sizeof(vesk_segment));
        std::memset(buffer, untouched, room);
        std::memset(static_cast<void*>(segments), untouched, capacity * sizeof(vesk_segment));

        std::uint32_t other_count = capacity;
        expect(test::interpreter::encode(table_type_of(type), message_, room == 0 ? nullptr : buffer, room, segments,
                                         wants_list ? &other_count : nullptr, input_.flags) == length,
               "the lengths of the encoding differ");
        expect(count == other_count, "the numbers of segments differ");
        expect(std::memcmp(buffer, buffer_before, room) == 0, "the encodings differ");
        expect(std::memcmp(segments, segments_before, capacity * sizeof(vesk_segment)) == 0, "the segments differ");
    }

private:
    static constexpr std::uint8_t untouched = 0xEE;
    const Input& input_;
    const void* message_;
};

}  // namespace

void check(const Input& input) {
    const TypeInfo& type = *input.type;
    library.reset(input.refused);
    interpreter.reset(input.refused);
    compare_decoding(input);
    compare_freeing(type, input.flags);

    // A message to encode and duplicate: what can be read of the input, as a careless caller leaves it.
    static Pool structures;
    static Pool pool;
    structures.reset();
    pool.reset();
    std::uint8_t* source = structures.take(type.size);
    type.decode(source, input.message, input.length, Pool::alloc, &pool, input.flags);
    distort(type, source, input.distortion);

    Encoding(input, source).compare();
    library.reset(input.refused);
    interpreter.reset(input.refused);
    compare_duplicating(input, source);
    compare_freeing(type, 0);
}

}  // namespace vesk::fuzz
