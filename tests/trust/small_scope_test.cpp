// Every input of up to two bytes, for every type, decoded and freed by the library and by the second implementation of
// tests/support: the same code, members, blocks, requests and releases. VESK_SMALL_SCOPE=3 in the environment adds
// every input of three bytes: 1.6 thousand million decodes.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/arena.hpp"
#include "tests/support/first_difference.hpp"
#include "tests/support/interpreter.hpp"
#include "tests/trust/sanitized.hpp"

namespace vesk::test {
namespace {

// Under a sanitizer every 61st input of the longest ones is tried.
constexpr std::uint32_t stride_of_longest = sanitized ? 61 : 1;

std::uint32_t longest_input() {
    const char* text = std::getenv("VESK_SMALL_SCOPE");
    return text != nullptr ? static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10)) : 2;
}

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

    // Inputs that came to a code.
    std::uint64_t count_of(std::int32_t code) const { return codes_[-code]; }

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
    const std::uint32_t longest = longest_input();
    ASSERT_LE(longest, 3u) << "VESK_SMALL_SCOPE is 2 or 3";
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (std::uint32_t length = 0; length <= longest; ++length) {
            try_every_input(*type, length, length == longest ? stride_of_longest : 1, comparison);
            if (HasFailure()) return;
        }
        for (const std::int32_t code : {VESK_OK, VESK_MALFORMED, VESK_UNKNOWN_WIRE_TYPE, VESK_WRONG_WIRE_TYPE}) {
            EXPECT_GT(comparison.count_of(code), 0u) << "no input of " << type->name << " came to code " << code;
        }
        EXPECT_EQ(comparison.count_of(VESK_NO_MEMORY), 0u) << type->name;
    }
}

}  // namespace
}  // namespace vesk::test
