// Strings and bytes fields of 4 GiB, which the wire cannot carry, and the longest that it can.
#include <gtest/gtest.h>
#include <vesk/client_service.h>

#include "tests/support/messages.hpp"
#include "tests/toolkit/gathered.hpp"
#include "tests/trust/vast_memory.hpp"

namespace vesk::test {
namespace {

constexpr std::uint64_t two_to_32 = std::uint64_t{1} << 32;

// A string of so many characters.
struct VastText {
    explicit VastText(std::uint64_t length) : memory(length + 1) {
        memory.fill({'a'});
        memory.write_at_end({'z', 0});
        eeprom.f1 = reinterpret_cast<char*>(memory.data());
        eeprom.f3 = 7;
        VESK_MARK(&eeprom, VESK_SCRATCH_EEPROM_F1);
        VESK_MARK(&eeprom, VESK_SCRATCH_EEPROM_F3);
    }
    VastMemory memory;
    vesk_scratch_eeprom eeprom{};
};

struct Block {
    std::uint64_t size;
    std::uint8_t* memory;
    std::uint64_t requests = 0;

    static void* alloc(std::uint64_t size, void* context) {
        Block& block = *static_cast<Block*>(context);
        ++block.requests;
        return size == block.size ? block.memory : nullptr;
    }
};

TEST(vast_contents, string_of_4_gib_is_too_long_to_gather_and_to_encode_and_is_found) {
    const VastText text(two_to_32);
    const vesk_type* type = facts_of("scratch_eeprom");
    EXPECT_EQ(gather(type, &text.eeprom).code, VESK_TOO_LONG);
    Block block{0, nullptr};
    void* bytes;
    std::uint64_t length;
    EXPECT_EQ(vesk_encode(type, &text.eeprom, Block::alloc, &block, &bytes, &length), VESK_TOO_LONG);
    EXPECT_EQ(block.requests, 0u);
    std::string seen;
    const auto note = [](std::int32_t finding, const char* path, void* context) -> std::int32_t {
        *static_cast<std::string*>(context) += std::to_string(finding) + " at " + path;
        return 0;
    };
    EXPECT_EQ(vesk_lint(type, &text.eeprom, note, &seen, nullptr), 1u);
    EXPECT_EQ(seen, std::to_string(VESK_LINT_TOO_LONG) + " at f1");
}

TEST(vast_contents, longest_string_is_encoded_whole) {
    const VastText text(two_to_32 - 1);
    const vesk_type* type = facts_of("scratch_eeprom");
    EXPECT_EQ(vesk_lint(type, &text.eeprom, nullptr, nullptr, nullptr), 0u);
    const Bytes head = message(tag(1, length_type), varint(two_to_32 - 1));
    VastMemory memory(head.size() + two_to_32 - 1 + 2);
    memory.fill({0xEE});
    Block block{memory.size(), memory.data()};
    void* bytes = nullptr;
    std::uint64_t length = 0;
    ASSERT_EQ(vesk_encode(type, &text.eeprom, Block::alloc, &block, &bytes, &length), VESK_OK);
    EXPECT_EQ(length, memory.size());
    EXPECT_EQ(bytes, memory.data());
    EXPECT_EQ(to_hex(memory.start(head.size() + 1)), to_hex(message(head, hex("61"))));
    EXPECT_TRUE(memory.holds_only('a', head.size() + 1));
    EXPECT_EQ(to_hex(memory.end(4)), to_hex(message(hex("61 7A"), number_field(3, 7))));
    EXPECT_LT(proportional_memory(), 100'000'000u);
}

}  // namespace
}  // namespace vesk::test
