// Input that an allocation callback rewrites while repeated scalars, strings and bytes are decoded: they are counted
// before their array is asked for and read afterwards. The input and the structure lie at pages that nobody can touch,
// and the ledger sees what is stored next to a block.
#include "tests/support/changing_input.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/foreign_kinds/type_info.hpp"
#include "tests/support/guarded_memory.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

constexpr std::uint32_t both_flags[] = {0, VESK_BYTES_BY_REFERENCE};

class RewrittenDecoder {
public:
    explicit RewrittenDecoder(const Bytes& input) : input_(input), memory_(input.size()), structure_(type().size) {}

    // The code. The input lies before the second untouchable page, or after the first.
    std::int32_t decode(const Rewrite& rewrite, std::uint32_t flags, bool at_end) {
        const std::size_t length = input_.size();
        std::uint8_t* const input = at_end ? memory_.before_end(length) : memory_.begin();
        std::copy(input_.begin(), input_.end(), input);
        void* const message = structure_.before_end(type().size);
        std::memset(message, 0x5A, type().size);
        RewritingMemory memory{{}, rewrite, input, length};
        announce_attempt("decode of changing input", type().name, length);
        const std::int32_t code = type().decode(message, input, length, alloc_and_rewrite, &memory, flags);
        EXPECT_TRUE(code <= VESK_OK && code > VESK_NO_MEMORY) << code;

        // Each block belongs to one member, what else is pointed to is data in the input.
        std::set<const void*> owned;
        for (const void* block : owned_blocks(type(), message)) {
            if (memory.ledger.owns(block)) {
                EXPECT_TRUE(owned.insert(block).second) << "two members have one block";
            } else {
                EXPECT_TRUE(flags != 0 && !std::less<>{}(block, input) && !std::less<>{}(input + length, block));
            }
        }
        EXPECT_NE(encoded(type(), message), hex("DEADBEEF"));                // reads all that is there
        const std::size_t lost = memory.ledger.blocks_out() - owned.size();  // to a nested message that came again
        EXPECT_TRUE(lost == 0 || has_nested_) << lost;
        type().free(message, Ledger::release, &memory.ledger, flags);
        EXPECT_EQ(memory.ledger.blocks_out(), lost);
        memory.ledger.forget();
        return code;
    }

    // Every change at every request.
    void decode_with_every_change(std::vector<std::uint64_t>& codes_seen) {
        std::uint64_t requests = 0;
        decode([&](std::uint64_t n, std::uint8_t*, std::size_t) { requests = n; }, 0, true);
        for (std::uint64_t request = 1; request <= requests; ++request) {
            for (const NamedChange& change : named_changes()) {
                SCOPED_TRACE("request " + std::to_string(request) + ", " + change.name);
                const Rewrite rewrite = [&](std::uint64_t n, std::uint8_t* bytes, std::size_t length) {
                    if (n == request) change.change(bytes, length);
                };
                for (const std::uint32_t flags : both_flags) {
                    const std::int32_t code = decode(rewrite, flags, request % 2 == 0);
                    if (::testing::Test::HasFailure()) return;
                    ++codes_seen[static_cast<std::size_t>(-code)];
                }
            }
        }
    }

    void may_have_nested() { has_nested_ = true; }

private:
    static const TypeInfo& type() { return *foreign_infos()[0]; }

    Bytes input_;
    GuardedMemory memory_;
    GuardedMemory structure_;
    bool has_nested_ = false;
};

// A run of one field: of scalars packed and one by one, each of the values longer than it may become.
Bytes run_of(const FieldInfo& field) {
    if (!is_scalar_kind(field.element)) {
        Bytes run;
        for (const char* content : {"north", "", "south by west", "e"})
            run = message(run, text_field(field.number, content));
        return run;
    }
    const std::size_t size = size_of_scalar(field.element);
    const bool is_varint = is_varint_kind(field.element);
    const Bytes value = is_varint ? varint(300) : Bytes(size, 0x81);
    const std::uint32_t wire_type = is_varint ? 0 : size == 4 ? 5 : 1;
    const Bytes two = message_field(field.number, message(value, value));
    const Bytes one = message(tag(field.number, wire_type), value);
    return message(two, message_field(field.number, {}), two, one, one, two, two, one);
}

TEST(foreign_changing_input, every_change_of_a_run_comes_to_one_of_the_codes_and_stays_inside) {
    std::vector<std::uint64_t> codes_seen(4);
    int runs = 0;
    for (const FieldInfo& field : foreign_infos()[0]->fields) {
        if (!is_repeated_kind(field.kind)) continue;
        SCOPED_TRACE("field " + std::to_string(field.number));
        const Bytes run = run_of(field);
        RewrittenDecoder(run).decode_with_every_change(codes_seen);
        // Between fields that a run can grow into.
        RewrittenDecoder(message(text_field(40, "before"), run, number_field(1, 1), number_field(2, 300)))
            .decode_with_every_change(codes_seen);
        if (HasFailure()) return;
        ++runs;
    }
    EXPECT_EQ(runs, 30);
    EXPECT_GT(codes_seen[0], 100u);
    EXPECT_GT(codes_seen[-VESK_MALFORMED], 100u);
}

TEST(foreign_changing_input, random_changes_come_to_one_of_the_codes_and_stay_inside) {
    std::vector<std::uint64_t> codes_seen(4);
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        const RandomMessage message(*foreign_infos()[0], seed, Amount::some);
        const Bytes input = encoded(*foreign_infos()[0], message.get());
        RewrittenDecoder decoder(input);
        decoder.may_have_nested();
        const std::uint64_t often = 1 + seed % 7;
        for (std::uint64_t attempt = 0; attempt < 20; ++attempt) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", attempt " + std::to_string(attempt));
            std::mt19937_64 random(seed << 32 | attempt);
            const Rewrite rewrite = [&](std::uint64_t, std::uint8_t* bytes, std::size_t length) {
                if (random() % (5 * often) == 0) scribble(bytes, length, random);
            };
            const std::int32_t code = decoder.decode(rewrite, both_flags[seed % 2], attempt % 2 == 0);
            if (HasFailure()) return;
            ++codes_seen[static_cast<std::size_t>(-code)];
        }
    }
    for (const std::uint64_t count : codes_seen) EXPECT_GT(count, 20u);
}

}  // namespace
}  // namespace vesk::test
