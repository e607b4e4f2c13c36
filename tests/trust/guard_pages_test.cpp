// Inputs, buffers, segment lists and structures of every length against pages that nobody can touch, before them and
// behind them. What is read and listed is held to the second implementation of tests/support, in ordinary memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>

#include "tests/support/arena.hpp"
#include "tests/support/first_difference.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/guarded_memory.hpp"
#include "tests/support/interpreter.hpp"
#include "tests/trust/sanitized.hpp"

namespace vesk::test {
namespace {

constexpr std::size_t arena_size = 1 << 20;

std::size_t count_blocks_out(const Arena& arena) {
    std::size_t out = 0;
    for (const Request& request : arena.history()) out += request.what == Request::What::alloc ? 1 : -1;
    return out;
}

// ---- Decode --------------------------------------------------------------------------------------------------------

// Decodes into a structure that ends at an untouchable page, and compares.
class GuardedDecoder {
public:
    explicit GuardedDecoder(const TypeInfo& type)
        : type_(type), structure_(type.size), expected_(type), table_type_(interpreter::find_type(type.name)) {}

    void decode_elsewhere(const std::uint8_t* input, std::size_t length) {
        expected_blocks_.reset();
        expected_code_ =
            interpreter::decode(table_type_, expected_.get(), input, length, Arena::alloc, &expected_blocks_, 0);
    }

    std::int32_t expected_code() const { return expected_code_; }

    void expect_same(const char* place, const std::uint8_t* input, std::uint64_t length) {
        announce_attempt(place, type_.name, static_cast<std::size_t>(length));
        void* message = structure_.before_end(type_.size);
        std::memset(message, 0x5A, type_.size);
        blocks_.reset();
        ASSERT_EQ(type_.decode(message, input, length, Arena::alloc, &blocks_, 0), expected_code_);
        ASSERT_EQ(first_difference(type_, message, expected_.get()), "");
        type_.free(message, Arena::release, &blocks_, 0);
        ASSERT_EQ(count_blocks_out(blocks_), 0u);
    }

private:
    const TypeInfo& type_;
    GuardedMemory structure_;
    Arena blocks_{arena_size};
    Storage expected_;
    Arena expected_blocks_{arena_size};
    std::int32_t expected_code_ = VESK_OK;
    const interpreter::TableType& table_type_;
};

// Every prefix of an input, behind the first page and before the second.
void decode_every_prefix(const std::function<Bytes(const TypeInfo& type)>& input_of) {
    for (const TypeInfo* type : all_types()) {
        const Bytes whole = input_of(*type);
        const GuardedMemory input(whole.size());
        GuardedDecoder decoder(*type);
        for (const std::size_t length : numbers_to(whole.size())) {
            SCOPED_TRACE(type->name + ", first " + std::to_string(length) + " of " + std::to_string(whole.size()) +
                         " bytes");
            decoder.decode_elsewhere(whole.data(), length);
            std::copy_n(whole.begin(), length, input.begin());
            decoder.expect_same("decode behind the first page", input.begin(), length);
            std::copy_n(whole.begin(), length, input.before_end(length));
            decoder.expect_same("decode before the second page", input.before_end(length), length);
            if (::testing::Test::HasFailure()) return;
        }
    }
}

TEST(guard_pages, decode_of_every_prefix_stays_inside_the_input) {
    decode_every_prefix([](const TypeInfo& type) { return full_encoding(type); });
}

// With tags and lengths of several bytes from the first byte on.
TEST(guard_pages, skip_of_unknown_fields_stays_inside_the_input) {
    constexpr std::uint32_t unknown = 5000;
    const Bytes input = message(number_field(unknown, ~std::uint64_t{0}), tag(unknown, fixed64_type), Bytes(8, 0x55),
                                tag(unknown, fixed32_type), Bytes(4, 0x55), tag(unknown, length_type), over_long(3, 7),
                                Bytes(3, 0x55), over_long(unknown << 3, 12), over_long(1, 12));
    decode_every_prefix([&](const TypeInfo&) { return input; });
}

// Each is an error after a full message and a field of another number, and nothing past it is needed to say so.
std::vector<Bytes> errors_of(const TypeInfo& type) {
    std::vector<Bytes> errors{tag(5000, 3), tag(type.fields[0].number, fixed32_type)};
    for (const FieldInfo& field : type.fields) {
        const bool is_single = field.kind == Kind::string || field.kind == Kind::bytes || field.kind == Kind::list;
        if (is_single) errors.push_back(tag(field.number, length_type));
    }
    return errors;
}

// Lengths that would end past the last address, or make more of an input than an object can be.
std::vector<std::uint64_t> impossible_lengths(const std::uint8_t* input) {
    const std::uint64_t to_last_address = UINTPTR_MAX - reinterpret_cast<std::uintptr_t>(input);
    std::vector<std::uint64_t> lengths{to_last_address + 1, to_last_address + 2, PTRDIFF_MAX + std::uint64_t{1},
                                       UINT64_MAX - 1, UINT64_MAX};
    if constexpr (UINTPTR_MAX < UINT64_MAX) {  // an address has fewer bits than a length
        for (const std::uint64_t low_bits : {0, 1, 100}) lengths.push_back((std::uint64_t{1} << 32) + low_bits);
    }
    return lengths;
}

TEST(guard_pages, length_that_no_input_can_have_changes_no_code_and_nothing_past_the_error_is_read) {
    std::set<std::int32_t> codes;
    for (const TypeInfo* type : all_types()) {
        GuardedDecoder decoder(*type);
        for (const Bytes& error : errors_of(*type)) {
            const Bytes whole = message(full_encoding(*type), number_field(1000, 0), error);
            const GuardedMemory memory(whole.size());
            std::uint8_t* const input = memory.before_end(whole.size());
            std::copy(whole.begin(), whole.end(), input);
            decoder.decode_elsewhere(whole.data(), whole.size());
            codes.insert(decoder.expected_code());
            for (const std::uint64_t length : impossible_lengths(input)) {
                SCOPED_TRACE(type->name + ", length " + std::to_string(length) + ", error " + to_hex(error));
                decoder.expect_same("decode of a length that no input can have", input, length);
                if (HasFailure()) return;
            }
        }
    }
    EXPECT_EQ(codes, (std::set<std::int32_t>{VESK_MALFORMED, VESK_UNKNOWN_WIRE_TYPE, VESK_WRONG_WIRE_TYPE}));
}

// ---- Encode --------------------------------------------------------------------------------------------------------

constexpr std::uint8_t untouched = 0xEE;

// A full message that never goes back. Its bytes fields point into an input that ends at an untouchable page, and all
// of it can be made read-only: structure, input, strings and arrays.
class FullMessage {
public:
    explicit FullMessage(const TypeInfo& type)
        : type_(type),
          encoding_(full_encoding(type)),
          input_(encoding_.size()),
          structure_(type.size),
          blocks_(room_for_blocks) {
        std::uint8_t* input = input_.before_end(encoding_.size());
        std::copy(encoding_.begin(), encoding_.end(), input);
        code_ = type.decode(get(), input, encoding_.size(), take_block, this, VESK_BYTES_BY_REFERENCE);
    }
    FullMessage(const FullMessage&) = delete;
    FullMessage& operator=(const FullMessage&) = delete;
    ~FullMessage() = default;

    void* get() const { return structure_.before_end(type_.size); }
    void forbid_writing() const {
        for (const GuardedMemory* memory : {&structure_, &input_, &blocks_}) memory->forbid_writing();
    }
    const Bytes& encoding() const { return encoding_; }
    std::int32_t code() const { return code_; }

private:
    static constexpr std::size_t room_for_blocks = 1 << 17;

    static void* take_block(std::uint64_t size, void* context) {
        FullMessage& message = *static_cast<FullMessage*>(context);
        const std::size_t taken = (static_cast<std::size_t>(size) + 15) / 16 * 16;
        if (taken > room_for_blocks - message.blocks_used_) return nullptr;
        void* block = message.blocks_.begin() + message.blocks_used_;
        message.blocks_used_ += taken;
        return block;
    }

    const TypeInfo& type_;
    Bytes encoding_;
    GuardedMemory input_;
    GuardedMemory structure_;
    GuardedMemory blocks_;
    std::size_t blocks_used_ = 0;
    std::int32_t code_;
};

TEST(guard_pages, encode_into_every_length_stays_inside_the_buffer) {
    for (const TypeInfo* type : all_types()) {
        const FullMessage message(*type);
        ASSERT_EQ(message.code(), VESK_OK) << type->name;
        const Bytes& whole = message.encoding();
        const std::vector<std::size_t> room_needed = room_needed_by_full_encoding(*type);
        const GuardedMemory memory(whole.size() + 1);
        Bytes expected(whole.size() + 1, untouched);
        std::size_t stored = 0;
        for (const std::size_t room : numbers_to(whole.size() + 1)) {
            for (; stored < whole.size() && room_needed[stored] <= room; ++stored) expected[stored] = whole[stored];
            const auto expect_same = [&](const char* place, std::uint8_t* buffer) {
                announce_attempt(place, type->name, room);
                std::memset(buffer, untouched, room);
                ASSERT_EQ(type->encode(message.get(), buffer, room, nullptr, nullptr, 0), whole.size()) << type->name;
                ASSERT_EQ(std::memcmp(buffer, expected.data(), room), 0)
                    << place << " of " << type->name << ", room for " << room << " of " << whole.size() << " bytes";
            };
            expect_same("encode behind the first page", memory.begin());
            expect_same("encode before the second page", memory.before_end(room));
            if (HasFailure()) return;
        }
        EXPECT_EQ(stored, whole.size());
    }
}

TEST(guard_pages, encode_with_every_capacity_stays_inside_the_segment_list) {
    std::uint32_t longest = 0;
    for (const TypeInfo* type : all_types()) {
        const auto& table_type = interpreter::find_type(type->name);
        const FullMessage message(*type);
        Bytes buffer(message.encoding().size());
        // The result and the count.
        const auto list = [&](auto&& encode, vesk_segment* segments, std::uint32_t capacity) {
            for (std::uint32_t i = 0; i < capacity; ++i) segments[i] = {nullptr, 0};
            const std::uint64_t length = encode(message.get(), buffer.data(), buffer.size(),
                                                capacity != 0 ? segments : nullptr, &capacity, VESK_BYTES_BY_REFERENCE);
            return std::pair(length, capacity);
        };
        const auto interpret = [&](auto... arguments) { return interpreter::encode(table_type, arguments...); };

        const auto whole = list(interpret, nullptr, 0);
        const std::uint32_t needed = whole.second;
        longest = std::max(longest, needed);
        const GuardedMemory memory((needed + 1) * sizeof(vesk_segment));
        std::vector<vesk_segment> expected(needed + 1);
        for (std::uint32_t capacity = 0; capacity <= needed + 1; ++capacity) {
            ASSERT_EQ(list(interpret, expected.data(), capacity), whole);
            const auto expect_same = [&](const char* place, std::uint8_t* start) {
                announce_attempt(place, type->name, capacity);
                vesk_segment* segments = reinterpret_cast<vesk_segment*>(start);
                ASSERT_EQ(list(type->encode, segments, capacity), whole) << type->name;
                const auto same = [](const vesk_segment& left, const vesk_segment& right) {
                    return left.data == right.data && left.length == right.length;
                };
                ASSERT_TRUE(std::equal(segments, segments + capacity, expected.begin(), same))
                    << place << " of " << type->name << ", capacity " << capacity << " of " << needed;
            };
            expect_same("segments behind the first page", memory.begin());
            expect_same("segments before the second page", memory.before_end(capacity * sizeof(vesk_segment)));
            if (HasFailure()) return;
        }
    }
    EXPECT_GT(longest, 2u);
}

// ---- What is only read ---------------------------------------------------------------------------------------------

TEST(guard_pages, input_is_only_read) {
    for (const TypeInfo* type : all_types()) {
        const Bytes whole = full_encoding(*type);
        const GuardedMemory input(whole.size());
        std::copy(whole.begin(), whole.end(), input.begin());
        input.forbid_writing();
        for (const std::uint32_t flags : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
            announce_attempt("decode and free of read-only input", type->name, whole.size());
            Ledger ledger;
            Storage message(*type);
            EXPECT_EQ(type->decode(message.get(), input.begin(), whole.size(), Ledger::alloc, &ledger, flags), VESK_OK);
            type->free(message.get(), Ledger::release, &ledger, flags);
        }
    }
}

TEST(guard_pages, source_of_encode_and_duplicate_is_only_read) {
    for (const TypeInfo* type : all_types()) {
        const FullMessage message(*type);
        ASSERT_EQ(message.code(), VESK_OK) << type->name;
        message.forbid_writing();
        announce_attempt("encode of a read-only message", type->name, type->size);
        EXPECT_EQ(to_hex(encoded(*type, message.get())), to_hex(message.encoding())) << type->name;
        announce_attempt("encode of a read-only message into a list and a short buffer", type->name, type->size);
        Bytes buffer(message.encoding().size() / 2);
        std::vector<vesk_segment> segments(2);
        std::uint32_t count = 2;
        EXPECT_EQ(type->encode(message.get(), buffer.data(), buffer.size(), segments.data(), &count, 0),
                  message.encoding().size());
        announce_attempt("duplicate of a read-only message", type->name, type->size);
        Ledger ledger;
        Storage copy(*type);
        EXPECT_EQ(type->duplicate(copy.get(), message.get(), Ledger::alloc, &ledger), VESK_OK) << type->name;
        type->free(copy.get(), Ledger::release, &ledger, 0);
    }
}

// ---- Structures ----------------------------------------------------------------------------------------------------

TEST(guard_pages, all_four_operations_stay_inside_the_structures) {
    for (const TypeInfo* type : all_types()) {
        const FullMessage message(*type);
        const Bytes& encoding = message.encoding();
        const GuardedMemory memory(type->size);
        for (std::uint8_t* structure : {memory.begin(), memory.before_end(type->size)}) {
            Ledger ledger;
            announce_attempt("duplicate", type->name, type->size);
            ASSERT_EQ(type->duplicate(structure, message.get(), Ledger::alloc, &ledger), VESK_OK) << type->name;
            EXPECT_EQ(to_hex(encoded(*type, structure)), to_hex(encoding)) << type->name;
            announce_attempt("free", type->name, type->size);
            type->free(structure, Ledger::release, &ledger, 0);
            announce_attempt("decode", type->name, type->size);
            ASSERT_EQ(type->decode(structure, encoding.data(), encoding.size(), Ledger::alloc, &ledger, 0), VESK_OK);
            EXPECT_EQ(first_difference(*type, structure, message.get()), "");
            type->free(structure, Ledger::release, &ledger, 0);
        }
    }
}

}  // namespace
}  // namespace vesk::test
