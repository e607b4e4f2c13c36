// Identifiers whose library does not describe itself: what the toolkit asks of its encode function, and what it says of
// identifiers that it cannot look into. The library is the recorder of tests/imported_eid.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <vesk/client_service.h>

#include <algorithm>
#include <stdexcept>

#include "tests/imported_eid/identifier.hpp"
#include "tests/support/messages.hpp"
#include "tests/toolkit/gathered.hpp"

namespace vesk::test {
namespace {

// Of the library that the loader has put in the stand-in's place.
eid_record& record() {
    static const auto recorder = reinterpret_cast<eid_record* (*)()>(dlsym(RTLD_DEFAULT, "eid_recorder"));
    if (recorder == nullptr) throw std::runtime_error("this is not the library that records");
    return *recorder();
}

// ---- Encoding ------------------------------------------------------------------------------------------------------

std::vector<eid_call> calls(eid_function function) {
    std::vector<eid_call> found;
    std::copy_if(record().calls, record().calls + record().count, std::back_inserter(found),
                 [&](const eid_call& call) { return call.function == function; });
    return found;
}

// Three identifiers with a number between them; the last one is empty and marked.
struct Slot {
    Slot() {
        message.eid_a = identifier(5);
        message.f5 = 300;
        VESK_MARK(&message, VESK_LOGIC_SLOT_DATA_F5);
        message.eid_b = identifier(0);
        VESK_MARK(&message, VESK_LOGIC_SLOT_DATA_EID_B);
        message.event.eid = identifier(130);
    }
    vesk_logic_slot_data message{};
};

TEST(gather_undescribed, each_identifier_is_measured_and_then_written_once_at_its_place) {
    const Slot slot;
    const Bytes plain = encoded(slot.message);
    Bytes buffer(plain.size());
    vesk_segment segments[1];
    std::uint64_t length = buffer.size();
    std::uint32_t count = 1;
    record().count = 0;
    ASSERT_EQ(
        vesk_gather(facts_of("logic_slot_data"), &slot.message, buffer.data(), &length, segments, &count, nullptr),
        VESK_OK);
    EXPECT_EQ(to_hex(buffer), to_hex(plain));
    EXPECT_EQ(record().count, 5u);
    const std::vector<eid_call> measures = calls(EID_MEASURE);
    const std::vector<eid_call> writes = calls(EID_WRITE);
    ASSERT_EQ(measures.size(), 3u);
    ASSERT_EQ(writes.size(), 2u) << "an empty one needs no second call";
    for (const eid_call& call : measures) {
        EXPECT_TRUE(call.buffer == nullptr && call.length == 0 && call.segments == nullptr && call.flags == 0);
    }
    for (const eid_call& call : writes) {
        EXPECT_EQ(call.flags, 0u);
        EXPECT_EQ(call.segments, nullptr);
        EXPECT_EQ(call.capacity, 0u);
        const auto* eid = static_cast<const vesk_drin_eid_st*>(call.message);
        EXPECT_EQ(call.length, eid->f1);
        const auto* at = static_cast<const std::uint8_t*>(call.buffer);
        EXPECT_TRUE(buffer.data() <= at && at + call.length <= buffer.data() + buffer.size());
    }
}

TEST(gather_undescribed, identifier_is_not_written_where_there_is_no_room) {
    const Slot slot;
    Bytes buffer(20);
    std::uint64_t length = buffer.size();
    std::uint32_t count = 0;
    record().count = 0;
    EXPECT_EQ(vesk_gather(facts_of("logic_slot_data"), &slot.message, buffer.data(), &length, nullptr, &count, nullptr),
              VESK_TOO_SHORT);
    EXPECT_EQ(calls(EID_MEASURE).size(), 3u);
    EXPECT_TRUE(calls(EID_WRITE).empty());  // the last one has no room, nor has then what stands before it
    EXPECT_EQ(length, encoded(slot.message).size());
}

// It leaves bytes of the buffer as they were, and so does a plain encoding.
TEST(gather_undescribed, identifier_that_writes_less_than_it_measures_leaves_the_rest_as_it_was) {
    vesk_eeprom_data eeprom{};
    eeprom.eid = identifier(6, 2);
    eeprom.f2 = 1;
    VESK_MARK(&eeprom, VESK_EEPROM_DATA_F2);
    Bytes buffer(10, 0xEE);
    std::uint64_t length = buffer.size();
    vesk_segment segments[1];
    std::uint32_t count = 1;
    ASSERT_EQ(vesk_gather(facts_of("eeprom_data"), &eeprom, buffer.data(), &length, segments, &count, nullptr),
              VESK_OK);
    EXPECT_EQ(to_hex(buffer), to_hex(hex("0A 06 E1 E1 EE EE EE EE 10 01")));
}

// ---- Comparing -----------------------------------------------------------------------------------------------------

vesk_eeprom_data eeprom_with(const vesk_drin_eid_st& eid) {
    vesk_eeprom_data eeprom{};
    eeprom.eid = eid;
    return eeprom;
}

// 1, 0 or VESK_OPAQUE, as both functions say it.
std::int32_t compare(const vesk_drin_eid_st& left, const vesk_drin_eid_st& right, std::uint64_t scratch_size = 0) {
    std::vector<std::uint8_t> scratch(scratch_size);
    vesk_options options = vesk_default_options();
    options.scratch = scratch.data();
    options.scratch_size = scratch_size;
    const vesk_eeprom_data one = eeprom_with(left);
    const vesk_eeprom_data other = eeprom_with(right);
    const vesk_type* type = facts_of("eeprom_data");
    std::uint64_t differences = 7;
    const std::int32_t code = vesk_diff(type, &one, &other, nullptr, nullptr, &differences, &options);
    const std::int32_t equal = vesk_equal(type, &one, &other, &options);
    EXPECT_EQ(equal, code == VESK_OK ? static_cast<std::int32_t>(differences == 0) : code);
    return equal;
}

TEST(compare_undescribed, small_identifiers_are_compared_by_their_encodings) {
    EXPECT_EQ(compare(identifier(0), identifier(0)), 1);
    EXPECT_EQ(compare(identifier(5), identifier(5)), 1);
    EXPECT_EQ(compare(identifier(5, 3), identifier(5, 3)), 1);
    EXPECT_EQ(compare(identifier(5, 3), identifier(5, 4)), 0);
    EXPECT_EQ(compare(identifier(5), identifier(6)), 0);
    EXPECT_EQ(compare(identifier(0), identifier(6)), 0);
    EXPECT_EQ(compare(identifier(256), identifier(256)), 1);
    EXPECT_EQ(compare(identifier(256), identifier(256, 255)), 0);
}

TEST(compare_undescribed, larger_ones_are_opaque_without_scratch_memory_for_two) {
    EXPECT_EQ(compare(identifier(257), identifier(257)), VESK_OPAQUE);
    EXPECT_EQ(compare(identifier(257), identifier(257), std::uint64_t{2} * 257 - 1), VESK_OPAQUE);
    EXPECT_EQ(compare(identifier(257), identifier(257), std::uint64_t{2} * 257), 1);
    EXPECT_EQ(compare(identifier(257), identifier(257, 256), std::uint64_t{2} * 257), 0);
    EXPECT_EQ(compare(identifier(UINT32_MAX), identifier(UINT32_MAX)), VESK_OPAQUE);
    EXPECT_EQ(compare(identifier(257), identifier(258)), 0) << "their lengths say it";
}

TEST(compare_undescribed, difference_elsewhere_makes_opaque_messages_unequal) {
    const vesk_eeprom_data left = eeprom_with(identifier(257));
    vesk_eeprom_data right = left;
    VESK_MARK(&right, VESK_EEPROM_DATA_F2);
    const vesk_type* type = facts_of("eeprom_data");
    EXPECT_EQ(vesk_equal(type, &left, &right, nullptr), 0);
    std::uint64_t differences = 0;
    EXPECT_EQ(vesk_diff(type, &left, &right, nullptr, nullptr, &differences, nullptr), VESK_OPAQUE);
    EXPECT_EQ(differences, 1u);
}

TEST(compare_undescribed, difference_has_the_path_of_the_whole_identifier) {
    const vesk_eeprom_data left = eeprom_with(identifier(5));
    const vesk_eeprom_data right = eeprom_with(identifier(6));
    std::string seen;
    const auto note = [](const char* path, const vesk_value* one, const vesk_value* other,
                         void* context) -> std::int32_t {
        EXPECT_TRUE(one->kind == VESK_KIND_MESSAGE && other->kind == VESK_KIND_MESSAGE);
        EXPECT_EQ(one->length, sizeof(vesk_drin_eid_st));
        EXPECT_STREQ(vesk_type_name(one->type), "drin_eid_st");
        *static_cast<std::string*>(context) += path;
        return 0;
    };
    EXPECT_EQ(vesk_diff(facts_of("eeprom_data"), &left, &right, note, &seen, nullptr, nullptr), VESK_OK);
    EXPECT_EQ(seen, "eid");
}

// ---- Lint ----------------------------------------------------------------------------------------------------------

TEST(lint_undescribed, identifier_is_a_remark_and_not_looked_into) {
    vesk_eeprom_data eeprom = eeprom_with(identifier(5));
    eeprom.eid.element_list_count = 3;  // of a null list
    std::string seen;
    const auto note = [](std::int32_t finding, const char* path, void* context) -> std::int32_t {
        *static_cast<std::string*>(context) += std::to_string(finding) + " at " + path;
        return 0;
    };
    record().count = 0;
    EXPECT_EQ(vesk_lint(facts_of("eeprom_data"), &eeprom, note, &seen, nullptr), 0u);
    EXPECT_EQ(seen, std::to_string(VESK_LINT_OPAQUE) + " at eid");
    EXPECT_EQ(record().count, 0u);
}

}  // namespace
}  // namespace vesk::test
