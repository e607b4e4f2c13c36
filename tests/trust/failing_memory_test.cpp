// A memory that refuses: each request of a full message once, each and everything behind it, large blocks, empty ones.
// What the library then does is laid down to the last member, presence bit, request and release by the second
// implementation of tests/support; the ledger watches over every block.
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "tests/support/first_difference.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/interpreter.hpp"
#include "tests/trust/sanitized.hpp"

namespace vesk::test {
namespace {

using Refusal = std::function<void(Ledger& ledger)>;

// The message that one of the implementations made, and the memory that it came from.
struct Made {
    Made(const TypeInfo& type, const Refusal& refusal) : message(type) { refusal(ledger); }

    Ledger ledger;
    Storage message;
    std::int32_t code = VESK_OK;
};

// An operation that makes a message, in both implementations.
struct Operation {
    const TypeInfo& type;
    std::uint32_t flags;  // of the free that belongs to it
    std::function<std::int32_t(void* message, Ledger& ledger)> library;
    std::function<std::int32_t(void* message, Ledger& ledger)> interpreter;
};

// Every block that is out belongs to the message, and to one place in it.
void expect_to_own_all_blocks(const Made& made, const Operation& operation) {
    const std::vector<const void*> owned = owned_blocks(operation.type, made.message.get());
    const std::set<const void*> distinct(owned.begin(), owned.end());
    EXPECT_EQ(distinct.size(), owned.size()) << "a block is owned twice";
    std::size_t out = 0;
    for (const void* block : distinct) out += made.ledger.owns(block);
    EXPECT_EQ(out, made.ledger.blocks_out()) << "a block that is out belongs to no member";
}

// What the library's ledger has seen of an operation.
struct Seen {
    std::int32_t code;
    std::uint64_t refused;
    std::vector<Request> requests;
};

// Both implementations do and free the same.
Seen run_both(const Operation& operation, const Refusal& refusal) {
    Made ours(operation.type, refusal);
    Made theirs(operation.type, refusal);
    ours.code = operation.library(ours.message.get(), ours.ledger);
    theirs.code = operation.interpreter(theirs.message.get(), theirs.ledger);
    const Seen seen{ours.code, ours.ledger.requests_refused(), ours.ledger.history()};

    EXPECT_EQ(ours.code, theirs.code);
    EXPECT_EQ(first_difference(operation.type, ours.message.get(), theirs.message.get()), "");
    if (operation.flags == 0) expect_to_own_all_blocks(ours, operation);

    const auto& table_type = interpreter::find_type(operation.type.name);
    operation.type.free(ours.message.get(), Ledger::release, &ours.ledger, operation.flags);
    interpreter::release(table_type, theirs.message.get(), Ledger::release, &theirs.ledger, operation.flags);
    EXPECT_EQ(first_difference(operation.type, ours.message.get(), theirs.message.get()), "") << "after the free";
    EXPECT_TRUE(ours.ledger.history() == theirs.ledger.history()) << "other requests or releases, or in another order";
    EXPECT_EQ(ours.ledger.blocks_out(), 0u);
    return seen;
}

// Tries every refusal that the operation can meet. `check` is told what was seen under it.
void try_every_refusal(const Operation& operation, const std::function<void(const Seen& seen)>& check) {
    const auto attempt = [&](const std::string& name, const Refusal& refusal) {
        SCOPED_TRACE(operation.type.name + ", flags " + std::to_string(operation.flags) + ", " + name);
        check(run_both(operation, refusal));
        return !::testing::Test::HasFailure();
    };

    const Seen whole = run_both(operation, [](Ledger&) {});
    ASSERT_EQ(whole.code, VESK_OK) << operation.type.name;
    for (const std::uint64_t n : numbers_to(whole.requests.size())) {
        if (n == 0) continue;  // requests are counted from 1
        const std::string request = "request " + std::to_string(n);
        if (!attempt(request, [&](Ledger& ledger) { ledger.fail_request(n); })) return;
        if (!attempt(request + " and later", [&](Ledger& ledger) { ledger.fail_from_request(n); })) return;
    }
    std::set<std::uint64_t> sizes;
    for (const Request& request : whole.requests) sizes.insert(request.size);
    for (const std::uint64_t size : sizes) {
        if (size == 0) continue;
        if (!attempt("blocks of " + std::to_string(size) + " bytes and more",
                     [&](Ledger& ledger) { ledger.refuse_above(size - 1); })) {
            return;
        }
    }
    attempt("empty blocks", [](Ledger& ledger) { ledger.refuse_empty(); });
}

Operation decode_of(const TypeInfo& type, const Bytes& input, std::uint32_t flags) {
    return {type, flags,
            [&type, &input, flags](void* message, Ledger& ledger) {
                return type.decode(message, input.data(), input.size(), Ledger::alloc, &ledger, flags);
            },
            [&type, &input, flags](void* message, Ledger& ledger) {
                return interpreter::decode(interpreter::find_type(type.name), message, input.data(), input.size(),
                                           Ledger::alloc, &ledger, flags);
            }};
}

Operation duplicate_of(const TypeInfo& type, const void* source) {
    return {type, 0,
            [&type, source](void* message, Ledger& ledger) {
                return type.duplicate(message, source, Ledger::alloc, &ledger);
            },
            [&type, source](void* message, Ledger& ledger) {
                return interpreter::duplicate(interpreter::find_type(type.name), message, source, Ledger::alloc,
                                              &ledger);
            }};
}

// The first refusal ends a decode: it is the last thing that was asked for.
void expect_decode_to_end_at_a_refusal(const Seen& seen) {
    EXPECT_EQ(seen.code, seen.refused == 0 ? VESK_OK : VESK_NO_MEMORY);
    EXPECT_LE(seen.refused, 1u) << "asked again after a refusal";
}

bool has_empty_request(const Seen& seen) {
    for (const Request& request : seen.requests) {
        if (request.size == 0) return true;
    }
    return false;
}

TEST(failing_memory, decode_ends_there_and_what_it_read_before_is_freed) {
    for (const TypeInfo* type : all_types()) {
        const Bytes input = full_encoding(*type);
        const AnyDecoded full(*type, input);
        ASSERT_TRUE(is_full(*type, full.message.get())) << type->name;
        for (const std::uint32_t flags : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
            try_every_refusal(decode_of(*type, input, flags), expect_decode_to_end_at_a_refusal);
            if (HasFailure()) return;
        }
    }
}

TEST(failing_memory, decode_of_empty_bytes_field_asks_for_no_bytes_and_may_be_refused) {
    std::size_t refused = 0;
    for (const TypeInfo* type : all_types()) {
        const Bytes input = full_encoding(*type, Contents::empty);
        try_every_refusal(decode_of(*type, input, 0), [&](const Seen& seen) {
            expect_decode_to_end_at_a_refusal(seen);
            if (has_empty_request(seen)) refused += seen.refused;
        });
        if (HasFailure()) return;
    }
    EXPECT_GT(refused, 0u);
}

TEST(failing_memory, duplicate_goes_on_and_the_copy_lacks_what_was_refused) {
    for (const TypeInfo* type : all_types()) {
        for (const Contents contents : {Contents::some, Contents::empty}) {
            const AnyDecoded source(*type, full_encoding(*type, contents));
            ASSERT_EQ(source.code, VESK_OK) << type->name;
            try_every_refusal(duplicate_of(*type, source.message.get()), [](const Seen& seen) {
                EXPECT_EQ(seen.code, seen.refused == 0 ? VESK_OK : VESK_NO_MEMORY);
                EXPECT_FALSE(has_empty_request(seen)) << "an empty field is copied without a block";
            });
            if (HasFailure()) return;
        }
    }
}

}  // namespace
}  // namespace vesk::test
