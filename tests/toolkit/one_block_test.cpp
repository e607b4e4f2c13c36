#include <gtest/gtest.h>
#include <vesk/client_service.h>
#include <vesk/vesk_toolkit.h>

#include "tests/support/damage.hpp"
#include "tests/support/first_difference.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/guarded_memory.hpp"
#include "tests/support/ledger.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

std::int32_t decode_in_one_block(const TypeInfo& type, void* message, const Bytes& input, std::uint32_t flags,
                                 Ledger* ledger, vesk_one_block* block) {
    return VESK_DECODE_IN_ONE_BLOCK(type.decode, vesk_type_named(type.name.c_str()), message, input.data(),
                                    input.size(), flags, Ledger::alloc, ledger, block, nullptr);
}

TEST(one_block, message_is_decode_s_and_takes_one_request) {
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t seed = 0; seed < 10; ++seed) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(seed));
            const Bytes input =
                seed == 0 ? full_encoding(*type) : encoded(*type, RandomMessage(*type, seed, Amount::much).get());
            for (const std::uint32_t flags : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
                const AnyDecoded plain(*type, input, flags);
                Ledger ledger;
                Storage message(*type);
                vesk_one_block block;
                ASSERT_EQ(decode_in_one_block(*type, message.get(), input, flags, &ledger, &block), VESK_OK);
                EXPECT_LE(ledger.requests_made(), 1u);
                EXPECT_EQ(ledger.requests_made() == 0, plain.ledger.requests_made() == 0);
                EXPECT_EQ(first_difference(*type, message.get(), plain.message.get()), "");
                vesk_one_block_release(&block, Ledger::release, &ledger);
                EXPECT_EQ(ledger.blocks_out(), 0u);
                vesk_one_block_release(&block, Ledger::release, &ledger);
            }
        }
    }
}

// Whether the structure has a pointer, in a nested one or itself.
bool has_pointer(const TypeInfo& type) {
    return std::any_of(type.fields.begin(), type.fields.end(), [](const FieldInfo& field) {
        return field.kind == Kind::message ? has_pointer(*field.nested) : !is_scalar_kind(field.kind);
    });
}

TEST(one_block, damaged_input_ends_in_the_code_of_decode_without_a_request) {
    std::uint64_t refused = 0;
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t seed = 1; seed <= 30; ++seed) {
            std::mt19937_64 random(seed);
            const Bytes input = damage(encoded(*type, RandomMessage(*type, seed, Amount::much).get()), random);
            Ledger plain_ledger;
            Storage plain(*type);
            const std::int32_t code =
                type->decode(plain.get(), input.data(), input.size(), Ledger::alloc, &plain_ledger, 0);
            type->free(plain.get(), Ledger::release, &plain_ledger, 0);
            plain_ledger.forget();
            Ledger ledger;
            Storage message(*type, 0x5A);
            const Storage untouched(*type, 0x5A);
            vesk_one_block block;
            EXPECT_EQ(decode_in_one_block(*type, message.get(), input, 0, &ledger, &block), code);
            if (code != VESK_OK) {
                ++refused;
                EXPECT_EQ(ledger.requests_made(), 0u);
                const bool is_untouched = std::memcmp(message.get(), untouched.get(), type->size) == 0;
                EXPECT_TRUE(is_untouched || !has_pointer(*type));
            }
            vesk_one_block_release(&block, Ledger::release, &ledger);
        }
    }
    EXPECT_GT(refused, 500u);
}

TEST(one_block, failing_or_missing_memory_is_no_memory) {
    const TypeInfo& type = *find_type("pem_data");
    const Bytes input = full_encoding(type);
    Storage message(type);
    Ledger ledger;
    ledger.fail_from_now_on();
    vesk_one_block block;
    EXPECT_EQ(decode_in_one_block(type, message.get(), input, 0, &ledger, &block), VESK_NO_MEMORY);
    vesk_one_block_release(&block, Ledger::release, &ledger);
    EXPECT_EQ(VESK_DECODE_IN_ONE_BLOCK(type.decode, vesk_type_named("pem_data"), message.get(), input.data(),
                                       input.size(), 0, nullptr, nullptr, &block, nullptr),
              VESK_NO_MEMORY);
    vesk_one_block_release(&block, nullptr, nullptr);
}

// The block is asked for between the pre-flight and the decode: here it is that request which changes the input.
struct Changing {
    Bytes* input;
    Bytes other;
    Ledger ledger;
    static void* alloc(std::uint64_t size, void* context) {
        Changing& it = *static_cast<Changing*>(context);
        std::copy(it.other.begin(), it.other.end(), it.input->begin());
        return Ledger::alloc(size, &it.ledger);
    }
};

TEST(one_block, input_that_changes_meanwhile_never_leads_outside_the_block) {
    std::vector<std::uint64_t> seen(5);
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t seed = 1; seed <= 30; ++seed) {
            Bytes input = encoded(*type, RandomMessage(*type, seed, Amount::much).get());
            std::mt19937_64 random(seed);
            Bytes other = damage(encoded(*type, RandomMessage(*type, seed + 1000, Amount::much).get()), random);
            other.resize(std::min(other.size(), input.size()));
            Changing changing{&input, other, {}};
            Storage message(*type);
            vesk_one_block block;
            const std::int32_t code =
                VESK_DECODE_IN_ONE_BLOCK(type->decode, vesk_type_named(type->name.c_str()), message.get(), input.data(),
                                         input.size(), 0, Changing::alloc, &changing, &block, nullptr);
            ASSERT_TRUE(code <= VESK_OK && code >= VESK_NO_MEMORY) << code;
            ++seen[static_cast<std::size_t>(-code)];
            vesk_one_block_release(&block, Ledger::release, &changing.ledger);  // whose guards are looked at
        }
    }
    for (std::size_t code = 0; code < seen.size(); ++code) EXPECT_GT(seen[code], 10u) << -static_cast<int>(code);
}

}  // namespace
}  // namespace vesk::test
