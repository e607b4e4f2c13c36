// What peek reads out of encoded bytes is what decoding leaves in the message: held against decode for every path of
// random, damaged and repeated messages.
#include <gtest/gtest.h>
#include <vesk/client_service.h>
#include <vesk/vesk_toolkit.h>

#include <cstring>

#include "tests/support/damage.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/guarded_memory.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

vesk_value empty_value() {
    vesk_value value;
    std::memset(&value, 0, sizeof value);
    value.size = sizeof value;
    return value;
}

struct Peeked {
    std::int32_t code;
    vesk_value value = empty_value();
    Peeked(const std::string& type, const std::string& path, const Bytes& input, std::uint32_t flags = 0) {
        vesk_options options = vesk_default_options();
        options.flags = flags;
        code = vesk_peek(vesk_type_named(type.c_str()), path.c_str(), input.data(), input.size(), &value, &options);
    }
};

std::uint64_t scalar_of(const FieldInfo& field, const void* message) {
    if (field.kind == Kind::uint32) return load<std::uint32_t>(message, field.offset);
    if (field.kind == Kind::uint64) return load<std::uint64_t>(message, field.offset);
    return load<std::uint8_t>(message, field.offset);
}

// Compares every path of a decoded message with the bytes that it was decoded from.
struct Comparison {
    const std::string type;
    const Bytes& input;
    std::uint64_t present = 0;
    std::uint64_t absent = 0;

    void compare(const TypeInfo& info, const void* message, const std::string& prefix) {
        const vesk_type* const facts = vesk_type_named(info.name.c_str());
        for (std::size_t i = 0; i < info.fields.size() && !::testing::Test::HasFailure(); ++i) {
            const std::string path = prefix + vesk_field_name(vesk_type_field(facts, static_cast<std::uint32_t>(i)));
            const Peeked peeked(type, path, input);
            SCOPED_TRACE(path + " in " + to_hex(input));
            if (is_present(info, message, i)) {
                ++present;
                ASSERT_EQ(peeked.code, VESK_OK);
                compare_field(info.fields[i], message, path, peeked.value);
            } else {
                ++absent;
                EXPECT_EQ(peeked.code, VESK_ABSENT);
            }
        }
    }

    void compare_field(const FieldInfo& field, const void* message, const std::string& path, const vesk_value& value) {
        if (field.kind <= Kind::boolean) {
            EXPECT_EQ(value.number, scalar_of(field, message));
        } else if (field.kind == Kind::string) {
            // The block has the bytes as they stand, a NUL among them or not.
            const char* const string = load<char*>(message, field.offset);
            EXPECT_EQ(std::memcmp(string, value.data, value.length), 0);
            EXPECT_EQ(string[value.length], '\0');
        } else if (field.kind == Kind::bytes) {
            ASSERT_EQ(value.length, load<std::uint64_t>(message, field.second_offset));
            EXPECT_EQ(std::memcmp(load<std::uint8_t*>(message, field.offset), value.data, value.length), 0);
        } else if (field.kind == Kind::message) {
            compare(*field.nested, member_at(message, field.offset), path + ".");
        } else {
            compare_list(field, message, path, value);
        }
    }

    void compare_list(const FieldInfo& field, const void* message, const std::string& path, const vesk_value& value) {
        ASSERT_EQ(value.count, load<std::uint32_t>(message, field.second_offset));
        void* const array = load<void*>(message, field.offset);
        vesk_iterator iterator;
        ASSERT_EQ(
            vesk_iterate(&iterator, vesk_type_named(type.c_str()), path.c_str(), input.data(), input.size(), nullptr),
            VESK_OK);
        for (std::uint32_t element = 0; element < value.count; ++element) {
            const std::string element_path = path + "[" + std::to_string(element) + "]";
            const Peeked peeked(type, element_path, input);
            ASSERT_EQ(peeked.code, VESK_OK);
            vesk_value next = empty_value();
            ASSERT_EQ(vesk_next(&iterator, &next), 1);
            EXPECT_EQ(next.data, peeked.value.data);
            EXPECT_EQ(next.length, peeked.value.length);
            EXPECT_EQ(next.type, peeked.value.type);
            compare(*field.nested, element_at(array, *field.nested, element), element_path + ".");
        }
        vesk_value next = empty_value();
        EXPECT_EQ(vesk_next(&iterator, &next), 0);
        EXPECT_EQ(vesk_next(&iterator, &next), 0);
        EXPECT_EQ(Peeked(type, path + "[" + std::to_string(value.count) + "]", input).code, VESK_PAST_THE_END);
    }
};

TEST(peek, every_path_of_a_message_is_what_decoding_leaves) {
    std::uint64_t present = 0;
    std::uint64_t absent = 0;
    for (const TypeInfo* type : all_types()) {
        SCOPED_TRACE(type->name);
        for (std::uint64_t seed = 0; seed < 4; ++seed) {
            const Bytes input =
                seed == 0 ? full_encoding(*type) : encoded(*type, RandomMessage(*type, seed, Amount::some).get());
            const AnyDecoded decoded(*type, input);
            ASSERT_EQ(decoded.code, VESK_OK);
            Comparison comparison{type->name, input};
            comparison.compare(*type, decoded.message.get(), "");
            present += comparison.present;
            absent += comparison.absent;
            if (::testing::Test::HasFailure()) return;
        }
    }
    EXPECT_GT(present, 5000u);
    EXPECT_GT(absent, 5000u);
}

// Scalars and nested messages that occur again, unknown fields, over-long varints, elements of other wire types.
TEST(peek, every_path_of_damaged_input_that_decodes_is_what_decoding_leaves) {
    std::uint64_t decoded_at_all = 0;
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t seed = 1; seed <= 20; ++seed) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(seed));
            std::mt19937_64 random(seed);
            const Bytes input = damage(encoded(*type, RandomMessage(*type, seed, Amount::some).get()), random);
            Ledger ledger;
            Storage message(*type);
            if (type->decode(message.get(), input.data(), input.size(), Ledger::alloc, &ledger, 0) == VESK_OK) {
                ++decoded_at_all;
                Comparison{type->name, input}.compare(*type, message.get(), "");
            }
            type->free(message.get(), Ledger::release, &ledger, 0);
            ledger.forget();
            if (::testing::Test::HasFailure()) return;
        }
    }
    EXPECT_GT(decoded_at_all, 300u);
}

TEST(peek, nested_message_that_occurs_again_is_the_last_as_a_whole) {
    const Bytes input = message(message_field(1, message(number_field(4, 7), text_field(2, "old"))),
                                message_field(1, number_field(11, 8)));
    EXPECT_EQ(Peeked("pem_data", "entity_common.f11", input).value.number, 8u);
    EXPECT_EQ(Peeked("pem_data", "entity_common.f4", input).code, VESK_ABSENT);
    EXPECT_EQ(Peeked("pem_data", "entity_common.f4", input, VESK_FIRST_OCCURRENCE).value.number, 7u);
}

TEST(peek, scalar_that_occurs_again_is_the_last_or_the_first_if_wanted) {
    const Bytes input = message(number_field(3, 1), number_field(4, 5), number_field(3, 2));
    EXPECT_EQ(Peeked("pem_data", "f3", input).value.number, 2u);
    EXPECT_EQ(Peeked("pem_data", "f3", input, VESK_FIRST_OCCURRENCE).value.number, 1u);
}

TEST(peek, error_anywhere_counts_unless_the_first_occurrence_is_wanted) {
    const Bytes input = message(number_field(3, 1), hex("22 01 00"));
    EXPECT_EQ(Peeked("pem_data", "f3", input).code, VESK_WRONG_WIRE_TYPE);
    EXPECT_EQ(Peeked("pem_data", "f3", input, VESK_FIRST_OCCURRENCE).code, VESK_OK);
    EXPECT_EQ(Peeked("pem_data", "entity_common", input, VESK_FIRST_OCCURRENCE).code, VESK_WRONG_WIRE_TYPE);
    const Bytes wrong_inside = message(message_field(1, hex("08")), number_field(3, 1));
    EXPECT_EQ(Peeked("pem_data", "f3", wrong_inside).code, VESK_WRONG_WIRE_TYPE);
    EXPECT_EQ(Peeked("pem_data", "f3", wrong_inside, VESK_FIRST_OCCURRENCE).code, VESK_OK);
    const Bytes cut = message(number_field(3, 1), hex("0A 05"));
    EXPECT_EQ(Peeked("pem_data", "f4", cut, VESK_FIRST_OCCURRENCE).code, VESK_MALFORMED);
    EXPECT_EQ(Peeked("pem_data", "entity_common.f2", cut, VESK_FIRST_OCCURRENCE).code, VESK_MALFORMED);
}

TEST(peek, path_that_the_type_does_not_have_is_told_before_the_input_is_read) {
    const Bytes broken = hex("80");
    for (const char* path :
         {"f9", "entity_common.", ".f3", "entity_common..f2", "f3.f4", "f3[0]", "entity_common[0]", "entity_common.f99",
          "F3", "f3 ", "entity_common.eid.element_list[x]", "entity_common.eid.element_list[]",
          "entity_common.eid.element_list[0", "entity_common.eid.element_list[0]f1",
          "entity_common.eid.element_list.f1", "entity_common.eid.element_list[-1]",
          "entity_common.eid.element_list[4294967296]", "entity_common.eid.element_list[99999999999999999999999]"}) {
        EXPECT_EQ(Peeked("pem_data", path, broken).code, VESK_NO_SUCH_PATH) << path;
    }
    EXPECT_EQ(Peeked("pem_data", "entity_common.eid.element_list[4294967295].f1", {}).code, VESK_ABSENT);
}

TEST(peek, empty_path_is_the_message_itself) {
    const Bytes input = number_field(3, 1);
    const Peeked peeked("pem_data", "", input);
    EXPECT_EQ(peeked.code, VESK_OK);
    EXPECT_EQ(peeked.value.kind, VESK_KIND_MESSAGE);
    EXPECT_EQ(peeked.value.data, input.data());
    EXPECT_EQ(peeked.value.length, input.size());
    EXPECT_EQ(peeked.value.type, vesk_type_named("pem_data"));
}

TEST(peek, value_is_left_alone_after_an_error) {
    vesk_value value = empty_value();
    value.number = 42;
    EXPECT_EQ(vesk_peek(vesk_type_named("pem_data"), "f3", nullptr, 0, &value, nullptr), VESK_ABSENT);
    EXPECT_EQ(value.number, 42u);
}

TEST(iterate, path_of_anything_but_a_list_is_no_such_path_whatever_the_input) {
    vesk_iterator iterator;
    for (const Bytes& input : {message(number_field(3, 1), message_field(1, {})), Bytes{}, hex("18")}) {
        for (const char* path :
             {"", "f3", "entity_common", "entity_common.eid.element_list[0]", "entity_common.eid.element_list[0].f1"}) {
            EXPECT_EQ(vesk_iterate(&iterator, vesk_type_named("pem_data"), path, input.data(), input.size(), nullptr),
                      VESK_NO_SUCH_PATH)
                << path;
            vesk_value element = empty_value();
            EXPECT_EQ(vesk_next(&iterator, &element), 0);
        }
    }
}

// Looked at up to the last byte and no further, and the strings where paths end.
TEST(peek, reads_nothing_outside_the_input) {
    const TypeInfo& type = *find_type("resp_inv_data");
    const Bytes input = encoded(type, RandomMessage(type, 11, Amount::some).get());
    const GuardedMemory memory(input.size());
    for (std::size_t length = 0; length <= input.size(); ++length) {
        std::uint8_t* const bytes = memory.before_end(length);
        std::memcpy(bytes, input.data(), length);
        for (const char* path : {"port_list", "port_list[1].entity_common.f2", "f4", "container_list[0]"}) {
            for (const std::uint32_t flags : {0u, std::uint32_t{VESK_FIRST_OCCURRENCE}}) {
                announce_attempt("peek", path, length);
                vesk_options options = vesk_default_options();
                options.flags = flags;
                vesk_value value = empty_value();
                const std::int32_t code =
                    vesk_peek(vesk_type_named("resp_inv_data"), path, bytes, length, &value, &options);
                EXPECT_TRUE(code <= 0);
            }
        }
    }
}

}  // namespace
}  // namespace vesk::test
