#include "fuzz/implementations.hpp"

#include <algorithm>
#include <cstring>

#include "fuzz/messages.hpp"

namespace vesk::fuzz {
namespace {

using test::load;
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
        if (field.kind == Kind::string || field.kind == Kind::bytes || field.kind == Kind::repeated) {
            return check_content(from, to);
        }
        if (!point_at_blocks(from, to)) return;
        const std::size_t step = element_size(field);
        for (std::uint64_t offset = 0; offset < pointed_size(field, left); offset += step) {
            check_element(field, from + offset, to + offset);
        }
    }

    static void check_element(const FieldInfo& field, const std::uint8_t* left, const std::uint8_t* right) {
        if (field.kind == Kind::list) return check(*field.nested, left, right);
        if (field.kind == Kind::blobs) {
            constexpr std::size_t length = offsetof(vesk_bytes, length);
            expect(load<std::uint64_t>(left, length) == load<std::uint64_t>(right, length),
                   "an element's length differs");
        }
        check_content(load<const std::uint8_t*>(left, 0), load<const std::uint8_t*>(right, 0));
    }

    static void check_content(const std::uint8_t* left, const std::uint8_t* right) {
        if (!point_at_blocks(left, right)) return;
        const std::uint64_t size = std::min(library.pool.find(left)->size, interpreter.pool.find(right)->size);
        expect(std::memcmp(left, right, size) == 0, "a block's content differs");
    }

    // False if both point at no block, but at the same place.
    static bool point_at_blocks(const std::uint8_t* left, const std::uint8_t* right) {
        const Pool::Block* left_block = left == nullptr ? nullptr : library.pool.find(left);
        const Pool::Block* right_block = right == nullptr ? nullptr : interpreter.pool.find(right);
        if (left_block == nullptr || right_block == nullptr) {
            expect(left_block == right_block && left == right, "a pointer differs");
            return false;
        }
        expect(left_block - library.pool.blocks().data() == right_block - interpreter.pool.blocks().data(),
               "a pointer points at another block");
        return true;
    }
};

void compare_results(const TypeInfo& type) {
    expect(library.code == interpreter.code, "the codes differ");
    SameMessage::check(type, library.message, interpreter.message);
    expect(library.pool.history() == interpreter.pool.history(), "the requests and releases differ");
}

void compare_decoding(const Input& input, const TableType& table_type) {
    const TypeInfo& type = *input.type;
    const vesk_alloc alloc = input.has_alloc ? Pool::alloc : nullptr;
    library.message = library.structures.take(type.size);
    interpreter.message = interpreter.structures.take(type.size);
    library.code = type.decode(library.message, input.message, input.length, alloc, &library.pool, input.flags);
    interpreter.code = test::interpreter::decode(table_type, interpreter.message, input.message, input.length, alloc,
                                                 &interpreter.pool, input.flags);
    compare_results(type);
}

void compare_freeing(const TypeInfo& type, const TableType& table_type, std::uint32_t flags) {
    type.free(library.message, Pool::release, &library.pool, flags);
    test::interpreter::release(table_type, interpreter.message, Pool::release, &interpreter.pool, flags);
    compare_results(type);
}

void compare_duplicating(const Input& input, const TableType& table_type, const void* source) {
    const TypeInfo& type = *input.type;
    const vesk_alloc alloc = input.has_alloc ? Pool::alloc : nullptr;
    library.message = library.structures.take(type.size);
    interpreter.message = interpreter.structures.take(type.size);
    library.code = type.duplicate(library.message, source, alloc, &library.pool);
    interpreter.code = test::interpreter::duplicate(table_type, interpreter.message, source, alloc, &interpreter.pool);
    compare_results(type);
}

// Both encode one message into one buffer and one list, so that addresses are the same, too.
class Encoding {
public:
    Encoding(const Input& input, const TableType& table_type, const void* message)
        : input_(input), table_type_(table_type), message_(message) {}

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
        expect(test::interpreter::encode(table_type_, message_, room == 0 ? nullptr : buffer, room, segments,
                                         wants_list ? &other_count : nullptr, input_.flags) == length,
               "the lengths of the encoding differ");
        expect(count == other_count, "the numbers of segments differ");
        expect(std::memcmp(buffer, buffer_before, room) == 0, "the encodings differ");
        expect(std::memcmp(segments, segments_before, capacity * sizeof(vesk_segment)) == 0, "the segments differ");
    }

private:
    static constexpr std::uint8_t untouched = 0xEE;
    const Input& input_;
    const TableType& table_type_;
    const void* message_;
};

}  // namespace

void hold_against_interpreter(const Input& input, const TableType& table_type) {
    const TypeInfo& type = *input.type;
    library.reset(input.refused);
    interpreter.reset(input.refused);
    compare_decoding(input, table_type);
    compare_freeing(type, table_type, input.flags);

    // A message to encode and duplicate: what can be read of the input, as a careless caller leaves it.
    static Pool structures;
    static Pool pool;
    structures.reset();
    pool.reset();
    std::uint8_t* source = structures.take(type.size);
    type.decode(source, input.message, input.length, Pool::alloc, &pool, input.flags);
    distort(type, source, input.distortion);

    Encoding(input, table_type, source).compare();
    library.reset(input.refused);
    interpreter.reset(input.refused);
    compare_duplicating(input, table_type, source);
    compare_freeing(type, table_type, 0);
}

}  // namespace vesk::fuzz
