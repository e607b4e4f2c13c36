// Lint: what was probably not meant in a message, each finding with its path.
#include <gtest/gtest.h>
#include <vesk/client_service.h>

#include <functional>

#include "tests/support/full_message.hpp"
#include "tests/support/messages.hpp"
#include "tests/support/random_message.hpp"
#include "tests/toolkit/every_field.hpp"
#include "tests/toolkit/gathered.hpp"

namespace vesk::test {
namespace {

struct Finding {
    std::int32_t finding;
    std::string path;
    bool operator==(const Finding&) const = default;
};
void PrintTo(const Finding& finding, std::ostream* out) { *out << finding.finding << " at " << finding.path; }

using Findings = std::vector<Finding>;

bool is_remark(std::int32_t finding) { return finding == VESK_LINT_NOT_UTF8 || finding == VESK_LINT_OPAQUE; }

Findings lint(const vesk_type* type, const void* message) {
    Findings findings;
    const auto note = [](std::int32_t finding, const char* path, void* context) -> std::int32_t {
        static_cast<Findings*>(context)->push_back({finding, path});
        return 0;
    };
    const std::uint64_t count = vesk_lint(type, message, note, &findings, nullptr);
    std::uint64_t serious = 0;
    for (const Finding& finding : findings) serious += !is_remark(finding.finding);
    EXPECT_EQ(count, serious);
    EXPECT_EQ(vesk_lint(type, message, nullptr, nullptr, nullptr), serious);
    return findings;
}

TEST(lint, full_and_empty_messages_have_no_finding) {
    for (const TypeInfo* type : all_types()) {
        for (const Contents contents : {Contents::some, Contents::empty}) {
            const AnyDecoded full(*type, full_encoding(*type, contents));
            EXPECT_EQ(lint(facts_of(type->name), full.message.get()), Findings{}) << type->name;
        }
        EXPECT_EQ(lint(facts_of(type->name), Storage(*type, 0).get()), Findings{}) << type->name;
    }
}

// ---- One thing wrong in a full message -----------------------------------------------------------------------------

using Damage = std::function<bool(const FieldAt& at)>;  // false if it does not apply to the field

// Does the damage to each field of a full message of each type, one after the other. How often it applied comes back.
std::size_t expect_finding_everywhere(const Damage& damage, std::int32_t finding) {
    std::size_t places = 0;
    for (const TypeInfo* type : all_types()) {
        AnyDecoded full(*type, full_encoding(*type));
        const vesk_type* facts = facts_of(type->name);
        for (const FieldAt& at : every_field(facts, full.message.get())) {
            const Restored afterwards(at);
            Findings expected;
            if (damage(at)) expected.push_back({finding, at.path});
            places += expected.size();
            EXPECT_EQ(lint(facts, full.message.get()), expected) << type->name;
            if (::testing::Test::HasFailure()) return places;
        }
    }
    return places;
}

TEST(lint, each_forgotten_presence_bit_is_found_with_its_path) {
    const std::size_t places = expect_finding_everywhere(
        [](const FieldAt& at) {
            at.unmark();
            return at.field->kind != VESK_KIND_MESSAGE;  // whose content is encoded without its bit
        },
        VESK_LINT_NOT_MARKED);
    EXPECT_GT(places, 2000u);
}

TEST(lint, each_null_string_with_its_bit_is_found) {
    const std::size_t places = expect_finding_everywhere(
        [](const FieldAt& at) {
            if (at.field->kind != VESK_KIND_STRING) return false;
            at.set<const char*>(nullptr);
            return true;
        },
        VESK_LINT_NULL_STRING);
    EXPECT_GT(places, 200u);
}

TEST(lint, each_list_without_an_element_with_its_bit_is_found) {
    const std::size_t places = expect_finding_everywhere(
        [](const FieldAt& at) {
            if (at.field->kind != VESK_KIND_LIST) return false;
            at.set_size<std::uint32_t>(0);
            return true;
        },
        VESK_LINT_EMPTY_LIST);
    EXPECT_GT(places, 50u);
}

TEST(lint, each_null_array_and_null_data_is_found_and_not_read_through) {
    const std::size_t places = expect_finding_everywhere(
        [](const FieldAt& at) {
            if (at.field->kind != VESK_KIND_LIST && at.field->kind != VESK_KIND_BYTES) return false;
            at.set<void*>(nullptr);
            return true;
        },
        VESK_LINT_NULL_DATA);
    EXPECT_GT(places, 50u);
}

TEST(lint, each_bytes_field_of_4_gib_is_found_once) {
    const std::size_t places = expect_finding_everywhere(
        [](const FieldAt& at) {
            if (at.field->kind != VESK_KIND_BYTES) return false;
            at.set_size(std::uint64_t{1} << 32);
            return true;
        },
        VESK_LINT_TOO_LONG);
    EXPECT_GT(places, 5u);
}

// ---- Single rules --------------------------------------------------------------------------------------------------

Findings lint(const vesk_scratch_eeprom& eeprom) { return lint(facts_of("scratch_eeprom"), &eeprom); }

TEST(lint, empty_string_without_its_bit_is_found_and_not_what_is_0) {
    vesk_scratch_eeprom eeprom{};
    eeprom.f1 = literal("");
    eeprom.f2 = unreadable<std::uint8_t>();  // data of no length
    EXPECT_EQ(lint(eeprom), (Findings{{VESK_LINT_NOT_MARKED, "f1"}}));
}

TEST(lint, null_data_without_its_bit_is_found_for_both) {
    vesk_scratch_eeprom eeprom{};
    eeprom.f2_length = 3;
    EXPECT_EQ(lint(eeprom), (Findings{{VESK_LINT_NOT_MARKED, "f2"}, {VESK_LINT_NULL_DATA, "f2"}}));
    vesk_resp_inv_data response{};
    response.idprom_list_count = 3;
    EXPECT_EQ(lint(facts_of("resp_inv_data"), &response),
              (Findings{{VESK_LINT_NOT_MARKED, "idprom_list"}, {VESK_LINT_NULL_DATA, "idprom_list"}}));
}

TEST(lint, elements_of_a_list_without_its_bit_are_not_looked_at) {
    vesk_resp_inv_data response{};
    response.idprom_list = unreadable<vesk_idprom_data>();
    response.idprom_list_count = 3;
    EXPECT_EQ(lint(facts_of("resp_inv_data"), &response), (Findings{{VESK_LINT_NOT_MARKED, "idprom_list"}}));
}

TEST(lint, string_that_is_not_utf_8_is_a_remark) {
    const struct {
        const char* characters;
        bool good;
    } rows[] = {{"", true},
                {"north", true},
                {"\xC2\x80", true},
                {"\xDF\xBF", true},
                {"\xE0\xA0\x80", true},
                {"\xED\x9F\xBF", true},
                {"\xEE\x80\x80", true},
                {"\xEF\xBF\xBF", true},
                {"\xF0\x90\x80\x80", true},
                {"\xF4\x8F\xBF\xBFz", true},
                {"\xE2\x82\xAC", true},
                // Continuation bytes alone, cut short at each byte, or followed by something else.
                {"\x80", false},
                {"\xBF", false},
                {"\xC2", false},
                {"\xC2z", false},
                {"\xE2\x82", false},
                {"\xE2", false},
                {"\xE2\x82z", false},
                {"\xF0\x90\x80", false},
                {"\xF0\x90", false},
                {"\xF0", false},
                {"\xF0\x90\x80z", false},
                {"\xC2\xC0", false},
                // Longer than need be, surrogates, and past the last character.
                {"\xC0\x80", false},
                {"\xC1\xBF", false},
                {"\xE0\x9F\xBF", false},
                {"\xF0\x8F\xBF\xBF", false},
                {"\xED\xA0\x80", false},
                {"\xED\xBF\xBF", false},
                {"\xF4\x90\x80\x80", false},
                {"\xF5\x80\x80\x80", false},
                {"\xFE", false},
                {"\xFF\xBF\xBF\xBF", false}};
    for (const auto& row : rows) {
        vesk_scratch_eeprom eeprom{};
        const std::string characters = row.characters;
        eeprom.f4 = const_cast<char*>(characters.c_str());
        VESK_MARK(&eeprom, VESK_SCRATCH_EEPROM_F4);
        const Findings expected = row.good ? Findings{} : Findings{{VESK_LINT_NOT_UTF8, "f4"}};
        EXPECT_EQ(lint(eeprom), expected) << to_hex(Bytes(characters.begin(), characters.end()));
    }
}

// The content of a nested message is found too long at the byte that makes it so, and once, not again around it.
TEST(lint, nested_content_of_4_gib_is_found_where_it_is) {
    vesk_idprom_data idprom{};
    idprom.eeprom.f20 = unreadable<std::uint8_t>();
    VESK_MARK(&idprom.eeprom, VESK_EEPROM_DATA_F20);
    idprom.eeprom.f20_length = UINT32_MAX - tag(20, length_type).size() - varint(UINT32_MAX).size();
    const vesk_type* type = facts_of("idprom_data");
    EXPECT_EQ(lint(type, &idprom), Findings{});
    VESK_MARK(&idprom.eeprom, VESK_EEPROM_DATA_F2);
    EXPECT_EQ(lint(type, &idprom), (Findings{{VESK_LINT_TOO_LONG, "eeprom"}}));

    vesk_resp_inv_data response{};
    response.idprom_list = &idprom;
    response.idprom_list_count = 1;
    VESK_MARK(&response, VESK_RESP_INV_DATA_IDPROM_LIST);
    EXPECT_EQ(lint(facts_of("resp_inv_data"), &response), (Findings{{VESK_LINT_TOO_LONG, "idprom_list[0].eeprom"}}));
    VESK_UNMARK(&idprom.eeprom, VESK_EEPROM_DATA_F2);
    EXPECT_EQ(lint(facts_of("resp_inv_data"), &response), (Findings{{VESK_LINT_TOO_LONG, "idprom_list[0]"}}));
}

TEST(lint, search_ends_where_the_callback_asks_to) {
    const TypeInfo& type = *find_type("resp_inv_data");
    AnyDecoded full(type, full_encoding(type));
    for_every_field(facts_of(type.name), full.message.get(), [](const FieldAt& at) {
        if (at.is_scalar()) at.unmark();
    });
    const std::size_t all = lint(facts_of(type.name), full.message.get()).size();
    ASSERT_GT(all, 100u);
    for (std::uint64_t wanted = 1; wanted < 100; ++wanted) {
        std::uint64_t left = wanted;
        const auto count_down = [](std::int32_t, const char*, void* context) -> std::int32_t {
            return --*static_cast<std::uint64_t*>(context) == 0;
        };
        ASSERT_EQ(vesk_lint(facts_of(type.name), full.message.get(), count_down, &left, nullptr), wanted);
        ASSERT_EQ(left, 0u);
    }
}

bool holds_a_value(const FieldAt& at) {
    switch (at.field->kind) {
        case VESK_KIND_UINT32: return at.get<std::uint32_t>() != 0;
        case VESK_KIND_UINT64: return at.get<std::uint64_t>() != 0;
        case VESK_KIND_BOOL: return at.get<std::uint8_t>() != 0;
        case VESK_KIND_STRING: return at.get<const char*>() != nullptr;
        case VESK_KIND_BYTES: return at.get_size<std::uint64_t>() != 0;
        default: return at.get_size<std::uint32_t>() != 0;
    }
}

TEST(lint, random_messages_are_found_if_a_value_stands_without_its_bit) {
    std::size_t clean = 0;
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t seed = 0; seed < 50; ++seed) {
            RandomMessage message(*type, seed, Amount::wild);
            bool forgotten = false;
            const vesk_type* facts = facts_of(type->name);
            for_every_field(facts, message.get(), [&](const FieldAt& at) {
                if (at.is_marked() || at.field->kind == VESK_KIND_MESSAGE) return;
                forgotten = forgotten || holds_a_value(at);
            });
            bool found = false;
            for (const Finding& finding : lint(facts, message.get())) found |= finding.finding == VESK_LINT_NOT_MARKED;
            // Of a list without its bit the list is found, whatever is in it.
            ASSERT_EQ(found, forgotten) << type->name << ", seed " << seed;
            clean += !found;
        }
    }
    EXPECT_GT(clean, 50u);
}

}  // namespace
}  // namespace vesk::test
