// What holds for every input, however it came about: tried on messages filled at random and then damaged.
#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <functional>

#include "tests/support/arena.hpp"
#include "tests/support/damage.hpp"
#include "tests/support/first_difference.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

// Calls `check` with damaged encodings of every type.
void for_damaged_input(const std::function<void(const TypeInfo& type, const Bytes& input)>& check) {
    std::uint64_t seed = 0;
    for (const TypeInfo* type : all_types()) {
        for (int round = 0; round < 100; ++round) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(++seed));
            std::mt19937_64 random(seed);
            const RandomMessage message(*type, seed, Amount::wild);
            check(*type, damage(encoded(*type, message.get()), random));
            if (::testing::Test::HasFailure()) return;
        }
    }
}

std::uint64_t bytes_asked_for(const Ledger& ledger) {
    std::uint64_t sum = 0;
    for (const Request& request : ledger.history()) {
        if (request.what == Request::What::alloc) sum += request.size;
    }
    return sum;
}

// A message that is decoded, and given up with what it lost: nested messages that occurred twice.
struct Decoding {
    Decoding(const TypeInfo& type, const Bytes& input, std::uint32_t flags) : type(type), flags(flags), message(type) {
        code = type.decode(message.get(), input.data(), input.size(), Ledger::alloc, &ledger, flags);
    }
    ~Decoding() {
        type.free(message.get(), Ledger::release, &ledger, flags);
        ledger.forget();
    }
    Decoding(const Decoding&) = delete;
    Decoding& operator=(const Decoding&) = delete;

    const TypeInfo& type;
    std::uint32_t flags;
    Ledger ledger;
    Storage message;
    std::int32_t code;
};

TEST(any_input, accepted_message_encodes_and_reads_back_the_same) {
    int accepted = 0;
    for_damaged_input([&](const TypeInfo& type, const Bytes& input) {
        for (const std::uint32_t flags : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
            const Decoding first(type, input, flags);
            if (first.code != VESK_OK) continue;
            ++accepted;
            const Bytes again = encoded(type, first.message.get());
            const Decoding second(type, again, flags);
            ASSERT_EQ(second.code, VESK_OK) << to_hex(input);
            EXPECT_EQ(first_difference(type, first.message.get(), second.message.get()), "") << to_hex(input);
            EXPECT_EQ(to_hex(encoded(type, second.message.get())), to_hex(again));
        }
    });
    EXPECT_GT(accepted, 1000);
}

TEST(any_input, code_is_a_documented_one_and_no_memory_only_without_memory) {
    std::vector<std::uint64_t> seen(5);
    for_damaged_input([&](const TypeInfo& type, const Bytes& input) {
        const Decoding decoding(type, input, 0);
        ASSERT_TRUE(decoding.code <= VESK_OK && decoding.code > VESK_NO_MEMORY) << decoding.code;
        ++seen[static_cast<std::size_t>(-decoding.code)];

        Storage message(type);
        const std::int32_t code = type.decode(message.get(), input.data(), input.size(), nullptr, nullptr, 0);
        ASSERT_TRUE(code <= VESK_OK && code >= VESK_NO_MEMORY) << code;
        EXPECT_TRUE(owned_blocks(type, message.get()).empty());
        ++seen[static_cast<std::size_t>(-code)];
    });
    for (const std::uint64_t count : seen) EXPECT_GT(count, 100u);
}

// ---- Memory --------------------------------------------------------------------------------------------------------

// Bytes of the largest element that an empty one on the wire asks for, divided by its bytes there: tag and length.
double largest_ratio() {
    double largest = 0;
    for (const TypeInfo* type : all_types()) {
        for (const FieldInfo& field : type->fields) {
            if (field.kind != Kind::list) continue;
            const double size = static_cast<double>(field.nested->size);
            largest = std::max(largest, size / static_cast<double>(message_field(field.number, {}).size()));
        }
    }
    return largest;
}

TEST(any_input, asks_for_no_more_than_the_largest_list_ratio_allows) {
    const double ratio = largest_ratio();
    for_damaged_input([&](const TypeInfo& type, const Bytes& input) {
        const Decoding decoding(type, input, 0);
        EXPECT_LE(static_cast<double>(bytes_asked_for(decoding.ledger)), ratio * static_cast<double>(input.size()));
    });

    // And it may be asked for.
    Bytes worst;
    for (int i = 0; i < 1000; ++i) worst = message(worst, message_field(7, {}));
    const Decoding decoding(*find_type("resp_inv_data"), worst, 0);
    EXPECT_EQ(static_cast<double>(bytes_asked_for(decoding.ledger)), ratio * static_cast<double>(worst.size()));
}

// Of every type and each nested message in it: what the earlier occurrence owned is lost, and nothing else.
TEST(any_input, repeated_nested_message_loses_the_blocks_of_the_earlier_ones) {
    std::size_t lost = 0;
    for (const TypeInfo* type : all_types()) {
        for (const FieldInfo& field : type->fields) {
            if (field.kind != Kind::message) continue;
            SCOPED_TRACE(type->name + "." + std::to_string(field.number));
            const Bytes nested = message_field(field.number, full_encoding(*field.nested));
            Decoding decoding(*type, message(nested, nested, nested), 0);
            ASSERT_EQ(decoding.code, VESK_OK);
            const std::size_t owned = owned_blocks(*type, decoding.message.get()).size();
            EXPECT_EQ(decoding.ledger.blocks_out(), 3 * owned);
            type->free(decoding.message.get(), Ledger::release, &decoding.ledger, 0);
            EXPECT_EQ(decoding.ledger.blocks_out(), 2 * owned);
            lost += decoding.ledger.blocks_out();
        }
    }
    EXPECT_GT(lost, 100u);
}

// ---- Time ----------------------------------------------------------------------------------------------------------

// Input of about `length` bytes in a shape that invites reading the same bytes again and again.
struct Shape {
    const char* name;
    const char* type;
    std::function<Bytes(std::size_t length)> input;
};

Bytes repeat(const Bytes& piece, std::size_t length) {
    Bytes bytes;
    while (bytes.size() < length) bytes.insert(bytes.end(), piece.begin(), piece.end());
    return bytes;
}

const Shape shapes[] = {
    {"a list of empty elements", "resp_clients_hdl_data",
     [](std::size_t length) { return repeat(message_field(1, {}), length); }},
    {"a list that breaks off in its last element", "resp_clients_hdl_data",
     [](std::size_t length) { return message(repeat(message_field(1, {}), length), hex("0A 01")); }},
    {"a list of lists of empty elements", "resp_eid",
     [](std::size_t length) { return repeat(message_field(4, repeat(message_field(6, {}), 1000)), length); }},
    {"one element with a long list", "resp_eid",
     [](std::size_t length) { return message_field(4, repeat(message_field(6, {}), length)); }},
    {"a nested message again and again", "req_inv_data",
     [](std::size_t length) { return repeat(message_field(6, text_field(1, "a")), length); }},
    {"unknown fields", "inv_policy", [](std::size_t length) { return repeat(number_field(30, 1), length); }},
    {"an unknown number that does not end", "inv_policy",
     [](std::size_t length) { return message(tag(30, varint_type), Bytes(length, 0x80)); }},
    {"a tag that does not end", "inv_policy", [](std::size_t length) { return Bytes(length, 0x80); }},
    {"a long string", "inv_policy", [](std::size_t length) { return text_field(1, std::string(length, 'a')); }},
    {"a long string deep inside", "notify_event_data",
     [](std::size_t length) {
         return message_field(3, message_field(1, text_field(2, std::string(length, 'a'))));  // base, entity_common, f2
     }},
};

double thread_seconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// The quickest of several rounds of all four operations, encoding into a buffer that is too short included, divided by
// the length.
double seconds_per_byte(const TypeInfo& type, const Bytes& input, Arena& arena) {
    Storage message(type), copy(type);
    Bytes output(input.size());
    double quickest = 1e9;
    for (int i = 0; i < 5; ++i) {
        arena.reset();
        const double start = thread_seconds();
        const std::int32_t code = type.decode(message.get(), input.data(), input.size(), Arena::alloc, &arena, 0);
        if (code == VESK_OK) {
            const std::uint64_t whole = type.encode(message.get(), nullptr, 0, nullptr, nullptr, 0);
            for (const std::uint64_t room : {whole, whole / 2}) {
                EXPECT_EQ(type.encode(message.get(), output.data(), room, nullptr, nullptr, 0), whole);
            }
            EXPECT_EQ(type.duplicate(copy.get(), message.get(), Arena::alloc, &arena), VESK_OK);
            type.free(copy.get(), Arena::release, &arena, 0);
        }
        type.free(message.get(), Arena::release, &arena, 0);
        quickest = std::min(quickest, thread_seconds() - start);
    }
    return quickest / static_cast<double>(input.size());
}

// 16 times the length takes 16 times as long, and some more for memory that the nearest cache holds no longer. Time
// that grew with the square of the length would be 16 times that.
TEST(any_input, takes_time_in_proportion_to_its_length) {
    Arena arena(16 << 20);
    for (const Shape& shape : shapes) {
        const TypeInfo& type = *find_type(shape.type);
        const double of_short = seconds_per_byte(type, shape.input(1 << 12), arena);
        const double of_long = seconds_per_byte(type, shape.input(1 << 16), arena);
        EXPECT_LT(of_long, 5 * of_short) << shape.name;
    }
}

}  // namespace
}  // namespace vesk::test
