// The segment list of an encoding: which stretches it names, in which order, and what it counts.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/messages.hpp"

namespace vesk::test {
namespace {

constexpr std::uint32_t by_reference = VESK_BYTES_BY_REFERENCE;

// The list that one encoding call made, in an array of `capacity` segments.
struct Listing {
    std::uint64_t length;
    std::uint32_t count;
    Bytes buffer;
    std::vector<vesk_segment> segments;  // as many as were recorded
    bool stayed_inside = true;           // no slot behind the capacity, or behind the count, was touched
};

const vesk_segment untouched_segment = {&untouched_segment, 0x5A5A};

bool is_untouched(const vesk_segment& segment) {
    return segment.data == untouched_segment.data && segment.length == untouched_segment.length;
}

template <class T>
Listing list_segments(const T& message, std::uint32_t capacity, std::uint32_t flags, std::size_t room = 256) {
    Listing listing{0, capacity, Bytes(room + 1, 0xEE), std::vector<vesk_segment>(capacity + 8, untouched_segment)};
    listing.length =
        Api<T>::encode(&message, listing.buffer.data(), room, listing.segments.data(), &listing.count, flags);
    const std::size_t recorded = listing.count < capacity ? listing.count : capacity;
    for (std::size_t i = recorded; i < listing.segments.size(); ++i) {
        listing.stayed_inside &= is_untouched(listing.segments[i]);
    }
    listing.segments.resize(recorded);
    return listing;
}

// A segment of the buffer, or of other data.
struct Expected {
    const void* data;
    std::uint64_t offset;  // from `data`, or from the buffer if that is null
    std::uint64_t length;
};
Expected run(std::uint64_t offset, std::uint64_t length) { return {nullptr, offset, length}; }
Expected data(const void* data, std::uint64_t length) { return {data, 0, length}; }

void expect_segments(const Listing& listing, const std::vector<Expected>& expected) {
    ASSERT_EQ(listing.segments.size(), expected.size());
    EXPECT_TRUE(listing.stayed_inside);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const void* base = expected[i].data != nullptr ? expected[i].data : listing.buffer.data();
        EXPECT_EQ(listing.segments[i].data, static_cast<const std::uint8_t*>(base) + expected[i].offset)
            << "segment " << i;
        EXPECT_EQ(listing.segments[i].length, expected[i].length) << "segment " << i;
    }
}

const Bytes five_bytes = hex("01 02 03 04 05");

// A string, bytes of length 5, a number: 0A 01 78 | 12 05 (data) | 18 07.
vesk_scratch_eeprom three_stretches() {
    vesk_scratch_eeprom scratch = {};
    scratch.f1 = literal("x");
    scratch.f2 = data_of(five_bytes);
    scratch.f2_length = 5;
    scratch.f3 = 7;
    scratch.present[0] = 0x07;
    return scratch;
}

// ---- One message ---------------------------------------------------------------------------------------------------

TEST(segments, message_without_content_needs_none) {
    const Listing listing = list_segments(vesk_scratch_eeprom{}, 4, by_reference);
    EXPECT_EQ(listing.length, 0u);
    EXPECT_EQ(listing.count, 0u);
    expect_segments(listing, {});
}

TEST(segments, message_without_bytes_is_one_run) {
    vesk_scratch_eeprom scratch = three_stretches();
    VESK_UNMARK(&scratch, VESK_SCRATCH_EEPROM_F2);
    const Listing listing = list_segments(scratch, 4, by_reference);
    EXPECT_EQ(listing.count, 1u);
    expect_segments(listing, {run(0, 5)});
}

TEST(segments, copied_bytes_are_part_of_the_run) {
    const Listing listing = list_segments(three_stretches(), 4, 0);
    EXPECT_EQ(listing.length, 12u);
    EXPECT_EQ(listing.count, 1u);
    expect_segments(listing, {run(0, 12)});
}

TEST(segments, bytes_by_reference_split_the_run) {
    const Listing listing = list_segments(three_stretches(), 4, by_reference);
    EXPECT_EQ(listing.length, 7u);
    EXPECT_EQ(listing.count, 3u);
    expect_segments(listing, {run(0, 5), data(five_bytes.data(), 5), run(5, 2)});
    EXPECT_EQ(to_hex(Bytes(listing.buffer.begin(), listing.buffer.begin() + 8)), "0a 01 78 12 05 18 07 ee");
}

TEST(segments, bytes_at_the_end_leave_no_empty_run) {
    vesk_scratch_eeprom scratch = three_stretches();
    VESK_UNMARK(&scratch, VESK_SCRATCH_EEPROM_F3);
    const Listing listing = list_segments(scratch, 4, by_reference);
    EXPECT_EQ(listing.count, 2u);
    expect_segments(listing, {run(0, 5), data(five_bytes.data(), 5)});
}

TEST(segments, bytes_at_the_beginning_follow_a_run_of_their_tag_and_length) {
    vesk_scratch_eeprom scratch = three_stretches();
    VESK_UNMARK(&scratch, VESK_SCRATCH_EEPROM_F1);
    const Listing listing = list_segments(scratch, 4, by_reference);
    EXPECT_EQ(listing.count, 3u);
    expect_segments(listing, {run(0, 2), data(five_bytes.data(), 5), run(2, 2)});
}

TEST(segments, bytes_of_length_0_by_reference_are_not_listed) {
    vesk_scratch_eeprom scratch = three_stretches();
    scratch.f2_length = 0;
    const Listing listing = list_segments(scratch, 4, by_reference);
    EXPECT_EQ(listing.length, 7u);
    EXPECT_EQ(listing.count, 1u);
    expect_segments(listing, {run(0, 7)});
}

TEST(segments, absent_bytes_by_reference_are_not_listed) {
    vesk_scratch_eeprom scratch = three_stretches();
    VESK_UNMARK(&scratch, VESK_SCRATCH_EEPROM_F2);
    expect_segments(list_segments(scratch, 4, by_reference), {run(0, 5)});
}

TEST(segments, length_of_referenced_bytes_keeps_all_64_bits) {
    vesk_scratch_eeprom scratch = three_stretches();
    scratch.f2_length = (std::uint64_t{9} << 32) + 5;
    const Listing listing = list_segments(scratch, 4, by_reference);
    EXPECT_EQ(listing.length, 7u);
    EXPECT_EQ(listing.buffer[4], 5);
    expect_segments(listing, {run(0, 5), data(five_bytes.data(), (std::uint64_t{9} << 32) + 5), run(5, 2)});
}

TEST(segments, length_that_would_wrap_is_listed_all_the_same) {
    vesk_scratch_eeprom scratch = three_stretches();
    scratch.f2_length = ~std::uint64_t{0};
    const Listing listing = list_segments(scratch, 4, by_reference);
    EXPECT_EQ(listing.length, 11u);  // the length takes five bytes
    expect_segments(listing, {run(0, 9), data(five_bytes.data(), ~std::uint64_t{0}), run(9, 2)});
}

TEST(segments, without_a_count_pointer_referenced_bytes_are_neither_copied_nor_listed) {
    const vesk_scratch_eeprom scratch = three_stretches();
    Bytes buffer(12, 0xEE);
    vesk_segment segments[3] = {untouched_segment, untouched_segment, untouched_segment};
    EXPECT_EQ(vesk_scratch_eeprom_encode_ext(&scratch, buffer.data(), buffer.size(), segments, nullptr, by_reference),
              7u);
    EXPECT_EQ(to_hex(buffer), "0a 01 78 12 05 18 07 ee ee ee ee ee");
    for (const vesk_segment& segment : segments) EXPECT_TRUE(is_untouched(segment));
}

// ---- Capacity ------------------------------------------------------------------------------------------------------

TEST(segment_capacity, one_of_three_needed_records_the_first_and_counts_all) {
    const Listing listing = list_segments(three_stretches(), 1, by_reference);
    EXPECT_EQ(listing.count, 3u);
    expect_segments(listing, {run(0, 5)});
}

TEST(segment_capacity, every_capacity_records_what_fits_and_counts_all) {
    const std::vector<Expected> all = {run(0, 5), data(five_bytes.data(), 5), run(5, 2)};
    for (std::uint32_t capacity = 0; capacity <= 5; ++capacity) {
        const Listing listing = list_segments(three_stretches(), capacity, by_reference);
        EXPECT_EQ(listing.length, 7u);
        EXPECT_EQ(listing.count, 3u) << "capacity " << capacity;
        expect_segments(listing, {all.begin(), all.begin() + std::min<std::uint32_t>(capacity, 3)});
    }
}

TEST(segment_capacity, none_needs_no_array) {
    const vesk_scratch_eeprom scratch = three_stretches();
    std::uint32_t count = 0;
    EXPECT_EQ(vesk_scratch_eeprom_encode_ext(&scratch, nullptr, 0, nullptr, &count, by_reference), 7u);
    EXPECT_EQ(count, 3u);
}

TEST(segments, null_buffer_gives_offsets) {
    const vesk_scratch_eeprom scratch = three_stretches();
    vesk_segment segments[3];
    std::uint32_t count = 3;
    EXPECT_EQ(vesk_scratch_eeprom_encode_ext(&scratch, nullptr, 0, segments, &count, by_reference), 7u);
    ASSERT_EQ(count, 3u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(segments[0].data), 0u);
    EXPECT_EQ(segments[0].length, 5u);
    EXPECT_EQ(segments[1].data, five_bytes.data());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(segments[2].data), 5u);
    EXPECT_EQ(segments[2].length, 2u);
}

TEST(segments, short_buffer_changes_neither_list_nor_count) {
    for (std::size_t room = 0; room <= 7; ++room) {
        const Listing listing = list_segments(three_stretches(), 4, by_reference, room);
        EXPECT_EQ(listing.length, 7u);
        EXPECT_EQ(listing.count, 3u);
        expect_segments(listing, {run(0, 5), data(five_bytes.data(), 5), run(5, 2)});
    }
}

// ---- Nested messages -----------------------------------------------------------------------------------------------

// 0A 02 (08 09) 12 01 78: an EID, then a string.
vesk_container_eid_nodeid_data with_eid() {
    vesk_container_eid_nodeid_data data = {};
    data.eid.f1 = 9;
    VESK_MARK(&data.eid, VESK_DRIN_EID_ST_F1);
    data.f2 = literal("x");
    VESK_MARK(&data, VESK_CONTAINER_EID_NODEID_DATA_F2);
    return data;
}

TEST(nested_segments, nested_run_comes_first_and_the_enclosing_run_covers_it_again) {
    const Listing listing = list_segments(with_eid(), 4, 0);
    EXPECT_EQ(listing.length, 7u);
    EXPECT_EQ(listing.count, 2u);
    expect_segments(listing, {run(2, 2), run(0, 7)});
}

TEST(nested_segments, empty_nested_message_has_no_run) {
    vesk_container_eid_nodeid_data data = with_eid();
    data.eid = {};
    VESK_MARK(&data, VESK_CONTAINER_EID_NODEID_DATA_EID);
    const Listing listing = list_segments(data, 4, 0);
    EXPECT_EQ(listing.count, 1u);
    expect_segments(listing, {run(0, 5)});
}

// The image of an EEPROM, its bytes between two numbers: 10 01 | A2 01 05 (data) | A8 01 02.
vesk_eeprom_data image() {
    vesk_eeprom_data eeprom = {};
    eeprom.f2 = 1;
    eeprom.f20 = data_of(five_bytes);
    eeprom.f20_length = 5;
    eeprom.f21 = 2;
    VESK_MARK(&eeprom, VESK_EEPROM_DATA_F2);
    VESK_MARK(&eeprom, VESK_EEPROM_DATA_F20);
    VESK_MARK(&eeprom, VESK_EEPROM_DATA_F21);
    return eeprom;
}

TEST(nested_segments, nested_message_in_front_of_bytes_stays_in_the_enclosing_run) {
    vesk_eeprom_data eeprom = image();
    VESK_UNMARK(&eeprom, VESK_EEPROM_DATA_F2);
    eeprom.eid.f1 = 9;
    VESK_MARK(&eeprom.eid, VESK_DRIN_EID_ST_F1);
    const Listing listing = list_segments(eeprom, 8, by_reference);
    EXPECT_EQ(listing.length, 10u);  // 0A 02 08 09 | A2 01 05 | A8 01 02
    EXPECT_EQ(listing.count, 4u);
    expect_segments(listing, {run(2, 2), run(0, 7), data(five_bytes.data(), 5), run(7, 3)});
}

// The image inside an ID-PROM: 1A 08 (image) 22 01 78.
vesk_idprom_data with_image() {
    vesk_idprom_data idprom = {};
    idprom.eeprom = image();
    idprom.f4 = literal("x");
    VESK_MARK(&idprom, VESK_IDPROM_DATA_F4);
    return idprom;
}

TEST(nested_segments, length_prefix_leaves_out_bytes_by_reference) {
    const Listing listing = list_segments(with_image(), 8, by_reference);
    EXPECT_EQ(listing.length, 13u);
    EXPECT_EQ(to_hex(Bytes(listing.buffer.begin(), listing.buffer.begin() + 13)),
              "1a 08 10 01 a2 01 05 a8 01 02 22 01 78");
    EXPECT_EQ(listing.count, 4u);
    expect_segments(listing, {run(2, 5), data(five_bytes.data(), 5), run(7, 3), run(0, 13)});
}

TEST(nested_segments, length_prefix_leaves_out_bytes_by_reference_without_a_list_too) {
    EXPECT_EQ(to_hex(encoded(with_image(), by_reference)), "1a 08 10 01 a2 01 05 a8 01 02 22 01 78");
    EXPECT_EQ(measured(with_image(), by_reference), 13u);
}

TEST(nested_segments, length_prefix_has_copied_bytes) {
    const Listing listing = list_segments(with_image(), 8, 0);
    EXPECT_EQ(listing.length, 18u);
    EXPECT_EQ(listing.buffer[1], 13);
    EXPECT_EQ(listing.count, 2u);
    expect_segments(listing, {run(2, 13), run(0, 18)});
}

TEST(nested_segments, null_buffer_counts_from_null_in_each_message) {
    const vesk_idprom_data idprom = with_image();
    vesk_segment segments[4];
    std::uint32_t count = 4;
    EXPECT_EQ(vesk_idprom_data_encode_ext(&idprom, nullptr, 0, segments, &count, by_reference), 13u);
    ASSERT_EQ(count, 4u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(segments[0].data), 0u);
    EXPECT_EQ(segments[1].data, five_bytes.data());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(segments[2].data), 5u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(segments[3].data), 0u);
    EXPECT_EQ(segments[3].length, 13u);
}

// Two ID-PROMs with an image each, in a list.
TEST(nested_segments, every_capacity_over_three_levels) {
    vesk_idprom_data idproms[2] = {with_image(), with_image()};
    VESK_UNMARK(&idproms[1], VESK_IDPROM_DATA_F4);
    vesk_resp_inv_data response = {};
    response.f1 = 3;
    response.idprom_list = idproms;
    response.idprom_list_count = 2;
    VESK_MARK(&response, VESK_RESP_INV_DATA_F1);
    VESK_MARK(&response, VESK_RESP_INV_DATA_IDPROM_LIST);
    // 08 03 | 3A 0D (1A 08 (image) 22 01 78) | 3A 0A (1A 08 (image))
    const std::vector<Expected> all = {run(6, 5),  data(five_bytes.data(), 5), run(11, 3), run(4, 13),
                                       run(21, 5), data(five_bytes.data(), 5), run(26, 3), run(19, 10),
                                       run(0, 29)};
    for (std::uint32_t capacity = 0; capacity <= 11; ++capacity) {
        const Listing listing = list_segments(response, capacity, by_reference);
        EXPECT_EQ(listing.length, 29u);
        EXPECT_EQ(listing.count, 9u) << "capacity " << capacity;
        expect_segments(listing, {all.begin(), all.begin() + std::min<std::uint32_t>(capacity, 9)});
    }
}

TEST(nested_segments, behind_the_end_of_a_short_buffer_are_offsets) {
    // Room for 1A only: the nested message gets no buffer at all, so its runs count from null.
    const Listing listing = list_segments(with_image(), 8, by_reference, 1);
    EXPECT_EQ(listing.length, 13u);
    ASSERT_EQ(listing.segments.size(), 4u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(listing.segments[0].data), 0u);
    EXPECT_EQ(listing.segments[0].length, 5u);
    EXPECT_EQ(listing.segments[1].data, five_bytes.data());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(listing.segments[2].data), 5u);
    EXPECT_EQ(listing.segments[3].data, listing.buffer.data());
    EXPECT_EQ(listing.segments[3].length, 13u);
}

}  // namespace
}  // namespace vesk::test
