// Comparison: two messages are equal if and only if they encode to the same bytes, and each difference has its path.
#include <gtest/gtest.h>
#include <vesk/client_service.h>

#include <cstdlib>
#include <utility>

#include "tests/support/damage.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/messages.hpp"
#include "tests/support/random_message.hpp"
#include "tests/toolkit/every_field.hpp"
#include "tests/toolkit/gathered.hpp"

namespace vesk::test {
namespace {

std::uint64_t rounds() {
    const char* text = std::getenv("VESK_TEST_ROUNDS");
    return text != nullptr ? std::strtoull(text, nullptr, 10) : 50;
}

// ---- Equal ---------------------------------------------------------------------------------------------------------

// Returns whether they are.
bool expect_equal_as_encoded(const TypeInfo& type, const void* left, const void* right) {
    const vesk_type* facts = facts_of(type.name);
    const bool same = encoded(type, left) == encoded(type, right);
    std::uint64_t differences = 7;
    EXPECT_EQ(vesk_diff(facts, left, right, nullptr, nullptr, &differences, nullptr), VESK_OK);
    EXPECT_EQ(differences == 0, same);
    for (const auto& [one, other] : {std::pair(left, right), std::pair(right, left)}) {
        EXPECT_EQ(vesk_equal(facts, one, other, nullptr), same);
    }
    return same;
}

TEST(equal, random_messages_of_every_type_are_equal_if_their_encodings_are) {
    std::size_t same = 0;
    std::size_t pairs = 0;
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t seed = 0; seed < rounds(); ++seed) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(seed));
            const RandomMessage left(*type, seed, Amount::wild);
            const RandomMessage other(*type, seed + 1, Amount::wild);
            // The same bytes from another structure, and almost the same ones.
            const AnyDecoded again(*type, encoded(*type, left.get()));
            std::mt19937_64 random(seed);
            AnyDecoded damaged(*type, damage(encoded(*type, left.get()), random));
            for (const void* right : {other.get(), again.message.get()}) {
                same += expect_equal_as_encoded(*type, left.get(), right);
                ++pairs;
            }
            if (damaged.code == VESK_OK) {
                same += expect_equal_as_encoded(*type, left.get(), damaged.message.get());
                ++pairs;
            }
            type->free(damaged.message.get(), Ledger::release, &damaged.ledger, 0);
            damaged.ledger.forget();  // what a repeated nested message lost
            if (HasFailure()) return;
        }
    }
    EXPECT_GT(same, pairs / 4);
    EXPECT_LT(same, pairs - pairs / 4);
}

TEST(equal, values_without_their_bit_do_not_count) {
    for (const TypeInfo* type : all_types()) {
        const AnyDecoded full(*type, full_encoding(*type));
        const AnyDecoded unmarked(*type, full_encoding(*type));
        for_every_field(facts_of(type->name), const_cast<void*>(unmarked.message.get()),
                        [](const FieldAt& at) { at.unmark(); });
        const Storage empty(*type, 0);
        EXPECT_EQ(vesk_equal(facts_of(type->name), unmarked.message.get(), empty.get(), nullptr), 1) << type->name;
        EXPECT_EQ(vesk_equal(facts_of(type->name), full.message.get(), empty.get(), nullptr), 0) << type->name;
    }
}

// ---- Diff ----------------------------------------------------------------------------------------------------------

std::string text_of(const vesk_value* value) {
    if (value == nullptr) return "none";
    EXPECT_EQ(value->size, sizeof *value);
    const std::string content(static_cast<const char*>(value->data),
                              value->kind < VESK_KIND_MESSAGE ? value->length : 0);
    switch (value->kind) {
        case VESK_KIND_STRING: return '"' + content + '"';
        case VESK_KIND_BYTES: return to_hex(Bytes(content.begin(), content.end()));
        case VESK_KIND_MESSAGE: return vesk_type_name(value->type) + std::string(" ") + std::to_string(value->length);
        default: return std::to_string(value->number);
    }
}

struct Differences {
    std::vector<std::string> seen;  // "f3: 1, 2"
    std::size_t stop_at = SIZE_MAX;

    static std::int32_t note(const char* path, const vesk_value* left, const vesk_value* right, void* context) {
        Differences& differences = *static_cast<Differences*>(context);
        differences.seen.push_back(path + (": " + text_of(left)) + ", " + text_of(right));
        return differences.seen.size() == differences.stop_at;
    }
};

using Lines = std::vector<std::string>;

Lines diff(const vesk_type* type, const void* left, const void* right) {
    Differences differences;
    std::uint64_t count = 7;
    EXPECT_EQ(vesk_diff(type, left, right, Differences::note, &differences, &count, nullptr), VESK_OK);
    EXPECT_EQ(count, differences.seen.size());
    return differences.seen;
}

TEST(diff, each_kind_of_value_is_told_with_its_path) {
    Bytes one = hex("0102");
    Bytes two = hex("0103FF");
    vesk_scratch_eeprom left{literal("north"), one.data(), 2, 300, nullptr, {0xF}};
    vesk_scratch_eeprom right{literal("nord"), two.data(), 3, 301, literal(""), {0xF}};
    const vesk_type* type = facts_of("scratch_eeprom");
    EXPECT_EQ(diff(type, &left, &right),
              (Lines{"f1: \"north\", \"nord\"", "f2: 01 02, 01 03 ff", "f3: 300, 301", "f4: none, \"\""}));
    EXPECT_EQ(diff(type, &left, &left), Lines{});
    VESK_UNMARK(&right, VESK_SCRATCH_EEPROM_F1);
    VESK_UNMARK(&left, VESK_SCRATCH_EEPROM_F3);
    right.f2 = one.data();
    right.f2_length = 2;
    right.f4 = nullptr;
    EXPECT_EQ(diff(type, &left, &right), (Lines{"f1: \"north\", none", "f3: none, 301"}));
}

TEST(diff, element_that_one_list_lacks_is_told_as_a_whole_and_others_by_their_fields) {
    vesk_idprom_data elements[3] = {};
    elements[1].fru_common.f1 = 5;
    VESK_MARK(&elements[1].fru_common, 0);
    vesk_idprom_data others[1] = {};
    others[0].f4 = literal("x");
    VESK_MARK(&others[0], VESK_IDPROM_DATA_F4);
    vesk_resp_inv_data left{};
    left.idprom_list = elements;
    left.idprom_list_count = 3;
    VESK_MARK(&left, VESK_RESP_INV_DATA_IDPROM_LIST);
    vesk_resp_inv_data right = left;
    right.idprom_list = others;
    right.idprom_list_count = 1;
    const vesk_type* type = facts_of("resp_inv_data");
    const std::string element = "idprom_data " + std::to_string(sizeof(vesk_idprom_data));
    EXPECT_EQ(diff(type, &left, &right),
              (Lines{"idprom_list[0].f4: none, \"x\"", "idprom_list[1]: " + element + ", none",
                     "idprom_list[2]: " + element + ", none"}));
    VESK_UNMARK(&left, VESK_RESP_INV_DATA_IDPROM_LIST);  // as if there were no element
    EXPECT_EQ(diff(type, &left, &right), Lines{"idprom_list[0]: none, " + element});
}

// A nested message is there with its bit or with content.
TEST(diff, nested_message_that_one_side_lacks_is_told_as_a_whole) {
    vesk_idprom_data nothing{};
    vesk_idprom_data marked{};
    VESK_MARK(&marked, VESK_IDPROM_DATA_EEPROM);
    vesk_idprom_data filled{};
    filled.eeprom.f2 = 4;
    VESK_MARK(&filled.eeprom, VESK_EEPROM_DATA_F2);
    const vesk_type* type = facts_of("idprom_data");
    const std::string eeprom = "eeprom_data " + std::to_string(sizeof(vesk_eeprom_data));
    EXPECT_EQ(diff(type, &nothing, &marked), Lines{"eeprom: none, " + eeprom});
    EXPECT_EQ(diff(type, &filled, &nothing), Lines{"eeprom: " + eeprom + ", none"});
    EXPECT_EQ(diff(type, &filled, &marked), Lines{"eeprom.f2: 4, none"});
}

TEST(diff, identifier_that_its_library_describes_is_told_by_its_fields) {
    vesk_eeprom_data left{};
    left.eid.f3 = 7;
    VESK_MARK(&left.eid, VESK_DRIN_EID_ST_F3);
    vesk_eeprom_data right = left;
    right.eid.f3 = 8;
    EXPECT_EQ(diff(facts_of("eeprom_data"), &left, &right), Lines{"eid.f3: 7, 8"});
    right.eid = {};
    EXPECT_EQ(diff(facts_of("eeprom_data"), &left, &right),
              Lines{"eid: drin_eid_st " + std::to_string(sizeof(vesk_drin_eid_st)) + ", none"});
}

// Changes what the field encodes, and back; false for what has nothing of its own to change.
bool change(const FieldAt& at, std::uint8_t by) {
    if (at.field->kind == VESK_KIND_STRING || at.field->kind == VESK_KIND_BYTES) {
        *at.get<std::uint8_t*>() ^= by;
    } else if (at.is_scalar()) {
        at.set(static_cast<std::uint8_t>(at.get<std::uint8_t>() ^ by));
    } else {
        return false;
    }
    return true;
}

TEST(diff, change_of_any_one_field_is_told_with_its_path_alone) {
    std::size_t changes = 0;
    for (const TypeInfo* type : all_types()) {
        const vesk_type* facts = facts_of(type->name);
        const AnyDecoded left(*type, full_encoding(*type));
        AnyDecoded right(*type, full_encoding(*type));
        for (const FieldAt& at : every_field(facts, right.message.get())) {
            if (!change(at, 1)) continue;
            const Lines seen = diff(facts, left.message.get(), right.message.get());
            change(at, 1);
            ASSERT_EQ(seen.size(), 1u) << type->name << ", " << at.path;
            ASSERT_EQ(seen[0].substr(0, seen[0].find(':')), at.path) << type->name;
            ++changes;
        }
        EXPECT_EQ(vesk_equal(facts, left.message.get(), right.message.get(), nullptr), 1);
    }
    EXPECT_GT(changes, 2000u);
}

TEST(diff, presence_bit_that_is_taken_away_is_told_with_its_path) {
    for (const TypeInfo* type : all_types()) {
        const vesk_type* facts = facts_of(type->name);
        const AnyDecoded left(*type, full_encoding(*type));
        AnyDecoded right(*type, full_encoding(*type));
        for (const FieldAt& at : every_field(facts, right.message.get())) {
            const Restored afterwards(at);
            at.unmark();
            Lines paths;
            for (const std::string& line : diff(facts, left.message.get(), right.message.get())) {
                paths.push_back(line.substr(0, line.find(':')));
                EXPECT_EQ(line.substr(line.size() - 6), ", none");
            }
            Lines expected{at.path};
            if (at.field->kind == VESK_KIND_LIST) expected = {at.path + "[0]", at.path + "[1]"};
            if (at.field->kind == VESK_KIND_MESSAGE) expected.clear();  // its content is encoded without its bit
            ASSERT_EQ(paths, expected) << type->name;
        }
    }
}

TEST(diff, stops_where_the_callback_asks_to) {
    const TypeInfo& type = *find_type("scratch_eeprom");
    const AnyDecoded left(type, full_encoding(type));
    const Storage right(type, 0);
    const vesk_type* facts = facts_of(type.name);
    for (std::size_t stop_at = 1; stop_at <= 4; ++stop_at) {
        Differences differences{{}, stop_at};
        std::uint64_t count = 0;
        EXPECT_EQ(vesk_diff(facts, left.message.get(), right.get(), Differences::note, &differences, &count, nullptr),
                  VESK_STOPPED);
        EXPECT_EQ(count, stop_at);
        EXPECT_EQ(differences.seen.size(), stop_at);
    }
}

}  // namespace
}  // namespace vesk::test
