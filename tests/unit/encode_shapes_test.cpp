// Encoding where the encoder has several ways, or changes from one to another: every shape in turn, of every type,
// against the second implementation.
#include <gtest/gtest.h>

#include <algorithm>

#include "runtime/draft.hpp"
#include "tests/support/api.hpp"
#include "tests/support/interpreter.hpp"
#include "tests/support/shaped_message.hpp"

namespace vesk::test {
namespace {

// ---- Both implementations of a type's encoding ---------------------------------------------------------------------

class Comparison {
public:
    explicit Comparison(const TypeInfo& type) : type_(type), rules_(interpreter::find_type(type.name)) {}

    std::uint64_t length_of(const void* message, std::uint32_t flags = 0) const {
        return interpreter::encode(rules_, message, nullptr, 0, nullptr, nullptr, flags);
    }

    ::testing::AssertionResult measures_the_same(const void* message, std::uint32_t flags = 0) const {
        const std::uint64_t length = type_.encode(message, nullptr, 0, nullptr, nullptr, flags);
        const std::uint64_t expected = length_of(message, flags);
        if (length == expected) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << type_.name << " measures " << length << " instead of " << expected;
    }

    // The result, the bytes, 16 more after the buffer, and the count if there is one.
    ::testing::AssertionResult writes_the_same(const void* message, std::uint64_t room, std::uint32_t flags = 0,
                                               bool counted = false) {
        std::uint32_t expected_count = 0;
        std::uint32_t count = 0;
        expected_.assign(room + 16, 0xEE);
        buffer_.assign(room + 16, 0xEE);
        const std::uint64_t expected = interpreter::encode(rules_, message, expected_.data(), room, nullptr,
                                                           counted ? &expected_count : nullptr, flags);
        const std::uint64_t length =
            type_.encode(message, buffer_.data(), room, nullptr, counted ? &count : nullptr, flags);
        if (length == expected && buffer_ == expected_ && count == expected_count) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure()
               << type_.name << " with room for " << room << ", flags " << flags << (counted ? ", counted: " : ": ")
               << length << " bytes, " << count << " segments, " << to_hex(buffer_) << " instead of " << expected
               << " bytes, " << expected_count << " segments, " << to_hex(expected_);
    }

    ::testing::AssertionResult is_the_same_in_every_buffer_up_to(std::uint64_t most, const void* message) {
        for (std::uint64_t room = 0; room <= most; ++room) {
            for (const bool counted : {false, true}) {
                const auto result = writes_the_same(message, room, 0, counted);
                if (!result) return result;
            }
        }
        return ::testing::AssertionSuccess();
    }

private:
    const TypeInfo& type_;
    const interpreter::TableType& rules_;
    Bytes expected_;
    Bytes buffer_;
};

// ---- Scalars in a row ----------------------------------------------------------------------------------------------

// Scalars of a type, one after another in the list of fields, at most four.
struct Row {
    std::size_t first;
    std::size_t size;
};

std::vector<Row> rows_of(const TypeInfo& type) {
    std::vector<Row> rows;
    for (std::size_t first = 0; first < type.fields.size(); ++first) {
        std::size_t size = 0;
        while (size < 4 && first + size < type.fields.size() && is_scalar_kind(type.fields[first + size].kind)) ++size;
        if (size != 0) rows.push_back({first, size});
    }
    return rows;
}

// Both sides of each length that a varint can have.
std::vector<std::uint64_t> edges() {
    std::vector<std::uint64_t> values{0, UINT32_MAX, std::uint64_t{UINT32_MAX} + 1, UINT64_MAX};
    for (unsigned bits = 7; bits < 64; bits += 7) {
        values.push_back((std::uint64_t{1} << bits) - 1);
        values.push_back(std::uint64_t{1} << bits);
    }
    return values;
}

// The values of four scalars: all alike, and each in turn another than the others.
std::vector<std::vector<std::uint64_t>> values_of_rows() {
    std::vector<std::vector<std::uint64_t>> all;
    for (const std::uint64_t value : edges()) all.emplace_back(4, value);
    for (std::size_t other = 0; other < 4; ++other) {
        for (const auto& [most, one] : {std::pair<std::uint64_t, std::uint64_t>{1, 0x80},
                                        {1, 0x4000},
                                        {0x3FFF, 0x4000},
                                        {1, UINT64_MAX},
                                        {UINT64_MAX, 1}}) {
            all.emplace_back(4, most);
            all.back()[other] = one;
        }
    }
    return all;
}

TEST(encode_row, of_every_presence_and_width_is_that_of_the_rules) {
    const auto all_values = values_of_rows();
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (const Row& row : rows_of(*type)) {
            ShapedMessage message(*type);
            for (const auto& values : all_values) {
                for (unsigned present = 0; present < 1u << row.size; ++present) {
                    for (std::size_t i = 0; i < row.size; ++i) {
                        message.set_scalar(row.first + i, values[i]);
                        if ((present >> i & 1) == 0) message.unmark(row.first + i);
                    }
                    ASSERT_TRUE(comparison.measures_the_same(message.get()))
                        << "field " << row.first << ", presence " << present << ", first value " << values[0];
                    ASSERT_TRUE(comparison.writes_the_same(message.get(), comparison.length_of(message.get())))
                        << "field " << row.first << ", presence " << present << ", first value " << values[0];
                }
            }
        }
    }
}

// ---- Strings and bytes fields --------------------------------------------------------------------------------------

constexpr std::size_t longest_content = 42;
static_assert(longest_content > longest_drafted_string + 16);

// With every number of bytes after it up to the end of the buffer: what stands there is copied in blocks.
TEST(encode_content, of_every_length_with_every_number_of_bytes_after_it_is_that_of_the_rules) {
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (std::size_t index = 0; index < type->fields.size(); ++index) {
            const Kind kind = type->fields[index].kind;
            if (kind != Kind::string && kind != Kind::bytes) continue;
            for (std::size_t length = 0; length <= longest_content; ++length) {
                ShapedMessage message(*type);
                message.set_content(index, length);
                for (std::size_t after = index; after < type->fields.size(); ++after) {
                    if (is_scalar_kind(type->fields[after].kind)) message.set_scalar(after, 1);
                    const std::uint64_t whole = comparison.length_of(message.get());
                    for (const std::uint64_t spare : {0, 1, 15, 16, 40}) {
                        ASSERT_TRUE(comparison.writes_the_same(message.get(), whole + spare)) << length;
                    }
                    ASSERT_TRUE(comparison.writes_the_same(message.get(), whole - 1)) << length;
                    ASSERT_TRUE(comparison.writes_the_same(message.get(), whole, VESK_BYTES_BY_REFERENCE)) << length;
                    ASSERT_TRUE(comparison.writes_the_same(message.get(), whole, VESK_BYTES_BY_REFERENCE, true))
                        << length;
                }
            }
        }
    }
}

// Whether a bytes field adds its length to the position depends on the position, which comes of all that precedes it.
TEST(encode_bytes, of_a_length_at_which_the_position_wraps_are_those_of_the_rules) {
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (std::size_t index = 0; index < type->fields.size(); ++index) {
            if (type->fields[index].kind != Kind::bytes) continue;
            for (const std::uint64_t value : {std::uint64_t{1}, std::uint64_t{0x4000}, UINT64_MAX}) {
                ShapedMessage message(*type);
                for (std::size_t before = 0; before < index; ++before) {
                    if (is_scalar_kind(type->fields[before].kind)) message.set_scalar(before, value);
                }
                message.set_content(index, 1);
                if (index + 1 < type->fields.size() && is_scalar_kind(type->fields[index + 1].kind)) {
                    message.set_scalar(index + 1, value);
                }
                for (std::uint64_t less = 0; less < 400; ++less) {
                    store(message.get(), type->fields[index].second_offset, UINT64_MAX - less);
                    for (const std::uint32_t flags : {0u, 1u}) {
                        ASSERT_TRUE(comparison.measures_the_same(message.get(), flags)) << less;
                        ASSERT_TRUE(comparison.writes_the_same(message.get(), 9, flags, true)) << less;
                    }
                }
            }
        }
    }
}

// ---- Whole messages ------------------------------------------------------------------------------------------------

// Strings that are just drafted, and just not.
TEST(encode_every_type, of_the_longest_scalars_and_strings_is_that_of_the_rules) {
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (const std::size_t string :
             {std::size_t{longest_drafted_string}, std::size_t{longest_drafted_string} + 1}) {
            ShapedMessage message(*type);
            message.fill({UINT64_MAX, string, 2});
            for (const std::uint32_t flags : {0u, 1u}) {
                ASSERT_TRUE(comparison.measures_the_same(message.get(), flags));
                const std::uint64_t whole = comparison.length_of(message.get(), flags);
                for (const bool counted : {false, true}) {
                    for (const std::uint64_t room : {whole - 1, whole, whole + 1, whole + 40}) {
                        ASSERT_TRUE(comparison.writes_the_same(message.get(), room, flags, counted));
                    }
                }
            }
        }
    }
}

// A buffer that ends in every byte: of a small message, of an element with its head, of what is nested in it.
TEST(encode_every_type, into_a_buffer_of_every_length_is_that_of_the_rules) {
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (const Filling& filling : {Filling{1, 2, 2}, Filling{0x4000, 1, 1}}) {
            ShapedMessage message(*type);
            message.fill(filling);
            ASSERT_TRUE(
                comparison.is_the_same_in_every_buffer_up_to(comparison.length_of(message.get()) + 20, message.get()));
        }
    }
}

TEST(encode_small_message, of_the_longest_scalars_into_a_buffer_of_every_length_is_that_of_the_rules) {
    std::size_t small = 0;
    for (const TypeInfo* type : all_types()) {
        const bool scalars_alone = std::all_of(type->fields.begin(), type->fields.end(),
                                               [](const FieldInfo& field) { return is_scalar_kind(field.kind); });
        if (!scalars_alone) continue;
        ++small;
        Comparison comparison(*type);
        for (const std::uint64_t value : edges()) {
            ShapedMessage message(*type);
            message.fill({value, 0});
            ASSERT_TRUE(comparison.is_the_same_in_every_buffer_up_to(150, message.get())) << value;
        }
        ASSERT_TRUE(comparison.is_the_same_in_every_buffer_up_to(2, ShapedMessage(*type).get()));
    }
    EXPECT_NE(small, 0u);
}

}  // namespace
}  // namespace vesk::test
