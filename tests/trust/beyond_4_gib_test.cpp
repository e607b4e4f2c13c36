// Strings, bytes fields and lists of 4 GiB and more. On the wire a length has 32 bits, and so has a list's count;
// inside the encoder and in requests for memory nothing has.
#include <gtest/gtest.h>

#include <deque>

#include "tests/support/messages.hpp"
#include "tests/trust/vast_memory.hpp"

namespace vesk::test {
namespace {

constexpr std::uint64_t two_to_32 = std::uint64_t{1} << 32;
constexpr std::uint64_t length = two_to_32 + 5;
constexpr std::uint64_t proportional_limit = 100'000'000;

// Gives vast blocks. They are taken back at the end, whatever happened; a release of anything else fails the test.
class VastBlocks {
public:
    static void* alloc(std::uint64_t size, void* context) {
        VastBlocks& blocks = *static_cast<VastBlocks*>(context);
        blocks.requests.push_back(size);
        std::uint8_t* block = blocks.given.emplace_back(size).data();
        blocks.out.push_back(block);
        return block;
    }
    static void release(void* block, void* context) {
        VastBlocks& blocks = *static_cast<VastBlocks*>(context);
        EXPECT_EQ(std::erase(blocks.out, block), 1u) << "released a block that is not out";
    }

    std::vector<std::uint64_t> requests;
    std::deque<VastMemory> given;
    std::vector<void*> out;
};

// While the memory is still there.
void expect_to_take_little_memory() { EXPECT_LT(proportional_memory(), proportional_limit); }

// A string of `length` characters.
class VastText {
public:
    VastText() : memory_(length + 1) {
        memory_.fill({'a'});
        memory_.write_at_end({'z', 0});
    }
    char* get() { return reinterpret_cast<char*>(memory_.data()); }

private:
    VastMemory memory_;
};

class VastData {
public:
    VastData() : memory_(length) {
        memory_.fill({'a'});
        memory_.write_at_end({'z'});
    }
    std::uint8_t* get() { return memory_.data(); }

private:
    VastMemory memory_;
};

// Either comes as this, then the number 7 in field 3.
const Bytes characters_at_start = hex("61 61 61");
const Bytes characters_at_end = hex("61 61 7A");
const Bytes number_7 = number_field(3, 7);

vesk_scratch_eeprom eeprom_with_number() {
    vesk_scratch_eeprom eeprom{};
    eeprom.f3 = 7;
    VESK_MARK(&eeprom, VESK_SCRATCH_EEPROM_F3);
    return eeprom;
}

vesk_scratch_eeprom eeprom_with_string(VastText& text) {
    vesk_scratch_eeprom eeprom = eeprom_with_number();
    eeprom.f1 = text.get();
    VESK_MARK(&eeprom, VESK_SCRATCH_EEPROM_F1);
    return eeprom;
}

vesk_scratch_eeprom eeprom_with_bytes(VastData& data) {
    vesk_scratch_eeprom eeprom = eeprom_with_number();
    eeprom.f2 = data.get();
    eeprom.f2_length = length;
    VESK_MARK(&eeprom, VESK_SCRATCH_EEPROM_F2);
    return eeprom;
}

// ---- Encode --------------------------------------------------------------------------------------------------------

// A string or bytes field of `length` bytes stands behind its tag and the low 32 bits of its length; the number behind
// it is where all of it ends.
void expect_to_encode(const vesk_scratch_eeprom& eeprom, const Bytes& tag) {
    const Bytes head = message(tag, varint(length % two_to_32));
    const std::uint64_t whole = head.size() + length + number_7.size();
    EXPECT_EQ(measured(eeprom), whole);

    VastMemory buffer(whole);
    buffer.fill({0xEE});
    EXPECT_EQ(vesk_scratch_eeprom_encode_ext(&eeprom, buffer.data(), whole, nullptr, nullptr, 0), whole);
    EXPECT_EQ(to_hex(buffer.start(head.size() + 3)), to_hex(message(head, characters_at_start)));
    EXPECT_TRUE(buffer.holds_only('a', head.size() + 1));
    EXPECT_EQ(to_hex(buffer.end(5)), to_hex(message(characters_at_end, number_7)));
}

// The content does not fit, so nothing of it is stored, and the number behind it lies outside.
void expect_to_encode_whole_or_not(const vesk_scratch_eeprom& eeprom, const Bytes& tag) {
    const Bytes head = message(tag, varint(length % two_to_32));
    VastMemory buffer(head.size() + length - 1);
    buffer.fill({0xEE});
    EXPECT_EQ(vesk_scratch_eeprom_encode_ext(&eeprom, buffer.data(), buffer.size(), nullptr, nullptr, 0),
              head.size() + length + number_7.size());
    EXPECT_EQ(to_hex(buffer.start(head.size())), to_hex(head));
    EXPECT_TRUE(buffer.holds_only(0xEE, head.size()));
}

TEST(beyond_4_gib, string_is_encoded_whole_behind_the_low_32_bits_of_its_length) {
    VastText text;
    const vesk_scratch_eeprom eeprom = eeprom_with_string(text);
    expect_to_encode(eeprom, tag(1, length_type));
    expect_to_encode_whole_or_not(eeprom, tag(1, length_type));
    expect_to_take_little_memory();
}

TEST(beyond_4_gib, bytes_field_is_encoded_whole_behind_the_low_32_bits_of_its_length) {
    VastData data;
    const vesk_scratch_eeprom eeprom = eeprom_with_bytes(data);
    expect_to_encode(eeprom, tag(2, length_type));
    expect_to_encode_whole_or_not(eeprom, tag(2, length_type));
    expect_to_take_little_memory();
}

TEST(beyond_4_gib, bytes_field_by_reference_is_listed_with_its_whole_length) {
    VastData data;
    const vesk_scratch_eeprom eeprom = eeprom_with_bytes(data);
    const Bytes head = message(tag(2, length_type), varint(length % two_to_32));
    const std::uint64_t whole = head.size() + number_7.size();
    Bytes buffer(whole);
    vesk_segment segments[3];
    std::uint32_t count = 3;
    EXPECT_EQ(vesk_scratch_eeprom_encode_ext(&eeprom, buffer.data(), whole, segments, &count, VESK_BYTES_BY_REFERENCE),
              whole);
    EXPECT_EQ(to_hex(buffer), to_hex(message(head, number_7)));
    ASSERT_EQ(count, 3u);
    EXPECT_EQ(segments[1].data, data.get());
    EXPECT_EQ(segments[1].length, length);
}

TEST(beyond_4_gib, nested_message_advances_by_all_that_is_in_it) {
    VastText text;
    vesk_req_inv_data request{};
    request.policy.f1 = text.get();
    request.policy.f2 = text.get();
    VESK_MARK(&request.policy, VESK_INV_POLICY_F1);
    VESK_MARK(&request.policy, VESK_INV_POLICY_F2);
    const Bytes head = message(tag(1, length_type), varint(length % two_to_32));
    const std::uint64_t policy = 2 * (head.size() + length);
    const Bytes policy_head = message(tag(6, length_type), varint(policy % two_to_32));
    EXPECT_EQ(measured(request), policy_head.size() + policy);

    Bytes buffer(policy_head.size() + head.size() + 8, 0xEE);
    EXPECT_EQ(vesk_req_inv_data_encode_ext(&request, buffer.data(), buffer.size(), nullptr, nullptr, 0),
              policy_head.size() + policy);
    EXPECT_EQ(to_hex(buffer), to_hex(message(policy_head, head, Bytes(8, 0xEE))));
    expect_to_take_little_memory();
}

// ---- Decode --------------------------------------------------------------------------------------------------------

constexpr std::uint64_t longest = two_to_32 - 1;  // that a length on the wire can say

// A field of the longest length, then the number 7.
class VastInput {
public:
    explicit VastInput(const Bytes& tag) : head_(message(tag, varint(longest))), memory_(head_.size() + longest + 2) {
        memory_.fill({'a'});
        memory_.write_at_start(head_);
        memory_.write_at_end(message(characters_at_end, number_7));
    }
    std::int32_t decode_into(vesk_scratch_eeprom* eeprom, VastBlocks* blocks, std::uint32_t flags) const {
        return vesk_scratch_eeprom_decode_ext(eeprom, memory_.data(), memory_.size(), VastBlocks::alloc, blocks, flags);
    }
    const std::uint8_t* content() const { return memory_.data() + head_.size(); }

private:
    Bytes head_;
    VastMemory memory_;
};

TEST(beyond_4_gib, string_of_the_longest_length_gets_room_for_its_nul) {
    const VastInput input(tag(1, length_type));
    VastBlocks blocks;
    vesk_scratch_eeprom eeprom;
    ASSERT_EQ(input.decode_into(&eeprom, &blocks, 0), VESK_OK);
    ASSERT_EQ(blocks.requests, std::vector<std::uint64_t>{two_to_32});
    const VastMemory& block = blocks.given.front();
    EXPECT_EQ(eeprom.f1, reinterpret_cast<char*>(block.data()));
    EXPECT_TRUE(block.holds_only('a', 2));
    EXPECT_EQ(to_hex(block.end(4)), to_hex(message(characters_at_end, hex("00"))));
    EXPECT_EQ(eeprom.f3, 7u);
    expect_to_take_little_memory();
    vesk_scratch_eeprom_free_ext(&eeprom, VastBlocks::release, &blocks, 0);
    EXPECT_TRUE(blocks.out.empty());
}

TEST(beyond_4_gib, bytes_field_of_the_longest_length_is_copied_or_pointed_to) {
    const VastInput input(tag(2, length_type));
    VastBlocks blocks;
    vesk_scratch_eeprom eeprom;
    ASSERT_EQ(input.decode_into(&eeprom, &blocks, 0), VESK_OK);
    ASSERT_EQ(blocks.requests, std::vector<std::uint64_t>{longest});
    const VastMemory& block = blocks.given.front();
    EXPECT_EQ(eeprom.f2, block.data());
    EXPECT_EQ(eeprom.f2_length, longest);
    EXPECT_TRUE(block.holds_only('a', 1));
    EXPECT_EQ(to_hex(block.end(3)), to_hex(characters_at_end));
    EXPECT_EQ(eeprom.f3, 7u);
    vesk_scratch_eeprom_free_ext(&eeprom, VastBlocks::release, &blocks, 0);
    EXPECT_TRUE(blocks.out.empty());

    ASSERT_EQ(input.decode_into(&eeprom, &blocks, VESK_BYTES_BY_REFERENCE), VESK_OK);
    EXPECT_EQ(blocks.requests.size(), 1u);
    EXPECT_EQ(eeprom.f2, input.content());
    EXPECT_EQ(eeprom.f2_length, longest);
    EXPECT_EQ(eeprom.f3, 7u);
    expect_to_take_little_memory();
}

TEST(beyond_4_gib, unknown_fields_are_skipped_and_the_field_behind_them_is_read) {
    const Bytes head = message(tag(30, length_type), varint(longest));
    VastMemory input(2 * (head.size() + longest) + number_7.size());
    input.write_at_start(head);
    // The second field's head stands in the repeated piece, of which nothing else is read.
    std::copy(head.begin(), head.end(), input.data() + head.size() + longest);
    input.write_at_end(number_7);
    vesk_scratch_eeprom eeprom;
    EXPECT_EQ(vesk_scratch_eeprom_decode_ext(&eeprom, input.data(), input.size(), nullptr, nullptr, 0), VESK_OK);
    EXPECT_EQ(eeprom.f3, 7u);
}

// ---- Duplicate -----------------------------------------------------------------------------------------------------

TEST(beyond_4_gib, string_is_duplicated_whole) {
    VastText text;
    const vesk_scratch_eeprom eeprom = eeprom_with_string(text);
    VastBlocks blocks;
    vesk_scratch_eeprom copy;
    ASSERT_EQ(vesk_scratch_eeprom_duplicate(&copy, &eeprom, VastBlocks::alloc, &blocks), VESK_OK);
    ASSERT_EQ(blocks.requests, std::vector<std::uint64_t>{length + 1});
    EXPECT_TRUE(blocks.given.front().holds_only('a', 2));
    EXPECT_EQ(to_hex(blocks.given.front().end(4)), to_hex(message(characters_at_end, hex("00"))));
    expect_to_take_little_memory();
}

TEST(beyond_4_gib, bytes_field_is_duplicated_whole) {
    VastData data;
    const vesk_scratch_eeprom eeprom = eeprom_with_bytes(data);
    VastBlocks blocks;
    vesk_scratch_eeprom copy;
    ASSERT_EQ(vesk_scratch_eeprom_duplicate(&copy, &eeprom, VastBlocks::alloc, &blocks), VESK_OK);
    ASSERT_EQ(blocks.requests, std::vector<std::uint64_t>{length});
    EXPECT_EQ(copy.f2_length, length);
    EXPECT_TRUE(blocks.given.front().holds_only('a', 1));
    EXPECT_EQ(to_hex(blocks.given.front().end(3)), to_hex(characters_at_end));
    expect_to_take_little_memory();
}

// ---- Lists ---------------------------------------------------------------------------------------------------------

TEST(beyond_4_gib, list_whose_array_is_larger_is_read_copied_and_written) {
    constexpr std::uint32_t count = two_to_32 / sizeof(vesk_idprom_data) + 2;
    constexpr std::uint64_t array_size = std::uint64_t{count} * sizeof(vesk_idprom_data);
    static_assert(array_size > two_to_32);
    Bytes empty_elements(2 * (count - std::size_t{1}), 0);
    for (std::size_t i = 0; i < empty_elements.size(); i += 2) empty_elements[i] = tag(7, length_type).front();
    const Bytes last_element = message_field(7, message_field(1, number_field(4, 7)));  // f4 of its entity_common
    const Bytes input = message(empty_elements, last_element);

    VastBlocks blocks;
    vesk_resp_inv_data response, copy{};
    ASSERT_EQ(vesk_resp_inv_data_decode_ext(&response, input.data(), input.size(), VastBlocks::alloc, &blocks, 0),
              VESK_OK);
    ASSERT_EQ(response.idprom_list_count, count);
    EXPECT_EQ(response.idprom_list[0].entity_common.f4, 0u);
    EXPECT_EQ(response.idprom_list[count - 1].entity_common.f4, 7u);

    ASSERT_EQ(vesk_resp_inv_data_duplicate(&copy, &response, VastBlocks::alloc, &blocks), VESK_OK);
    EXPECT_EQ(blocks.requests, std::vector<std::uint64_t>(2, array_size));
    EXPECT_EQ(copy.idprom_list[count - 1].entity_common.f4, 7u);
    Bytes output(input.size());
    EXPECT_EQ(vesk_resp_inv_data_encode_ext(&copy, output.data(), output.size(), nullptr, nullptr, 0), input.size());
    EXPECT_TRUE(output == input);
    expect_to_take_little_memory();
    for (vesk_resp_inv_data* message : {&response, &copy}) {
        vesk_resp_inv_data_free_ext(message, VastBlocks::release, &blocks, 0);
    }
    EXPECT_TRUE(blocks.out.empty());
}

// More empty elements than a count can say, then the number 7 in field 3. The library counts 2^32 less.
struct WrappingList {
    explicit WrappingList(std::uint32_t count) : input((two_to_32 + count) * element.size() + number_7.size()) {
        input.fill(element);
        input.write_at_end(number_7);
        std::memset(&response, 0x5A, sizeof response);
        code = vesk_resp_clients_hdl_data_decode_ext(&response, input.data(), input.size(), Ledger::alloc, &ledger, 0);
    }
    WrappingList(const WrappingList&) = delete;
    WrappingList& operator=(const WrappingList&) = delete;
    ~WrappingList() { vesk_resp_clients_hdl_data_free_ext(&response, Ledger::release, &ledger, 0); }

    inline static const Bytes element = message_field(1, {});

    VastMemory input;
    Ledger ledger;
    vesk_resp_clients_hdl_data response;
    std::int32_t code;
};

// Three elements are allocated, cleared and read. Behind them stands the fourth, and a list may not begin twice.
TEST(beyond_4_gib, list_count_that_wraps_to_3_reads_3_and_refuses_the_fourth) {
    const WrappingList list(3);
    EXPECT_EQ(list.code, VESK_MALFORMED);
    EXPECT_EQ(list.ledger.history(), std::vector<Request>{asked_for(3 * sizeof(vesk_clients_hdl_info))});
    ASSERT_EQ(list.response.clients_hdl_list_count, 3u);
    EXPECT_TRUE(VESK_HAS(&list.response, VESK_RESP_CLIENTS_HDL_DATA_CLIENTS_HDL_LIST));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(list.response.clients_hdl_list[i].f1, 0u);
        EXPECT_TRUE(has_no_presence(list.response.clients_hdl_list[i]));
    }
    expect_to_take_little_memory();
}

// No element is read, so what comes next is the first one's length, and it is taken for a tag: number 0, which no type
// has, with the next tag as its value; and so on to the last length, which takes the tag of the number 7 with it. The 7
// is then a tag with a wire type that cannot be skipped.
TEST(beyond_4_gib, list_count_that_wraps_to_0_reads_none_and_takes_lengths_for_tags) {
    const WrappingList list(0);
    EXPECT_EQ(list.code, VESK_UNKNOWN_WIRE_TYPE);
    EXPECT_EQ(list.ledger.history(), std::vector<Request>{asked_for(0)});
    EXPECT_EQ(list.response.clients_hdl_list_count, 0u);
    EXPECT_TRUE(VESK_HAS(&list.response, VESK_RESP_CLIENTS_HDL_DATA_CLIENTS_HDL_LIST));
    expect_to_take_little_memory();
}

}  // namespace
}  // namespace vesk::test
