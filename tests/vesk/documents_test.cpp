// What `decode` prints and `encode` reads again are the bytes that the core makes of the decoded message.
#include "tools/vesk/documents.hpp"

#include <gtest/gtest.h>

#include <cstdio>

#include "tests/support/damage.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/random_message.hpp"
#include "tools/vesk/failure.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::test {
namespace {

using tool::Format;

class Documents : public ::testing::TestWithParam<Format> {
protected:
    static std::string nul() { return GetParam() == Format::json ? "\\u0000" : "\\000"; }

    static std::string print(const TypeInfo& type, const Bytes& input) {
        std::string document;
        tool::print_document(
            vesk_type_named(type.name.c_str()), "input", input.data(), input.size(), GetParam(),
            [](const char* text, std::size_t length, void* context) {
                static_cast<std::string*>(context)->append(text, length);
                return std::int32_t{0};
            },
            &document);
        return document;
    }

    static Bytes encode(const TypeInfo& type, const std::string& document) {
        const std::string bytes =
            tool::encode_document(vesk_type_named(type.name.c_str()), "document", document, GetParam());
        return Bytes(bytes.begin(), bytes.end());
    }

    // False if the input does not decode.
    static bool expect_same_bytes(const TypeInfo& type, const Bytes& input) {
        tool::Message decoded(vesk_type_named(type.name.c_str()));  // what nested messages lose is its arena's
        if (decoded.decode(input.data(), input.size()) != VESK_OK) {
            EXPECT_THROW(print(type, input), tool::Failure);
            return false;
        }
        const std::string document = print(type, input);
        try {
            EXPECT_EQ(encode(type, document), encoded(type, decoded.get())) << document;
        } catch (const tool::Failure& failure) {
            EXPECT_NE(std::string(failure.what()).find("NUL"), std::string::npos) << failure.what();
            EXPECT_NE(document.find(nul()), std::string::npos) << document;
        }
        return true;
    }
};

INSTANTIATE_TEST_SUITE_P(decode_and_encode, Documents, ::testing::Values(Format::json, Format::text),
                         [](const auto& info) { return info.param == Format::json ? "as_json" : "as_text"; });

TEST_P(Documents, of_random_messages_keep_the_bytes) {
    for (const TypeInfo* type : all_types()) {
        SCOPED_TRACE(type->name);
        expect_same_bytes(*type, {});
        expect_same_bytes(*type, full_encoding(*type));
        for (std::uint64_t seed = 1; seed <= 20; ++seed) {
            const Amount amount = seed % 4 == 0 ? Amount::much : seed % 2 == 0 ? Amount::wild : Amount::some;
            expect_same_bytes(*type, encoded(*type, RandomMessage(*type, seed, amount).get()));
        }
        if (HasFailure()) return;
    }
}

TEST_P(Documents, of_damaged_input_keep_the_bytes_that_the_core_makes_of_it) {
    std::uint64_t seed = 0;
    std::uint64_t decoded = 0;
    for (const TypeInfo* type : all_types()) {
        for (int round = 0; round < 50; ++round) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(++seed));
            std::mt19937_64 random(seed);
            decoded += expect_same_bytes(
                *type, damage(encoded(*type, RandomMessage(*type, seed, Amount::some).get()), random));
            if (HasFailure()) return;
        }
    }
    EXPECT_GT(decoded, 500u);
}

TEST_P(Documents, of_strings_that_are_not_utf8_keep_the_bytes) {
    EXPECT_TRUE(expect_same_bytes(*find_type("led_data"), text_field(5,
                                                                     "\xFF\x80"
                                                                     "a\xC3")));
}

TEST_P(Documents, of_strings_with_control_characters_keep_the_bytes_and_have_none) {
    const Bytes input = text_field(5, "\x1B[31m\x07\x7F\xC2\x9B\xC2\xA0\xC3\xA9\n");
    expect_same_bytes(*find_type("led_data"), input);
    const std::string document = print(*find_type("led_data"), input);
    for (const char control : {'\x1B', '\x07', '\x7F', '\x9B'}) EXPECT_EQ(document.find(control), std::string::npos);
}

// The structure could not say that it goes on.
TEST_P(Documents, of_strings_with_a_nul_are_printed_whole_and_refused_by_encode) {
    const TypeInfo& type = *find_type("led_data");
    const std::string document = print(type, text_field(5, std::string_view("a\0b", 3)));
    EXPECT_NE(document.find("a" + nul() + "b"), std::string::npos);
    try {
        encode(type, document);
        FAIL() << "not refused";
    } catch (const tool::Failure& failure) {
        EXPECT_NE(std::string(failure.what()).find("f5: "), std::string::npos) << failure.what();
    }
}

}  // namespace
}  // namespace vesk::test
