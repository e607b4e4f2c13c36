// Decoding where the decoder has several ways, or changes from one to another: tags and varints of every width, in
// every place, of every type, against the second implementation.
#include <gtest/gtest.h>

#include <set>

#include "tests/support/observe.hpp"
#include "tests/support/shaped_message.hpp"

namespace vesk::test {
namespace {

class Comparison {
public:
    explicit Comparison(const TypeInfo& type)
        : library_{type}, rules_{interpreter::find_type(type.name)}, place_(type) {}

    ::testing::AssertionResult reads_the_same(const Bytes& input, std::uint32_t flags = 0) {
        const std::string expected = observe_decode(rules_, input, flags, true, 0, place_);
        const std::string seen = observe_decode(library_, input, flags, true, 0, place_);
        if (seen == expected) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure()
               << place_.type.name << " from " << to_hex(input) << ": " << seen << " instead of " << expected;
    }

private:
    Library library_;
    Interpreter rules_;
    Workplace place_;
};

std::uint32_t wire_type_of(const FieldInfo& field) { return is_scalar_kind(field.kind) ? varint_type : length_type; }

// A tag of `width` bytes, or of as many more as it takes.
Bytes wide_tag(const FieldInfo& field, std::size_t width) {
    const Bytes plain = tag(field.number, wire_type_of(field));
    return width <= plain.size() ? plain : over_long(field.number << 3 | wire_type_of(field), width);
}

// A field with a short value, which tells one occurrence from another.
Bytes short_field(const FieldInfo& field, std::uint8_t value, std::size_t tag_width = 1) {
    const Bytes content = field.nested != nullptr ? Bytes{} : Bytes(1, value);
    return message(wide_tag(field, tag_width), is_scalar_kind(field.kind) ? Bytes(1, value) : sized(content));
}

// Values of one byte and more, at both sides of each length, in varints of up to 11 bytes.
std::vector<Bytes> varints() {
    std::vector<Bytes> all;
    for (const std::size_t width : {1u, 2u, 3u, 4u, 5u, 6u, 8u, 9u, 10u, 11u}) {
        for (unsigned bits = 0; bits <= 64; bits += bits == 63 ? 1 : 7) {
            const std::uint64_t most = bits == 64 ? UINT64_MAX : (std::uint64_t{1} << bits) - 1;
            for (const std::uint64_t value : {most, most + 1}) {
                if (varint(value).size() <= width) all.push_back(over_long(value, width));
            }
        }
    }
    return all;
}

// ---- Scalars -------------------------------------------------------------------------------------------------------

// A word is read where eight bytes follow, and must say the same as single bytes. One field of each kind is enough.
TEST(decode_scalar, of_every_width_with_every_number_of_bytes_after_it_is_that_of_the_rules) {
    const std::vector<Bytes> all = varints();
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        std::set<Kind> tried;
        for (const FieldInfo& field : type->fields) {
            if (!is_scalar_kind(field.kind) || !tried.insert(field.kind).second) continue;
            for (const Bytes& value : all) {
                Bytes input = message(tag(field.number, varint_type), value);
                const std::size_t whole = input.size();
                for (std::size_t more = 0; more <= 9; ++more) {
                    ASSERT_TRUE(comparison.reads_the_same(input));
                    input.push_back(more == 0 ? 0xF8 : 0x80);  // of an unknown field, whose tag does not end
                }
                ASSERT_TRUE(comparison.reads_the_same(
                    Bytes(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(whole) - 1)));
            }
        }
    }
}

// A word may reach past the range of a nested message, but what it says of the bytes there does not count.
TEST(decode_scalar, that_reaches_past_the_nested_message_is_malformed_whatever_follows) {
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (const FieldInfo& field : type->fields) {
            if (field.nested == nullptr) continue;
            std::set<Kind> tried;
            for (const FieldInfo& inner : field.nested->fields) {
                if (!is_scalar_kind(inner.kind) || !tried.insert(inner.kind).second) continue;
                for (std::size_t width = 0; width <= 10; ++width) {
                    const Bytes content = message(tag(inner.number, varint_type), Bytes(width, 0x81));
                    const Bytes input = message(message_field(field.number, content), Bytes(2, 0x01), Bytes(12, 0x00));
                    ASSERT_TRUE(comparison.reads_the_same(input));
                    const Bytes sound = message(tag(inner.number, varint_type), over_long(1, width + 1));
                    ASSERT_TRUE(
                        comparison.reads_the_same(message(message_field(field.number, sound), Bytes(12, 0x81))));
                }
            }
        }
    }
}

// ---- Tags ----------------------------------------------------------------------------------------------------------

TEST(decode_tag, of_every_width_after_every_other_field_is_that_of_the_rules) {
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (const FieldInfo& field : type->fields) {
            for (const std::size_t width : {1u, 3u, 6u, 11u}) {
                const Bytes wide = short_field(field, 'w', width);
                ASSERT_TRUE(comparison.reads_the_same(wide));
                if (width != 3) continue;  // enough after every other field
                for (const FieldInfo& other : type->fields) {
                    ASSERT_TRUE(comparison.reads_the_same(message(short_field(other, 'o'), wide, hex("00"))));
                }
            }
        }
    }
}

// Also the same field again; the last of the unknown ones cannot be skipped.
TEST(decode_fields, in_every_order_with_unknown_ones_between_are_those_of_the_rules) {
    const std::vector<Bytes> between{
        {}, number_field(1000, 300), message(tag(62, fixed64_type), hex("01 02 03 04 05 06 07 08")), tag(63, 3)};
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (const FieldInfo& one : type->fields) {
            for (const FieldInfo& other : type->fields) {
                for (const Bytes& unknown : between) {
                    ASSERT_TRUE(comparison.reads_the_same(
                        message(short_field(one, '1'), unknown, short_field(other, '2'), short_field(one, '3'))));
                }
            }
        }
    }
}

TEST(decode_fields, of_every_wire_type_are_those_of_the_rules) {
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (const FieldInfo& other : type->fields) {
            for (const FieldInfo& one : {type->fields.front(), other, type->fields.back()}) {
                for (std::uint32_t wire_type = 0; wire_type < 8; ++wire_type) {
                    ASSERT_TRUE(comparison.reads_the_same(
                        message(short_field(one, '1'), tag(other.number, wire_type), hex("01 08 01"))));
                }
            }
        }
    }
}

}  // namespace
}  // namespace vesk::test
