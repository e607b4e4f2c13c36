// Every input of up to three bytes, for every type, decoded and freed by the library and by the second implementation
// of tests/support: the same code, members, blocks, requests and releases. Up to two bytes come to 6.3 million inputs,
// three to 1.6 thousand million.
#include <gtest/gtest.h>

#include "tests/support/arena.hpp"
#include "tests/support/first_difference.hpp"
#include "tests/support/interpreter.hpp"
#include "tests/trust/sanitized.hpp"

namespace vesk::test {
namespace {

// Under a sanitizer every 61st input of two bytes is tried.
constexpr std::uint32_t stride_of_two_bytes = sanitized ? 61 : 1;

// One implementation's memory, which begins each time in the same state.
struct Side {
    explicit Side(const TypeInfo& type) : message(type) {}

    void prepare(const TypeInfo& type) {
        blocks.reset();
        std::memset(message.get(), 0x5A, type.size);
    }

    Arena blocks{1 << 16};
    Storage message;
    std::int32_t code = VESK_OK;
};

class Comparison {
public:
    explicit Comparison(const TypeInfo& type)
        : type_(type), table_type_(interpreter::find_type(type.name)), ours_(type), theirs_(type) {}

    // Returns false if the implementations differ.
    bool decode_and_free(const std::uint8_t* input, std::size_t length) {
        ours_.prepare(type_);
        theirs_.prepare(type_);
        ours_.code = type_.decode(ours_.message.get(), input, length, Arena::alloc, &ours_.blocks, 0);
        theirs_.code =
            interpreter::decode(table_type_, theirs_.message.get(), input, length, Arena::alloc, &theirs_.blocks, 0);
        ++codes_[-ours_.code];
        if (ours_.code != theirs_.code || !is_same_message()) return false;
        type_.free(ours_.message.get(), Arena::release, &ours_.blocks, 0);
        interpreter::release(table_type_, theirs_.message.get(), Arena::release, &theirs_.blocks, 0);
        return ours_.blocks.history() == theirs_.blocks.history() && is_same_message();
    }

    // Every code but the one for memory, of which there was enough.
    void expect_every_code() const {
        for (const std::int32_t code : {VESK_OK, VESK_MALFORMED, VESK_UNKNOWN_WIRE_TYPE, VESK_WRONG_WIRE_TYPE}) {
            EXPECT_GT(codes_[-code], 0u) << "no input of " << type_.name << " came to code " << code;
        }
        EXPECT_EQ(codes_[-VESK_NO_MEMORY], 0u) << type_.name;
    }

private:
    bool is_same_message() const { return first_difference(type_, ours_.message.get(), theirs_.message.get()).empty(); }

    const TypeInfo& type_;
    const interpreter::TableType& table_type_;
    Side ours_;
    Side theirs_;
    std::uint64_t codes_[5] = {};
};

void try_every_input(const TypeInfo& type, std::uint32_t length, std::uint32_t stride, Comparison& comparison) {
    const std::uint64_t inputs = std::uint64_t{1} << 8 * length;
    for (std::uint64_t number = 0; number < inputs; number += stride) {
        std::uint8_t input[4];
        for (std::uint32_t i = 0; i < length; ++i) input[i] = static_cast<std::uint8_t>(number >> 8 * i);
        ASSERT_TRUE(comparison.decode_and_free(input, length))
            << type.name << ": " << to_hex(Bytes(input, input + length));
    }
}

TEST(small_scope, every_input_of_up_to_two_bytes_is_read_alike) {
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        try_every_input(*type, 0, 1, comparison);
        try_every_input(*type, 1, 1, comparison);
        try_every_input(*type, 2, stride_of_two_bytes, comparison);
        comparison.expect_every_code();
        if (HasFailure()) return;
    }
}

TEST(small_scope, every_input_of_three_bytes_is_read_alike) {
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        try_every_input(*type, 3, 1, comparison);
        comparison.expect_every_code();
        if (HasFailure()) return;
    }
}

}  // namespace
}  // namespace vesk::test
