// The toolkit on messages of others, by a table that is written by hand: pre-flight against decode and table encoding
// against encode, both of the second implementation, and the functions that look into a message.
#include <gtest/gtest.h>
#include <vesk/vesk_toolkit.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "tests/foreign_kinds/decoded.hpp"
#include "tests/foreign_kinds/random_fields.hpp"
#include "tests/foreign_kinds/type_info.hpp"
#include "tests/support/damage.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

constexpr std::size_t all = 0;

vesk_report check(const Bytes& input, std::uint32_t flags = 0) {
    vesk_report report;
    report.size = sizeof report;
    EXPECT_EQ(vesk_check(foreign_facts(all), input.data(), input.size(), flags, &report, nullptr), report.code);
    return report;
}

// Counts the codes that were met, so that a test can say that it met them all.
void expect_same_as_decode(const Bytes& input, std::vector<int>* codes) {
    for (const std::uint32_t flags : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
        Decoded real(input, flags);
        const vesk_report report = check(input, flags);
        ASSERT_EQ(report.code, real.code) << to_hex(input) << " at " << report.at << ", " << report.path;
        ++(*codes)[static_cast<std::size_t>(-real.code)];
        vesk_cost cost{};
        for (const Request& request : real.ledger.history()) {
            cost.bytes += request.size;
            cost.blocks += 1;
            cost.largest = std::max(cost.largest, request.size);
        }
        EXPECT_EQ(report.cost.bytes, cost.bytes) << to_hex(input);
        EXPECT_EQ(report.cost.blocks, cost.blocks) << to_hex(input);
        EXPECT_EQ(report.cost.largest, cost.largest) << to_hex(input);
        if (real.code == VESK_OK) {
            EXPECT_EQ(report.at, input.size());
            EXPECT_STREQ(report.path, "");
        } else {
            // What stands before the refused tag decodes, or is refused for no other reason than that it ends there.
            EXPECT_LT(report.at, input.size()) << to_hex(input);
        }
    }
}

TEST(foreign_check, random_message_costs_what_decode_asks_for) {
    std::vector<int> codes(5);
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        expect_same_as_decode(encoded(RandomMessage(*foreign_infos()[all], seed, Amount::wild).get()), &codes);
        if (HasFailure()) return;
    }
    EXPECT_EQ(codes[0], 600);
}

TEST(foreign_check, damaged_message_has_the_code_and_the_cost_of_decode) {
    std::vector<int> codes(5);
    for (std::uint64_t seed = 1; seed <= 3000; ++seed) {
        std::mt19937_64 random(seed);
        expect_same_as_decode(damage(encoded(RandomMessage(*foreign_infos()[all], seed, Amount::wild).get()), random),
                              &codes);
        if (HasFailure()) return;
    }
    for (const std::int32_t code : {VESK_OK, VESK_MALFORMED, VESK_UNKNOWN_WIRE_TYPE, VESK_WRONG_WIRE_TYPE}) {
        EXPECT_GT(codes[static_cast<std::size_t>(-code)], 100) << code;
    }
}

TEST(foreign_check, fields_in_any_order_have_the_code_and_the_cost_of_decode) {
    std::vector<int> codes(5);
    for (std::uint64_t seed = 1; seed <= 20000; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937_64 random(seed);
        expect_same_as_decode(random_fields(foreign_facts(all), random), &codes);
        if (HasFailure()) return;
    }
    for (const std::int32_t code : {VESK_OK, VESK_MALFORMED, VESK_WRONG_WIRE_TYPE}) {
        EXPECT_GT(codes[static_cast<std::size_t>(-code)], 1000) << code;
    }
}

TEST(foreign_check, message_cut_at_every_byte_has_the_code_and_the_cost_of_decode) {
    std::vector<int> codes(5);
    for (std::uint64_t seed = 1; seed <= 3; ++seed) {
        const Bytes whole = encoded(RandomMessage(*foreign_infos()[all], seed, Amount::wild).get());
        for (std::size_t length = 0; length < whole.size(); ++length) {
            expect_same_as_decode(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)), &codes);
            if (HasFailure()) return;
        }
    }
}

struct Refused {
    const char* name;
    Bytes input;
    std::int32_t code;
    std::uint64_t at;
    const char* path;
};

// Field 18 is repeated sint32, one by one; 25 sfixed64; 200 uint32, packed; 43 strings.
TEST(foreign_check, place_of_an_error_is_the_tag_that_decode_objects_to) {
    const Bytes one = message(tag(18, 0), varint(5));
    const Refused cases[] = {
        {"a fixed value cut short", message(tag(8, 5), hex("010203")), VESK_MALFORMED, 0, "one_fixed32"},
        {"another wire type", message(number_field(1, 1), tag(8, 0), varint(1)), VESK_WRONG_WIRE_TYPE, 2,
         "one_fixed32"},
        {"a third wire type in a run", message(one, tag(18, 5), hex("01020304")), VESK_WRONG_WIRE_TYPE, 3,
         "some_sint32"},
        {"a second run", message(one, number_field(1, 1), one), VESK_MALFORMED, 5, "some_sint32"},
        {"an element cut short", message(one, tag(18, 0), hex("80")), VESK_MALFORMED, 3, "some_sint32[1]"},
        {"a tag cut short in a run", message(one, hex("80")), VESK_MALFORMED, 3, ""},
        {"a packed content cut short", message(one, tag(18, 2), hex("0301")), VESK_MALFORMED, 3, "some_sint32[1]"},
        {"a packed element cut short", message(one, tag(18, 2), hex("020780")), VESK_MALFORMED, 3, "some_sint32[2]"},
        {"packed elements that are not whole", message(tag(25, 2), sized(Bytes(20, 1))), VESK_MALFORMED, 0,
         "some_sfixed64[2]"},
        {"a string element cut short", message(text_field(43, "a"), tag(43, 2), hex("0561")), VESK_MALFORMED, 4,
         "texts[1]"},
    };
    for (const Refused& row : cases) {
        SCOPED_TRACE(row.name);
        const vesk_report report = check(row.input);
        EXPECT_EQ(report.code, Decoded(row.input).code);
        EXPECT_EQ(report.code, row.code);
        EXPECT_EQ(report.at, row.at);
        EXPECT_STREQ(report.path, row.path);
    }
}

TEST(foreign_check, empty_packed_run_leaves_no_array_and_another_run_is_read) {
    const Bytes input = message(tag(200, 2), hex("00"), number_field(1, 1), tag(200, 2), hex("0205 06"));
    EXPECT_EQ(check(input).code, VESK_OK);
    EXPECT_EQ(check(input).cost.blocks, 1u);
    EXPECT_EQ(Decoded(input).code, VESK_OK);
    const Bytes third = message(input, number_field(1, 1), tag(200, 2), hex("00"));
    EXPECT_EQ(check(third).code, VESK_MALFORMED);
    EXPECT_EQ(Decoded(third).code, VESK_MALFORMED);
}

// ---- Encoding ------------------------------------------------------------------------------------------------------

TEST(foreign_gather, is_byte_for_byte_the_plain_encoding) {
    for (std::uint64_t seed = 1; seed <= 500; ++seed) {
        const RandomMessage random(*foreign_infos()[all], seed, Amount::wild);
        const Bytes expected = encoded(random.get());
        void* bytes = nullptr;
        std::uint64_t length = 0;
        Ledger ledger;
        ASSERT_EQ(vesk_encode(foreign_facts(all), random.get(), Ledger::alloc, &ledger, &bytes, &length), VESK_OK);
        const auto* const begin = static_cast<const std::uint8_t*>(bytes);
        ASSERT_EQ(to_hex(Bytes(begin, begin + length)), to_hex(expected)) << seed;
        Ledger::release(bytes, &ledger);

        std::uint64_t needed = 0;
        std::uint32_t count = 0;
        const std::int32_t measured =
            vesk_gather(foreign_facts(all), random.get(), nullptr, &needed, nullptr, &count, nullptr);
        ASSERT_EQ(measured, expected.empty() ? VESK_OK : std::int32_t{VESK_TOO_SHORT});
        Bytes buffer(needed);
        std::vector<vesk_segment> segments(count);
        ASSERT_EQ(
            vesk_gather(foreign_facts(all), random.get(), buffer.data(), &needed, segments.data(), &count, nullptr),
            VESK_OK);
        Bytes gathered;
        for (const vesk_segment& segment : segments) {
            const auto* const data = static_cast<const std::uint8_t*>(segment.data);
            gathered.insert(gathered.end(), data, data + segment.length);
        }
        ASSERT_EQ(to_hex(gathered), to_hex(expected)) << seed;
    }
}

// ---- Single fields -------------------------------------------------------------------------------------------------

vesk_value peek(const Bytes& input, const char* path, std::int32_t expected = VESK_OK) {
    vesk_value value{};
    value.size = sizeof value;
    EXPECT_EQ(vesk_peek(foreign_facts(all), path, input.data(), input.size(), &value, nullptr), expected) << path;
    return value;
}

double as_double(std::uint64_t bits) {
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

TEST(foreign_peek, scalar_has_its_sign_and_bits) {
    foreign_all message{};
    message.one_sint32 = -3;
    message.one_int32 = std::numeric_limits<std::int32_t>::min();
    message.one_sfixed64 = -4;
    message.one_double_value = -0.5;
    std::fill(std::begin(message.present), std::end(message.present), 0xFF);
    const Bytes input = encoded(&message);
    EXPECT_EQ(static_cast<std::int64_t>(peek(input, "one_sint32").number), -3);
    EXPECT_EQ(static_cast<std::int64_t>(peek(input, "one_int32").number), INT32_MIN);
    EXPECT_EQ(static_cast<std::int64_t>(peek(input, "one_sfixed64").number), -4);
    EXPECT_EQ(as_double(peek(input, "one_double_value").number), -0.5);
    EXPECT_EQ(peek(input, "one_double_value").kind, VESK_KIND_DOUBLE);
}

// One by one and packed, mixed.
const Bytes mixed = message(number_field(1, 9), tag(18, 0), varint(1), tag(18, 2), hex("00"), tag(18, 2),
                            hex("03 02 8101"), tag(18, 0), varint(4), number_field(2, 9));

TEST(foreign_peek, element_of_a_repeated_field_is_found_packed_or_not) {
    const std::int64_t expected[] = {-1, 1, -65, 2};
    for (int i = 0; i < 4; ++i) {
        const vesk_value value = peek(mixed, ("some_sint32[" + std::to_string(i) + "]").c_str());
        EXPECT_EQ(static_cast<std::int64_t>(value.number), expected[i]);
        EXPECT_EQ(value.kind, VESK_KIND_SINT32);
    }
    peek(mixed, "some_sint32[4]", VESK_PAST_THE_END);
    peek(mixed, "some_sint32[0].f1", VESK_NO_SUCH_PATH);
    peek(mixed, "one_sint32[0]", VESK_NO_SUCH_PATH);
    EXPECT_EQ(peek(mixed, "some_sint32").count, 4u);
    EXPECT_EQ(peek(mixed, "some_sint32").kind, VESK_KIND_REPEATED + VESK_KIND_SINT32);
    EXPECT_EQ(peek(mixed, "one_uint64").number, 9u);
}

TEST(foreign_peek, iterator_goes_over_every_repeated_kind) {
    vesk_iterator iterator;
    vesk_value value{};
    value.size = sizeof value;
    ASSERT_EQ(vesk_iterate(&iterator, foreign_facts(all), "some_sint32", mixed.data(), mixed.size(), nullptr), VESK_OK);
    std::vector<std::int64_t> numbers;
    while (vesk_next(&iterator, &value)) numbers.push_back(static_cast<std::int64_t>(value.number));
    EXPECT_EQ(numbers, (std::vector<std::int64_t>{-1, 1, -65, 2}));

    const Bytes texts = message(text_field(43, "one"), text_field(43, ""), text_field(43, "three"), number_field(1, 1));
    ASSERT_EQ(vesk_iterate(&iterator, foreign_facts(all), "texts", texts.data(), texts.size(), nullptr), VESK_OK);
    std::vector<std::string> strings;
    while (vesk_next(&iterator, &value)) strings.emplace_back(static_cast<const char*>(value.data), value.length);
    EXPECT_EQ(strings, (std::vector<std::string>{"one", "", "three"}));
    EXPECT_EQ(value.kind, VESK_KIND_STRING);
    EXPECT_EQ(vesk_iterate(&iterator, foreign_facts(all), "texts[1]", texts.data(), texts.size(), nullptr),
              VESK_NO_SUCH_PATH);
}

TEST(foreign_peek, what_every_path_finds_is_what_decode_leaves) {
    for (std::uint64_t seed = 1; seed <= 100; ++seed) {
        const Bytes input = encoded(RandomMessage(*foreign_infos()[all], seed, Amount::wild).get());
        const Decoded decoded(input);
        ASSERT_EQ(decoded.code, VESK_OK);
        const vesk_type* const type = foreign_facts(all);
        for (std::uint32_t place = 0; place < type->field_count; ++place) {
            const vesk_field* const field = vesk_type_field(type, place);
            if (field->kind < VESK_KIND_REPEATED) continue;
            std::uint32_t count;
            std::memcpy(&count, reinterpret_cast<const char*>(&decoded.message) + field->size_offset, sizeof count);
            vesk_value value{};
            value.size = sizeof value;
            const std::int32_t code =
                vesk_peek(type, vesk_field_name(field), input.data(), input.size(), &value, nullptr);
            EXPECT_EQ(code, count != 0 ? VESK_OK : std::int32_t{VESK_ABSENT}) << vesk_field_name(field);
            EXPECT_EQ(value.count, count) << vesk_field_name(field);
        }
        if (HasFailure()) return;
    }
}

// ---- Equal, diff, lint ---------------------------------------------------------------------------------------------

TEST(foreign_diff, messages_are_equal_if_and_only_if_their_encodings_are) {
    int different = 0;
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        const RandomMessage random(*foreign_infos()[all], seed, Amount::much);
        const Bytes input = encoded(random.get());
        Decoded copy(input);
        ASSERT_EQ(vesk_equal(foreign_facts(all), random.get(), &copy.message, nullptr), 1) << seed;
        std::mt19937_64 random_damage(seed);
        const Decoded other(damage(input, random_damage));
        if (other.code != VESK_OK) continue;
        const bool same = encoded(&other.message) == input;
        ASSERT_EQ(vesk_equal(foreign_facts(all), random.get(), &other.message, nullptr), same ? 1 : 0) << seed;
        different += !same;
    }
    EXPECT_GT(different, 30);
}

TEST(foreign_diff, repeated_fields_are_told_element_by_element) {
    const Decoded left(message(number_field(18, 1), number_field(18, 3), text_field(43, "a")));
    const Decoded right(message(number_field(18, 1), number_field(18, 4), number_field(18, 5), text_field(43, "b")));
    std::vector<std::string> told;
    vesk_diff(
        foreign_facts(all), &left.message, &right.message,
        [](const char* path, const vesk_value* one, const vesk_value* other, void* context) {
            std::string line = path;
            for (const vesk_value* value : {one, other}) {
                line += value == nullptr ? " absent"
                        : value->kind == VESK_KIND_STRING
                            ? std::string(" ") + static_cast<const char*>(value->data)
                            : " " + std::to_string(static_cast<std::int64_t>(value->number));
            }
            static_cast<std::vector<std::string>*>(context)->push_back(line);
            return 0;
        },
        &told, nullptr, nullptr);
    EXPECT_EQ(told, (std::vector<std::string>{"some_sint32[1] -2 2", "some_sint32[2] absent -3", "texts[0] a b"}));
}

std::vector<std::string> findings_of(const foreign_all& message) {
    std::vector<std::string> found;
    const std::uint64_t counted = vesk_lint(
        foreign_facts(all), &message,
        [](std::int32_t finding, const char* path, void* context) {
            static_cast<std::vector<std::string>*>(context)->push_back(std::to_string(finding) + " " + path);
            return 0;
        },
        &found, nullptr);
    EXPECT_EQ(counted, static_cast<std::uint64_t>(std::ranges::count_if(found, [](const std::string& line) {
                  return !line.starts_with("6 ") && !line.starts_with("7 ");
              })));
    return found;
}

void mark(foreign_all& message, const char* name) {
    const vesk_type* const type = foreign_facts(all);
    for (std::uint32_t bit = 0; bit < type->field_count; ++bit) {
        if (vesk_field_name(vesk_type_field(type, bit)) == std::string(name))
            vesk_mark(message.present + bit / 8, bit % 8);
    }
}

TEST(foreign_lint, finds_what_is_probably_not_meant) {
    foreign_all message{};
    EXPECT_TRUE(findings_of(message).empty());
    message.one_float_value = 0.5f;
    std::int32_t numbers[2] = {1, 2};
    message.some_sint32 = numbers;
    message.some_sint32_count = 2;
    mark(message, "packed_int32");
    char bad[] = "\xFF";
    char* strings[2] = {nullptr, bad};
    message.texts = strings;
    message.texts_count = 2;
    mark(message, "texts");
    vesk_bytes blob{nullptr, 3};
    message.blobs = &blob;
    message.blobs_count = 1;
    mark(message, "blobs");
    message.packed_double_value_count = 7;
    mark(message, "packed_double_value");
    EXPECT_EQ(findings_of(message), (std::vector<std::string>{"1 one_float_value", "1 some_sint32", "3 packed_int32",
                                                              "4 packed_double_value", "6 texts[1]", "4 blobs[0]"}));
}

// ---- Messages of a library that nobody here knows ------------------------------------------------------------------

struct unknown_holder {
    std::uint64_t unknown[2];  // of another library's type
    std::uint8_t present[1];
};

TEST(foreign_elsewhere, type_that_is_not_the_identifier_is_opaque) {
    const FactsByHand facts({{"holder",
                              sizeof(unknown_holder),
                              alignof(unknown_holder),
                              offsetof(unknown_holder, present),
                              {{"unknown", 1, VESK_KIND_MESSAGE, 0, 0, 1, false}}},
                             {"unknown", 16, 8, 0, {}, true}});
    const vesk_type* const type = facts.type(0);
    const Bytes input = message_field(1, hex("FFFF"));
    vesk_report report;
    report.size = sizeof report;
    EXPECT_EQ(vesk_check(type, input.data(), input.size(), 0, &report, nullptr), VESK_OPAQUE);
    EXPECT_EQ(report.opaque, 1u);
    vesk_value value{};
    value.size = sizeof value;
    EXPECT_EQ(vesk_peek(type, "unknown.f1", input.data(), input.size(), &value, nullptr), VESK_OPAQUE);

    unknown_holder holder{};
    unknown_holder other{};
    Ledger ledger;
    void* bytes = nullptr;
    std::uint64_t length = 0;
    EXPECT_EQ(vesk_encode(type, &holder, Ledger::alloc, &ledger, &bytes, &length), VESK_OK);
    EXPECT_EQ(length, 0u);
    Ledger::release(bytes, &ledger);
    EXPECT_EQ(vesk_equal(type, &holder, &other, nullptr), 1);
    holder.unknown[1] = 1;
    EXPECT_EQ(vesk_encode(type, &holder, Ledger::alloc, &ledger, &bytes, &length), VESK_OPAQUE);
    EXPECT_EQ(bytes, nullptr);
    std::uint32_t count = 0;
    EXPECT_EQ(vesk_gather(type, &holder, nullptr, &length, nullptr, &count, nullptr), VESK_OPAQUE);
    other.unknown[1] = 2;
    EXPECT_EQ(vesk_equal(type, &holder, &other, nullptr), VESK_OPAQUE);
}

}  // namespace
}  // namespace vesk::test
