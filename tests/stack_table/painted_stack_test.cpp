// Every exported function on a stack that was painted before: what it wrote over stays within docs/stack.md.
#include <gtest/gtest.h>
#include <ucontext.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "tests/support/full_message.hpp"

namespace vesk::test {
namespace {

// ---- The table ----

struct Row {
    std::size_t encode, decode, duplicate, free;
};

std::map<std::string, Row> read_table() {
    std::map<std::string, Row> rows;
    std::ifstream file(VESK_TEST_SOURCE_DIR "/docs/stack.md");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("| `vesk_", 0) != 0) continue;
        for (char& character : line) {
            if (character == '|' || character == '`') character = ' ';
        }
        std::istringstream words(line);
        std::string name;
        Row row{};
        if (words >> name >> row.encode >> row.decode >> row.duplicate >> row.free) rows[name.substr(5)] = row;
    }
    return rows;
}

// ---- The stack ----

constexpr std::uint8_t paint = 0xA7;
alignas(64) std::uint8_t painted[64 << 10];
ucontext_t caller, callee;

// What is called there finds its arguments here, so that next to no stack but the function's own is used.
struct Arguments {
    const TypeInfo* type;
    void* message;
    void* copy;
    const Bytes* input;
    std::uint8_t* buffer;
    std::size_t room;
    vesk_segment* segments;
    std::uint32_t* count;
    std::uint32_t flags;
    void (*call)();
    std::uintptr_t frame;
} now;

void call_on_painted_stack() {
    now.frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    now.call();
}

// Bytes of stack below the caller's frame.
std::size_t measure_stack(void (*call)()) {
    std::fill(std::begin(painted), std::end(painted), paint);
    now.call = call;
    getcontext(&callee);
    callee.uc_stack.ss_sp = painted;
    callee.uc_stack.ss_size = sizeof painted;
    callee.uc_link = &caller;
    makecontext(&callee, call_on_painted_stack, 0);
    swapcontext(&caller, &callee);
    const std::uint8_t* deepest =
        std::find_if(std::begin(painted), std::end(painted), [](std::uint8_t byte) { return byte != paint; });
    return now.frame - reinterpret_cast<std::uintptr_t>(deepest);
}

// ---- What is called there ----

alignas(16) std::uint8_t blocks[1 << 20];
std::size_t blocks_used;

void* take_block(std::uint64_t size, void*) {
    void* block = blocks + blocks_used;
    blocks_used += (static_cast<std::size_t>(size) + 15) / 16 * 16;
    return block;
}

void give_back(void*, void*) {}

void decode() { now.type->decode(now.message, now.input->data(), now.input->size(), take_block, nullptr, 0); }
void encode() { now.type->encode(now.message, now.buffer, now.room, now.segments, now.count, now.flags); }
void duplicate() { now.type->duplicate(now.copy, now.message, take_block, nullptr); }
void free() { now.type->free(now.message, give_back, nullptr, 0); }

Row measure(const TypeInfo& type) {
    const Bytes input = full_encoding(type);
    Storage message(type), copy(type);
    Bytes buffer(input.size());
    std::vector<vesk_segment> segments(1000);
    std::uint32_t count = static_cast<std::uint32_t>(segments.size());
    const auto encode_with = [&](std::size_t room, vesk_segment* list, std::uint32_t* list_count, std::uint32_t flags) {
        now.room = room;
        now.segments = list;
        now.count = list_count;
        now.flags = flags;
        return measure_stack(encode);
    };
    now.type = &type;
    now.message = message.get();
    now.copy = copy.get();
    now.input = &input;
    now.buffer = buffer.data();
    blocks_used = 0;

    Row used{};
    used.decode = measure_stack(decode);
    used.encode =
        std::max({encode_with(input.size(), nullptr, nullptr, 0), encode_with(input.size() / 2, nullptr, nullptr, 0),
                  encode_with(input.size(), segments.data(), &count, VESK_BYTES_BY_REFERENCE)});
    used.duplicate = measure_stack(duplicate);
    used.free = measure_stack(free);
    now = {};
    return used;
}

TEST(stack_table, every_function_stays_within_it_on_a_painted_stack) {
    const std::map<std::string, Row> table = read_table();
    for (const TypeInfo* type : all_types()) measure(*type);  // the loader's share: it binds a name at its first call
    std::size_t deepest = 0, deepest_said = 0;
    for (const TypeInfo* type : all_types()) {
        ASSERT_EQ(table.count(type->name), 1u) << type->name;
        const Row& says = table.at(type->name);
        const Row used = measure(*type);
        EXPECT_LE(used.encode, says.encode) << type->name;
        EXPECT_LE(used.decode, says.decode) << type->name;
        EXPECT_LE(used.duplicate, says.duplicate) << type->name;
        EXPECT_LE(used.free, says.free) << type->name;
        deepest = std::max(deepest, used.encode);
        deepest_said = std::max(deepest_said, says.encode);
    }
    EXPECT_LT(deepest_said, 2 * deepest) << "the table says far too much";
}

}  // namespace
}  // namespace vesk::test
