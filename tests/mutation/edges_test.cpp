// What the random comparisons do not reach: bytes at the edge of a page, lengths that no buffer holds, imported
// functions that misbehave, arguments that are null.
#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "tests/mutation/eid.hpp"
#include "tests/support/damage.hpp"
#include "tests/support/guarded_memory.hpp"
#include "tests/support/interpreter.hpp"
#include "tests/support/messages.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

// ---- Both sides of a page ------------------------------------------------------------------------------------------

constexpr std::size_t capacity = 64 * 1024 - 1;

std::int32_t decode_at(const TypeInfo& type, const std::uint8_t* at, std::uint64_t length, std::string* reencoded) {
    Ledger ledger;
    Storage message(type);
    const std::int32_t code = type.decode(message.get(), at, length, Ledger::alloc, &ledger, 0);
    *reencoded = to_hex(encoded(type, message.get()));
    type.free(message.get(), Ledger::release, &ledger, 0);
    ledger.forget();  // a message that occurred twice lost the first one's blocks
    return code;
}

void expect_same_as_interpreter(const TypeInfo& type, const GuardedMemory& page, const Bytes& input) {
    const interpreter::TableType& table_type = interpreter::find_type(type.name);
    Ledger ledger;
    Storage message(type);
    const std::int32_t code =
        interpreter::decode(table_type, message.get(), input.data(), input.size(), Ledger::alloc, &ledger, 0);
    const std::string bytes = to_hex(encoded(type, message.get()));
    ledger.forget();
    for (std::uint8_t* at : {page.before_end(input.size()), page.begin()}) {
        std::copy(input.begin(), input.end(), at);
        std::string reencoded;
        ASSERT_EQ(decode_at(type, at, input.size(), &reencoded), code) << to_hex(input);
        ASSERT_EQ(reencoded, bytes) << to_hex(input);
        if (at == page.begin()) std::fill_n(at, input.size(), std::uint8_t{0xFF});
    }
}

void for_every_type(std::uint64_t rounds, Amount amount,
                    const std::function<void(const TypeInfo& type, const void* message, std::uint64_t seed)>& check) {
    std::uint64_t seed = 100;
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t round = 0; round < rounds; ++round, ++seed) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(seed));
            const RandomMessage message(*type, seed, amount);
            check(*type, message.get(), seed);
            if (::testing::Test::HasFailure()) return;
        }
    }
}

TEST(page_edge, input_is_read_no_further_than_its_end) {
    const GuardedMemory page(capacity);
    std::fill(page.begin(), page.before_end(0), std::uint8_t{0xFF});
    for_every_type(3, Amount::some, [&](const TypeInfo& type, const void* message, std::uint64_t) {
        const Bytes whole = encoded(type, message);
        for (std::size_t length = 0; length <= whole.size(); ++length) {
            const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
            expect_same_as_interpreter(type, page, cut);
        }
    });
}

TEST(page_edge, damaged_input_is_read_no_further_than_its_end) {
    const GuardedMemory page(capacity);
    std::fill(page.begin(), page.before_end(0), std::uint8_t{0xFF});
    for_every_type(40, Amount::wild, [&](const TypeInfo& type, const void* message, std::uint64_t seed) {
        std::mt19937_64 random(seed);
        const Bytes whole = encoded(type, message);
        for (int i = 0; i < 4; ++i) expect_same_as_interpreter(type, page, damage(whole, random));
    });
}

// Every number in every width of a varint, in front of nothing and in front of more.
TEST(page_edge, varints_of_every_width_are_read) {
    const GuardedMemory page(capacity);
    std::fill(page.begin(), page.before_end(0), std::uint8_t{0xFF});
    const TypeInfo& type = *find_type("octet");
    for (const FieldInfo& field : type.fields) {
        for (std::size_t width = 1; width <= 12; ++width) {
            for (unsigned bit = 0; bit < 64; ++bit) {
                for (const std::uint64_t value : {std::uint64_t{1} << bit, ~std::uint64_t{0} >> bit}) {
                    if (varint(value).size() > width) continue;
                    Bytes input = message(tag(field.number, varint_type), over_long(value, width));
                    expect_same_as_interpreter(type, page, input);
                    for (std::size_t more = 1; bit % 9 == 0 && more < 12; ++more) {
                        input.push_back(more == 1 ? 0x92 : 0x80);
                        expect_same_as_interpreter(type, page, input);
                    }
                    if (::testing::Test::HasFailure()) return;
                }
            }
        }
    }
}

// A length of 128 begins with the byte that a careless reader takes for the length itself.
TEST(page_edge, unknown_fields_with_lengths_of_every_width_are_skipped) {
    const GuardedMemory page(capacity);
    for (const std::size_t length : {0u, 1u, 127u, 128u, 129u, 256u, 300u}) {
        for (std::size_t width = varint(length).size(); width <= 11; ++width) {
            const Bytes input = message(tag(1000, length_type), over_long(length, width), Bytes(length, 0x08),
                                        number_field(1, 5), number_field(8, 1));
            expect_same_as_interpreter(*find_type("octet"), page, input);
        }
    }
}

TEST(page_edge, buffer_is_written_no_further_than_its_end) {
    const GuardedMemory page(capacity);
    for_every_type(4, Amount::wild, [&](const TypeInfo& type, const void* message, std::uint64_t) {
        const interpreter::TableType& table_type = interpreter::find_type(type.name);
        for (const std::uint32_t flags : {0u, 1u}) {
            const std::uint64_t length = interpreter::encode(table_type, message, nullptr, 0, nullptr, nullptr, flags);
            for (std::uint64_t room = 0; room <= length + 2; ++room) {
                for (const bool last : {true, false}) {
                    Bytes expected(room + 16, 0xEE);
                    std::uint32_t expected_segments = 0;
                    interpreter::encode(table_type, message, expected.data(), room, nullptr, &expected_segments, flags);
                    std::uint8_t* const buffer = last ? page.before_end(room) : page.begin();
                    std::fill_n(buffer, last ? room : room + 16, std::uint8_t{0xEE});
                    ASSERT_EQ(type.encode(message, buffer, room, nullptr, nullptr, flags), length) << room;
                    expected.resize(last ? room : room + 16);
                    ASSERT_EQ(to_hex(Bytes(buffer, buffer + expected.size())), to_hex(expected)) << room;
                    std::uint32_t segments = 0;
                    ASSERT_EQ(type.encode(message, buffer, room, nullptr, &segments, flags), length) << room;
                    ASSERT_EQ(segments, expected_segments) << room;
                }
            }
        }
    });
}

// ---- Lengths that no buffer holds ----------------------------------------------------------------------------------

vesk_blob blob_of_length(std::uint64_t length) {
    static std::uint8_t byte = 7;
    vesk_blob message{};
    message.f2 = &byte;
    message.f2_length = length;
    message.f3 = 5;
    message.present[0] = 0x06;
    return message;
}

// Where the data does not fit it is not looked at: each length is tried in a buffer that is too short.
TEST(huge_length, encodes_as_the_interpreter_says) {
    for (const std::uint64_t length :
         {std::uint64_t{0x7FFFFFFF}, std::uint64_t{0x80000000}, std::uint64_t{0xFFFFFFFF}, std::uint64_t{0x100000000},
          std::uint64_t{1} << 63, ~std::uint64_t{0}, ~std::uint64_t{0} - 5, ~std::uint64_t{0} - 6,
          ~std::uint64_t{0} - 7, ~std::uint64_t{0} - 12, ~std::uint64_t{0} - 20}) {
        const vesk_blob blob = blob_of_length(length);
        vesk_blob two[2] = {blob, blob_of_length(1)};
        vesk_nested nested{};
        nested.f1 = blob;
        nested.f5 = two;
        nested.f5_count = 2;
        nested.f9 = 3;
        nested.present[0] = 0x11;
        nested.present[1] = 0x01;
        vesk_identified identified{};
        identified.f4 = blob.f2;
        identified.f4_length = length;
        identified.present[0] = 0x02;
        vesk_nested list_alone = nested;
        list_alone.present[0] = 0x10;
        list_alone.f1 = {};
        vesk_lists lists{};
        lists.f6 = &list_alone;
        lists.f6_count = 1;
        lists.present[0] = 0x20;
        vesk_four four{};
        four.f6 = four.f19 = blob.f2;
        four.f6_length = length;
        four.f19_length = 1;
        VESK_MARK(&four, 5);
        VESK_MARK(&four, 18);
        const std::pair<const char*, const void*> messages[] = {
            {"blob", &blob}, {"nested", &nested}, {"identified", &identified}, {"lists", &lists}, {"four", &four}};
        for (const auto& [name, message] : messages) {
            const TypeInfo& type = *find_type(name);
            for (const std::uint32_t flags : {0u, 1u}) {
                for (const std::uint64_t room : {std::uint64_t{0}, std::uint64_t{4}, std::uint64_t{40}}) {
                    Bytes expected(64, 0xEE), buffer(64, 0xEE);
                    std::uint32_t expected_count = 0, count = 0;
                    const std::uint64_t result = interpreter::encode(
                        interpreter::find_type(name), message, expected.data(), room, nullptr, &expected_count, flags);
                    ASSERT_EQ(type.encode(message, buffer.data(), room, nullptr, &count, flags), result) << length;
                    ASSERT_EQ(type.encode(message, buffer.data(), room, nullptr, nullptr, flags), result) << length;
                    ASSERT_EQ(type.encode(message, nullptr, 0, nullptr, nullptr, flags), result) << length;
                    ASSERT_EQ(to_hex(buffer), to_hex(expected)) << length << " in " << room;
                    ASSERT_EQ(count, expected_count) << length;
                }
            }
        }
    }
}

TEST(impossible_length, of_an_input_changes_nothing_before_the_error_that_ends_it) {
    const GuardedMemory page(capacity);
    for_every_type(10, Amount::some, [&](const TypeInfo& type, const void* message, std::uint64_t) {
        const Bytes input = concatenate({encoded(type, message), number_field(1000, 0), tag(1000, 3)});
        std::uint8_t* const at = page.before_end(input.size());
        std::copy(input.begin(), input.end(), at);
        std::string whole, cut_off;
        ASSERT_EQ(decode_at(type, at, input.size(), &whole), VESK_UNKNOWN_WIRE_TYPE);
        for (const std::uint64_t length : {UINTPTR_MAX - reinterpret_cast<std::uintptr_t>(at) + 1, UINT64_MAX}) {
            ASSERT_EQ(decode_at(type, at, length, &cut_off), VESK_UNKNOWN_WIRE_TYPE);
            ASSERT_EQ(cut_off, whole);
        }
    });
}

// ---- Lists that change ---------------------------------------------------------------------------------------------

struct LengtheningMemory {
    Ledger ledger;
    std::uint8_t* length;  // of an element, and what it becomes
    std::uint8_t all_that_is_left;
};

void* alloc_and_lengthen(std::uint64_t size, void* context) {
    LengtheningMemory& memory = *static_cast<LengtheningMemory*>(context);
    *memory.length = memory.all_that_is_left;
    return Ledger::alloc(size, &memory.ledger);
}

// The first element takes in the others, which are fields that it does not know.
TEST(changing_list, elements_that_are_gone_since_they_were_counted_are_malformed) {
    const GuardedMemory page(capacity);
    const Bytes element = message_field(5, {});
    const Bytes input = message(element, element, element);
    std::uint8_t* const at = page.before_end(input.size());
    std::copy(input.begin(), input.end(), at);
    LengtheningMemory memory{{}, at + 1, static_cast<std::uint8_t>(input.size() - 2)};
    vesk_nested message;
    EXPECT_EQ(vesk_nested_decode_ext(&message, at, input.size(), alloc_and_lengthen, &memory, 0), VESK_MALFORMED);
    EXPECT_EQ(message.f5_count, 3u);
    vesk_nested_free_ext(&message, Ledger::release, &memory.ledger, 0);
}

// ---- Lists in lists ------------------------------------------------------------------------------------------------

TEST(nested_list, elements_with_content_count_as_segments_and_empty_ones_do_not) {
    vesk_blob blobs[3] = {};
    blobs[0].f3 = blobs[2].f3 = 5;
    blobs[0].present[0] = blobs[2].present[0] = 0x04;
    vesk_nested nested{};
    nested.f5 = blobs;
    nested.f5_count = 3;
    nested.present[0] = 0x10;
    vesk_lists lists{};
    lists.f6 = &nested;
    lists.f6_count = 1;
    lists.present[0] = 0x20;
    Bytes buffer(64);
    std::uint32_t segments = 0;
    EXPECT_EQ(find_type("lists")->encode(&lists, buffer.data(), buffer.size(), nullptr, &segments, 0), 12u);
    EXPECT_EQ(segments, 4u);  // two elements, the message that holds them, and the whole
}

// ---- Imported functions --------------------------------------------------------------------------------------------

// What both implementations make of a message while the identifiers misbehave.
void expect_same_encoding(const TypeInfo& type, const void* message) {
    const interpreter::TableType& table_type = interpreter::find_type(type.name);
    for (const std::uint32_t flags : {0u, 1u}) {
        const std::uint64_t length = interpreter::encode(table_type, message, nullptr, 0, nullptr, nullptr, flags);
        for (const std::uint64_t room : {std::uint64_t{0}, std::uint64_t{60}, length / 2, length, length + 40}) {
            if (room > 100000) continue;
            Bytes expected(room, 0xEE), buffer(room, 0xEE);
            for (const int list_capacity : {-1, 0, 1, 3}) {  // -1 for no list
                std::uint32_t expected_count = list_capacity > 0 ? static_cast<std::uint32_t>(list_capacity) : 0;
                std::uint32_t count = expected_count;
                std::vector<vesk_segment> list(4);
                vesk_segment* const segments = list_capacity > 0 ? list.data() : nullptr;
                eid_writes().clear();
                const std::uint64_t result = interpreter::encode(table_type, message, expected.data(), room, segments,
                                                                 list_capacity >= 0 ? &expected_count : nullptr, flags);
                const std::string expected_writes = std::exchange(eid_writes(), {});
                ASSERT_EQ(
                    type.encode(message, buffer.data(), room, segments, list_capacity >= 0 ? &count : nullptr, flags),
                    result);
                ASSERT_EQ(eid_writes(), expected_writes) << room;
                ASSERT_EQ(to_hex(buffer), to_hex(expected)) << room;
                ASSERT_EQ(count, expected_count) << room;
            }
        }
    }
}

// One byte more than a length of one byte can say.
TEST(longest_numbers, are_written_behind_a_length_of_two_bytes) {
    vesk_nested nested{};
    std::memset(&nested.f3, 0xFF, sizeof nested.f3);
    nested.present[0] = 0x04;
    const TypeInfo& type = *find_type("nested");
    ASSERT_EQ(encoded(type, &nested).size(), 1u + 2 + 128);
    expect_same_encoding(type, &nested);
}

TEST(imported_eid, measured_length_counts_whatever_is_written_and_what_is_left_out_stays_as_it_was) {
    std::vector<std::uint64_t> lengths{1, 9, 40, 127, 128, 300};
    // And some that no buffer holds.
    lengths.push_back(0x7FFFFFFF);
    for (const unsigned bit : {31u, 40u, 63u}) lengths.push_back(std::uint64_t{1} << bit);
    for (const unsigned less : {3u, 20u}) lengths.push_back(~std::uint64_t{0} - less);
    for (const std::uint64_t measured : lengths) {
        for (const std::uint64_t stored : {std::uint64_t{0}, UINT64_MAX}) {
            for_every_type(20, Amount::wild, [&](const TypeInfo& type, const void* message, std::uint64_t) {
                const Misbehaving misbehaving({.measured = measured, .stored = stored, .segments = 3});
                expect_same_encoding(type, message);
            });
        }
    }
}

// The word that holds the number reaches over the first bytes of the identifier behind it.
TEST(imported_eid, bytes_that_it_leaves_out_behind_an_element_that_ends_in_a_number_stay_as_they_were) {
    vesk_identified elements[2] = {};
    elements[0].f6 = 1;
    elements[0].present[0] = 0x20;
    vesk_four four{};
    four.f24 = elements;
    four.f24_count = 2;
    VESK_MARK(&four, 24);
    const TypeInfo& type = *find_type("four");
    ASSERT_NE(encoded(type, &four).size(), 0u);
    const Misbehaving misbehaving({.measured = 40, .stored = 0});
    expect_same_encoding(type, &four);
}

// What stands before an identifier is copied in blocks where more of ours follows, and not a byte further.
TEST(imported_eid, bytes_that_it_leaves_out_after_parts_of_every_length_stay_as_they_were) {
    const std::vector<std::uint8_t> data(64, 0xD5);
    const std::string text(30, 't');
    const TypeInfo& type = *find_type("card");
    for (const std::uint64_t stored : {0, 3}) {
        const Misbehaving misbehaving({.measured = 20, .stored = stored});
        for (std::size_t length = 0; length <= 40; ++length) {
            for (std::size_t before = 0; before <= 24; ++before) {
                vesk_card card{};
                card.f1.f1 = before == 0 ? 0 : 1;
                card.f1.f4 = const_cast<std::uint8_t*>(data.data());
                card.f1.f4_length = length;
                card.f1.f3 = const_cast<char*>(text.c_str() + text.size() - before);
                card.f7 = const_cast<std::uint8_t*>(data.data());
                card.f7_length = 41 - length;
                card.f3 = 1;
                card.f1.present[0] = static_cast<std::uint8_t>(before % 2 == 0 ? 0x0B : 0x02);
                card.present[0] = 0x44;
                expect_same_encoding(type, &card);
                if (::testing::Test::HasFailure()) return;
            }
        }
    }
}

TEST(imported_eid, codes_are_passed_on) {
    for (const std::int32_t code : {-77, 9, 1}) {
        for_every_type(4, Amount::much, [&](const TypeInfo& type, const void* message, std::uint64_t) {
            const interpreter::TableType& table_type = interpreter::find_type(type.name);
            const Bytes input = encoded(type, message);
            EidBehaviour behaviour;
            behaviour.decode_code = behaviour.duplicate_code = code;
            const Misbehaving misbehaving(behaviour);
            for (std::uint64_t failing = 0; failing < 4; ++failing) {
                Ledger ledger, expected_ledger;
                ledger.fail_request(failing);
                expected_ledger.fail_request(failing);
                Storage decoded(type), expected(type);
                ASSERT_EQ(type.decode(decoded.get(), input.data(), input.size(), Ledger::alloc, &ledger, 0),
                          interpreter::decode(table_type, expected.get(), input.data(), input.size(), Ledger::alloc,
                                              &expected_ledger, 0));
                ASSERT_EQ(ledger.history(), expected_ledger.history());
                type.free(decoded.get(), Ledger::release, &ledger, 0);
                expected_ledger.forget();

                ledger.clear_history();
                expected_ledger.clear_history();
                ledger.fail_request(failing);
                expected_ledger.fail_request(failing);
                ASSERT_EQ(type.duplicate(decoded.get(), message, Ledger::alloc, &ledger),
                          interpreter::duplicate(table_type, expected.get(), message, Ledger::alloc, &expected_ledger));
                ASSERT_EQ(ledger.history(), expected_ledger.history());
                type.free(decoded.get(), Ledger::release, &ledger, 0);
                expected_ledger.forget();
            }
        });
    }
}

// ---- Presence bits -------------------------------------------------------------------------------------------------

// Spare bits are set at random in source and destination; padding is not compared.
TEST(spare_presence_bits, are_treated_as_the_interpreter_does) {
    for_every_type(20, Amount::wild, [&](const TypeInfo& type, const void* message, std::uint64_t seed) {
        const interpreter::TableType& table_type = interpreter::find_type(type.name);
        std::vector<std::uint8_t> source(type.size);
        std::memcpy(source.data(), message, type.size);
        const std::size_t last = type.presence_offset + type.presence_size - 1;
        const unsigned used = static_cast<unsigned>(type.fields.size() - 8 * (type.presence_size - 1));
        source[last] = static_cast<std::uint8_t>(source[last] | (used < 8 ? 0xFFu << used : 0u));
        ASSERT_EQ(to_hex(encoded(type, source.data())), to_hex(encoded(type, message)));

        for (const std::uint8_t background : {0x00, 0xFF, 0x5A}) {
            Ledger ledger, expected_ledger;
            Storage copy(type, background), expected(type, background);
            type.duplicate(copy.get(), source.data(), Ledger::alloc, &ledger);
            interpreter::duplicate(table_type, expected.get(), source.data(), Ledger::alloc, &expected_ledger);
            ASSERT_EQ(load<std::uint8_t>(copy.get(), last), load<std::uint8_t>(expected.get(), last)) << seed;
            for (const FieldInfo& field : type.fields) {
                if (field.kind != Kind::message) continue;
                const std::size_t inner =
                    field.offset + field.nested->presence_offset + field.nested->presence_size - 1;
                ASSERT_EQ(load<std::uint8_t>(copy.get(), inner), load<std::uint8_t>(expected.get(), inner))
                    << field.number;
            }
            type.free(copy.get(), Ledger::release, &ledger, 0);
            expected_ledger.forget();
        }
    });
}

// ---- Lengths where storing or reading changes its ways -------------------------------------------------------------

TEST(string_length, every_length_encodes_decodes_and_duplicates_whole) {
    const GuardedMemory page(capacity);
    for (std::size_t length = 0; length < 300; ++length) {
        std::string text(length, ' ');
        for (std::size_t i = 0; i < length; ++i) text[i] = static_cast<char>('a' + (i * 7 + i / 26) % 26);
        char* const string = reinterpret_cast<char*>(page.before_end(length + 1));
        std::memcpy(string, text.c_str(), length + 1);
        vesk_blob message{};
        message.f1 = string;
        message.present[0] = 0x01;
        EXPECT_EQ(to_hex(encoded(message)), to_hex(text_field(1, text))) << length;
        const Decoded<vesk_blob> decoded(encoded(message));
        EXPECT_STREQ(decoded->f1, text.c_str()) << length;
        const Copy<vesk_blob> copy(message);
        EXPECT_STREQ(copy->f1, text.c_str()) << length;
        EXPECT_EQ(copy.ledger.history(), std::vector<Request>{asked_for(length + 1)});
    }
}

// The bytes that a writing call stores beyond a number's own must lie inside the buffer, and be written again.
TEST(number_width, every_width_encodes_at_the_end_of_a_page) {
    const GuardedMemory page(capacity);
    for (const TypeInfo* type : all_types()) {
        for (const FieldInfo& field : type->fields) {
            const bool is_number =
                field.kind == Kind::uint64 || field.kind == Kind::uint32 || field.kind == Kind::boolean;
            if (!is_number) continue;
            const auto index = static_cast<std::size_t>(&field - type->fields.data());
            for (unsigned bit = 0; bit <= 64; ++bit) {
                Storage message(*type, 0);
                const std::uint64_t value = bit == 64 ? 0 : ~std::uint64_t{0} >> bit;
                if (field.kind == Kind::uint64) store(message.get(), field.offset, value);
                if (field.kind == Kind::uint32) store(message.get(), field.offset, static_cast<std::uint32_t>(value));
                if (field.kind == Kind::boolean) store(message.get(), field.offset, static_cast<std::uint8_t>(value));
                store(message.get(), type->presence_offset + index / 8, static_cast<std::uint8_t>(1u << index % 8));
                const std::uint64_t sent = field.kind == Kind::uint64   ? value
                                           : field.kind == Kind::uint32 ? static_cast<std::uint32_t>(value)
                                                                        : static_cast<std::uint8_t>(value);
                const Bytes expected = number_field(field.number, sent);
                std::uint8_t* const buffer = page.before_end(expected.size());
                ASSERT_EQ(type->encode(message.get(), buffer, expected.size(), nullptr, nullptr, 0), expected.size());
                ASSERT_EQ(to_hex(Bytes(buffer, page.before_end(0))), to_hex(expected));
            }
        }
    }
}

// ---- Repeated fields -----------------------------------------------------------------------------------------------

TEST(repeated_field, in_two_runs_is_malformed) {
    const Bytes content(8, 0x01);  // of any kind of element
    const Bytes between = number_field(999, 1);
    int fields = 0;
    for (const TypeInfo* type : all_types()) {
        for (const FieldInfo& field : type->fields) {
            if (!is_repeated_kind(field.kind)) continue;
            const Bytes run = message(tag(field.number, length_type), varint(content.size()), content);
            EXPECT_EQ(AnyDecoded(*type, message(run, run, between)).code, VESK_OK) << type->name << field.number;
            EXPECT_EQ(AnyDecoded(*type, message(run, between, run)).code, VESK_MALFORMED) << type->name << field.number;
            ++fields;
        }
    }
    EXPECT_GT(fields, 10);
}

// ---- Null arguments ------------------------------------------------------------------------------------------------

TEST(null_argument, empty_input_and_missing_count_are_accepted) {
    for (const TypeInfo* type : all_types()) {
        Storage message(*type);
        EXPECT_EQ(type->decode(message.get(), nullptr, 0, nullptr, nullptr, 0), VESK_OK);
        EXPECT_TRUE(is_clear(*type, message.get()));
        vesk_segment none{};
        EXPECT_EQ(type->encode(message.get(), nullptr, 0, &none, nullptr, 1), 0u);
        std::uint32_t count = 0;
        EXPECT_EQ(type->encode(message.get(), nullptr, 0, nullptr, &count, 1), 0u);
        EXPECT_EQ(count, 0u);
    }
}

}  // namespace
}  // namespace vesk::test
