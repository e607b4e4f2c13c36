// Gathering: the segments of a message put together are its plain encoding, for every type, and bytes fields stay where
// they are.
#include <gtest/gtest.h>
#include <vesk/client_service.h>

#include <cstdlib>

#include "tests/support/full_message.hpp"
#include "tests/support/guarded_memory.hpp"
#include "tests/support/messages.hpp"
#include "tests/support/random_message.hpp"
#include "tests/toolkit/every_field.hpp"
#include "tests/toolkit/gathered.hpp"
#include "tests/trust/sanitized.hpp"

namespace vesk::test {
namespace {

std::uint64_t rounds() {
    const char* text = std::getenv("VESK_TEST_ROUNDS");
    return text != nullptr ? std::strtoull(text, nullptr, 10) : 50;
}

// ---- Put together --------------------------------------------------------------------------------------------------

// Stretches of the buffer, one after the other to its end, with data between them.
void expect_partition(const Gathered& gathered) {
    const std::uint8_t* next = gathered.buffer.data();
    bool after_stretch = false;
    for (const vesk_segment& segment : gathered.segments) {
        EXPECT_NE(segment.length, 0u) << "an empty segment";
        const bool is_stretch = gathered.is_in_buffer(segment);
        EXPECT_FALSE(is_stretch && after_stretch) << "two segments where one would do";
        after_stretch = is_stretch;
        if (!is_stretch) continue;
        EXPECT_EQ(segment.data, next) << "a gap in the buffer, or bytes listed again";
        next += segment.length;
    }
    EXPECT_EQ(next, gathered.buffer.data() + gathered.buffer.size());
}

void expect_plain_encoding(const TypeInfo& type, const void* message, std::uint64_t threshold) {
    const Gathered gathered = gather(facts_of(type.name), message, threshold);
    ASSERT_EQ(gathered.code, VESK_OK);
    ASSERT_EQ(to_hex(gathered.joined()), to_hex(encoded(type, message)));
    expect_partition(gathered);
}

TEST(gather, every_type_put_together_is_the_plain_encoding) {
    for (const TypeInfo* type : all_types()) {
        for (const Contents contents : {Contents::some, Contents::empty}) {
            const AnyDecoded full(*type, full_encoding(*type, contents));
            SCOPED_TRACE(type->name);
            expect_plain_encoding(*type, full.message.get(), 1);
        }
        for (std::uint64_t seed = 0; seed < rounds(); ++seed) {
            for (const Amount amount : {Amount::some, Amount::much, Amount::wild}) {
                const RandomMessage message(*type, seed, amount);
                SCOPED_TRACE(type->name + ", seed " + std::to_string(seed));
                expect_plain_encoding(*type, message.get(), seed % 7 * 30);
                if (HasFailure()) return;
            }
        }
    }
}

TEST(gather, every_bytes_field_of_a_full_message_is_listed) {
    std::size_t listed = 0;
    for (const TypeInfo* type : all_types()) {
        const AnyDecoded full(*type, full_encoding(*type));
        std::vector<const void*> expected;
        for_every_field(facts_of(type->name), const_cast<void*>(full.message.get()), [&](const FieldAt& at) {
            if (at.field->kind == VESK_KIND_BYTES) expected.push_back(at.get<const void*>());
        });
        const Gathered gathered = gather(facts_of(type->name), full.message.get());
        std::vector<const void*> found;
        for (const vesk_segment& segment : gathered.segments) {
            if (!gathered.is_in_buffer(segment)) found.push_back(segment.data);
        }
        EXPECT_EQ(found, expected) << type->name;
        listed += found.size();
    }
    EXPECT_GT(listed, 5u);
}

TEST(gather, type_of_an_identifier_field_is_encoded_by_its_library) {
    vesk_drin_eid_element elements[] = {{3, 1, {3}}};
    vesk_drin_eid_st eid{1, 2, 3, 4, 5, elements, 1, {0x3F}};
    Bytes plain(vesk_drin_eid_st_encode_ext(&eid, nullptr, 0, nullptr, nullptr, 0));
    vesk_drin_eid_st_encode_ext(&eid, plain.data(), plain.size(), nullptr, nullptr, 0);
    const vesk_type* elsewhere = vesk_field_nested(vesk_type_field(facts_of("eeprom_data"), 0));
    for (const vesk_type* type : {elsewhere, facts_of("drin_eid_st")}) {
        EXPECT_EQ(to_hex(gather(type, &eid).joined()), to_hex(plain));
    }
}

TEST(gather, empty_message_needs_nothing) {
    const vesk_scratch_eeprom empty{};
    std::uint64_t length = 7;
    std::uint32_t count = 3;
    std::uint8_t buffer[7];
    vesk_segment segments[3];
    EXPECT_EQ(vesk_gather(facts_of("scratch_eeprom"), &empty, buffer, &length, segments, &count, nullptr), VESK_OK);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(gather(facts_of("scratch_eeprom"), &empty).code, VESK_OK);
}

// ---- What is listed ------------------------------------------------------------------------------------------------

const Bytes data = hex("D1D2D3");

vesk_scratch_eeprom eeprom_with_data() {
    vesk_scratch_eeprom eeprom{};
    eeprom.f1 = literal("ab");
    eeprom.f2 = data_of(data);
    eeprom.f2_length = data.size();
    eeprom.f3 = 300;
    for (const unsigned bit : {VESK_SCRATCH_EEPROM_F1, VESK_SCRATCH_EEPROM_F2, VESK_SCRATCH_EEPROM_F3}) {
        VESK_MARK(&eeprom, bit);
    }
    return eeprom;
}

TEST(gather, bytes_field_stays_where_it_is_and_the_rest_is_in_the_buffer) {
    const vesk_scratch_eeprom eeprom = eeprom_with_data();
    const Gathered gathered = gather(facts_of("scratch_eeprom"), &eeprom);
    ASSERT_EQ(gathered.count, 3u);
    EXPECT_EQ(to_hex(gathered.buffer),
              to_hex(message(text_field(1, "ab"), tag(2, length_type), varint(3), number_field(3, 300))));
    EXPECT_EQ(gathered.segments[0].data, gathered.buffer.data());
    EXPECT_EQ(gathered.segments[0].length, 6u);
    EXPECT_EQ(gathered.segments[1].data, data.data());
    EXPECT_EQ(gathered.segments[1].length, 3u);
    EXPECT_EQ(gathered.segments[2].data, gathered.buffer.data() + 6);
}

TEST(gather, bytes_field_below_the_threshold_is_copied) {
    const vesk_scratch_eeprom eeprom = eeprom_with_data();
    const struct {
        std::uint64_t threshold;
        std::uint32_t segments;
    } rows[] = {{0, 3}, {1, 3}, {2, 3}, {3, 3}, {4, 1}, {UINT64_MAX, 1}};
    for (const auto& row : rows) {
        const Gathered gathered = gather(facts_of("scratch_eeprom"), &eeprom, row.threshold);
        EXPECT_EQ(gathered.count, row.segments) << "threshold " << row.threshold;
        EXPECT_EQ(to_hex(gathered.joined()), to_hex(encoded(eeprom))) << "threshold " << row.threshold;
    }
}

TEST(gather, empty_bytes_field_is_not_listed_and_its_data_not_looked_at) {
    vesk_scratch_eeprom eeprom = eeprom_with_data();
    eeprom.f2_length = 0;
    for (std::uint8_t* nothing : {static_cast<std::uint8_t*>(nullptr), unreadable<std::uint8_t>()}) {
        eeprom.f2 = nothing;
        const Gathered gathered = gather(facts_of("scratch_eeprom"), &eeprom, 0);
        EXPECT_EQ(gathered.count, 1u);
        EXPECT_EQ(to_hex(gathered.buffer), to_hex(message(text_field(1, "ab"), hex("1200"), number_field(3, 300))));
    }
}

TEST(gather, data_that_is_listed_is_never_read) {
    vesk_scratch_eeprom eeprom = eeprom_with_data();
    eeprom.f2 = unreadable<std::uint8_t>();
    eeprom.f2_length = UINT32_MAX;
    const Gathered gathered = gather(facts_of("scratch_eeprom"), &eeprom);
    ASSERT_EQ(gathered.code, VESK_OK);
    ASSERT_EQ(gathered.count, 3u);
    EXPECT_EQ(gathered.segments[1].data, eeprom.f2);
    EXPECT_EQ(gathered.segments[1].length, UINT32_MAX);
}

// The lengths of all messages around the data count it.
TEST(gather, nested_lengths_count_the_data_that_is_listed_inside) {
    vesk_idprom_data elements[2] = {};
    for (vesk_idprom_data& idprom : elements) {
        idprom.eeprom.f20 = data_of(data);
        idprom.eeprom.f20_length = data.size();
        VESK_MARK(&idprom.eeprom, VESK_EEPROM_DATA_F20);
    }
    vesk_resp_inv_data response{};
    response.idprom_list = elements;
    response.idprom_list_count = 2;
    VESK_MARK(&response, VESK_RESP_INV_DATA_IDPROM_LIST);

    const Bytes eeprom = message_field(3, message_field(20, data));
    EXPECT_EQ(to_hex(gather(facts_of("idprom_data"), &elements[0]).joined()), to_hex(eeprom));
    const Gathered gathered = gather(facts_of("resp_inv_data"), &response);
    EXPECT_EQ(to_hex(gathered.joined()), to_hex(message(message_field(7, eeprom), message_field(7, eeprom))));
    EXPECT_EQ(gathered.count, 4u);
}

// ---- Too short -----------------------------------------------------------------------------------------------------

// One call into memory of which no byte too many can be touched.
struct Call {
    const TypeInfo& type;
    const void* message;
    const Gathered& whole;
    const Bytes& plain;

    void expect(std::uint8_t* buffer, std::uint64_t room, vesk_segment* segments, std::uint32_t capacity) const {
        std::uint64_t length = room;
        std::uint32_t count = capacity;
        const bool fits = room >= whole.length && capacity >= whole.count;
        announce_attempt("gather", type.name, room);
        const std::int32_t code = vesk_gather(facts_of(type.name), message, buffer, &length, segments, &count, nullptr);
        ASSERT_EQ(code, fits ? static_cast<std::int32_t>(VESK_OK) : VESK_TOO_SHORT)
            << type.name << ", room " << room << ", capacity " << capacity;
        ASSERT_EQ(length, whole.length) << type.name;
        ASSERT_EQ(count, whole.count) << type.name;
        if (!fits) return;
        Gathered gathered{code, length, count, {}, {segments, segments + count}};
        ASSERT_EQ(gathered.joined(), plain) << type.name << ", room " << room << ", capacity " << capacity;
    }
};

TEST(gather, every_buffer_and_list_around_the_need_is_enough_or_too_short) {
    for (const TypeInfo* type : all_types()) {
        const AnyDecoded full(*type, full_encoding(*type));
        const Gathered whole = gather(facts_of(type->name), full.message.get());
        const Bytes plain = encoded(*type, full.message.get());
        const Call call{*type, full.message.get(), whole, plain};
        const GuardedMemory buffer(whole.length + 2);
        const GuardedMemory list((whole.count + 2) * sizeof(vesk_segment));
        const auto segments_before_end = [&](std::uint32_t capacity) {
            return reinterpret_cast<vesk_segment*>(list.before_end(capacity * sizeof(vesk_segment)));
        };
        for (const std::size_t room : numbers_to(whole.length + 2)) {
            call.expect(buffer.before_end(room), room, segments_before_end(whole.count), whole.count);
            call.expect(buffer.begin(), room, reinterpret_cast<vesk_segment*>(list.begin()), whole.count);
            if (HasFatalFailure()) return;
        }
        for (std::uint32_t capacity = 0; capacity <= whole.count + 2; ++capacity) {
            for (const std::uint64_t room : {std::uint64_t{0}, whole.length - 1, whole.length, whole.length + 2}) {
                call.expect(buffer.begin(), room, segments_before_end(capacity), capacity);
                if (HasFatalFailure()) return;
            }
        }
    }
}

TEST(gather, message_is_only_read) {
    for (const TypeInfo* type : all_types()) {
        const AnyDecoded full(*type, full_encoding(*type));
        const GuardedMemory structure(type->size);
        std::memcpy(structure.begin(), full.message.get(), type->size);
        structure.forbid_writing();
        announce_attempt("gather of a read-only message", type->name, type->size);
        EXPECT_EQ(gather(facts_of(type->name), structure.begin()).joined(), encoded(*type, full.message.get()));
    }
}

TEST(gather, options_of_a_newer_program_are_taken_as_far_as_they_are_known) {
    struct Newer {
        vesk_options known;
        std::uint64_t unknown;
    } newer{vesk_default_options(), 5};
    newer.known.size = sizeof newer;
    newer.known.gather_threshold = 4;
    const vesk_scratch_eeprom eeprom = eeprom_with_data();
    std::uint64_t length = 0;
    std::uint32_t count = 0;
    EXPECT_EQ(vesk_gather(facts_of("scratch_eeprom"), &eeprom, nullptr, &length, nullptr, &count, &newer.known),
              VESK_TOO_SHORT);
    EXPECT_EQ(count, 1u);
}

// ---- Too long ------------------------------------------------------------------------------------------------------

void expect_too_long(const std::string& type, const void* message) {
    for (const std::uint64_t threshold : {std::uint64_t{1}, UINT64_MAX}) {
        const Gathered gathered = gather(facts_of(type), message, threshold);
        EXPECT_EQ(gathered.code, VESK_TOO_LONG);
        EXPECT_EQ(gathered.length, 0u);
        EXPECT_EQ(gathered.count, 0u);
    }
    Ledger ledger;
    void* bytes = &ledger;
    std::uint64_t length = 5;
    EXPECT_EQ(vesk_encode(facts_of(type), message, Ledger::alloc, &ledger, &bytes, &length), VESK_TOO_LONG);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(ledger.requests_made(), 0u);
}

TEST(gather, length_above_32_bits_is_too_long_and_its_data_not_touched) {
    vesk_scratch_eeprom eeprom = eeprom_with_data();
    eeprom.f2 = unreadable<std::uint8_t>();
    for (const std::uint64_t length : {std::uint64_t{1} << 32, std::uint64_t{1} << 63, UINT64_MAX - 6, UINT64_MAX}) {
        SCOPED_TRACE(length);
        eeprom.f2_length = length;
        expect_too_long("scratch_eeprom", &eeprom);
        Gathered gathered{0, 64, 3, Bytes(64, 0xEE), std::vector<vesk_segment>(3)};
        EXPECT_EQ(vesk_gather(facts_of("scratch_eeprom"), &eeprom, gathered.buffer.data(), &gathered.length,
                              gathered.segments.data(), &gathered.count, nullptr),
                  VESK_TOO_LONG);
    }
}

// The longest content of a nested message, and one byte more, which its data alone does not reach.
TEST(gather, nested_content_of_4_gib_is_too_long) {
    vesk_idprom_data idprom{};
    idprom.eeprom.f20 = unreadable<std::uint8_t>();
    VESK_MARK(&idprom.eeprom, VESK_EEPROM_DATA_F20);
    const std::uint64_t head = tag(20, length_type).size() + varint(UINT32_MAX).size();
    idprom.eeprom.f20_length = UINT32_MAX - head;
    const Gathered longest = gather(facts_of("idprom_data"), &idprom);
    ASSERT_EQ(longest.code, VESK_OK);
    EXPECT_EQ(to_hex(longest.buffer), to_hex(message(tag(3, length_type), varint(UINT32_MAX), tag(20, length_type),
                                                     varint(UINT32_MAX - head))));
    ++idprom.eeprom.f20_length;
    expect_too_long("idprom_data", &idprom);
    // At the top it has no length on the wire.
    EXPECT_EQ(gather(facts_of("eeprom_data"), &idprom.eeprom).code, VESK_OK);
}

// ---- vesk_encode ---------------------------------------------------------------------------------------------------

// In the one block that it asked for.
void expect_encode(const TypeInfo& type, const void* message) {
    const Bytes plain = encoded(type, message);
    Ledger ledger;
    void* bytes = nullptr;
    std::uint64_t length = 0;
    ASSERT_EQ(vesk_encode(facts_of(type.name), message, Ledger::alloc, &ledger, &bytes, &length), VESK_OK);
    ASSERT_EQ(ledger.history(), std::vector<Request>{asked_for(plain.size())});
    ASSERT_TRUE(ledger.owns(bytes));
    const auto* begin = static_cast<const std::uint8_t*>(bytes);
    EXPECT_EQ(to_hex(Bytes(begin, begin + length)), to_hex(plain));
    Ledger::release(bytes, &ledger);
}

TEST(encode, every_type_gets_its_plain_encoding_in_one_block) {
    for (const TypeInfo* type : all_types()) {
        SCOPED_TRACE(type->name);
        expect_encode(*type, AnyDecoded(*type, full_encoding(*type)).message.get());
        expect_encode(*type, Storage(*type, 0).get());
        for (std::uint64_t seed = 0; seed < rounds(); ++seed) {
            expect_encode(*type, RandomMessage(*type, seed, Amount::wild).get());
            if (HasFailure()) return;
        }
    }
}

TEST(encode, refused_block_is_no_memory_and_nothing_is_given) {
    for (const TypeInfo* type : all_types()) {
        const AnyDecoded full(*type, full_encoding(*type));
        Ledger ledger;
        ledger.fail_from_now_on();
        void* bytes = &ledger;
        std::uint64_t length = 5;
        EXPECT_EQ(vesk_encode(facts_of(type->name), full.message.get(), Ledger::alloc, &ledger, &bytes, &length),
                  VESK_NO_MEMORY);
        EXPECT_EQ(bytes, nullptr);
        EXPECT_EQ(length, 0u);
        EXPECT_EQ(ledger.requests_made(), 1u);
    }
}

}  // namespace
}  // namespace vesk::test
