// How much of its memory a draft takes.
#include "runtime/draft.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "client_service/client_service_fields.hpp"
#include "runtime/encode.hpp"
#include "tests/support/api.hpp"
#include "tests/support/shaped_message.hpp"

namespace vesk::test {
namespace {

// A type's draft, what it says it takes at most, and what the memory of its class has. What is tried with it is no
// template, so that it is compiled once and not for each type.
struct Drafted {
    const char* name;
    DraftMessage draft;
    DraftSize size;
    DraftSize room;
    std::size_t bytes_before;
    std::size_t bytes_after;
    std::size_t inserts;
};

template <class Message>
void add_drafted(std::vector<Drafted>& all) {
    if constexpr (is_draftable<Message> && !is_small<Message>) {
        constexpr DraftSize size = draft_size<Message>();
        using Book = Draftbook<draft_class(size)>;
        Book book;
        const std::uint8_t* const first = book.open().at;
        all.push_back({Api<Message>::name, draft<Message>, size, Book::size,
                       static_cast<std::size_t>(first - book.bytes),
                       static_cast<std::size_t>(book.bytes + sizeof book.bytes - first), std::size(book.inserts)});
    }
}

std::vector<Drafted> all_drafted() {
    std::vector<Drafted> all;
#define VESK_TEST_ADD_DRAFTED(Message) add_drafted<Message>(all);
    VESK_TEST_TYPES(VESK_TEST_ADD_DRAFTED)
#undef VESK_TEST_ADD_DRAFTED
    return all;
}

// Drafts a message in memory with room to spare, and looks at how much of it is touched.
void expect_to_stay_in_its_class(const Drafted& type, const void* message, std::uint32_t flags) {
    constexpr std::size_t spare = 4096;
    Bytes memory(spare + static_cast<std::size_t>(type.size.bytes), 0xEE);
    std::vector<Insert> inserts(1 + type.size.inserts + spare);
    std::uint8_t* const end = memory.data() + memory.size();
    inserts[0] = {nullptr, end, 0, nullptr, nullptr};
    const Draft done = type.draft(message, {end, inserts.data()}, flags);
    const auto first_touched =
        std::find_if(memory.begin(), memory.end(), [](std::uint8_t byte) { return byte != 0xEE; });
    const auto touched = static_cast<std::size_t>(memory.end() - first_touched);
    const auto bytes = static_cast<std::size_t>(end - done.at);
    const auto noted = static_cast<std::size_t>(done.last - inserts.data());

    EXPECT_LE(bytes, type.size.bytes) << type.name;
    EXPECT_LE(noted, type.size.inserts) << type.name;
    EXPECT_LE(touched, bytes + 8) << type.name;
    // An element's head is put before it, up to 8 bytes before that are spoiled; 16 are read from the last on.
    EXPECT_GE(type.bytes_before, type.room.bytes + 7 + 8);
    EXPECT_GE(type.bytes_after, 16u);
    EXPECT_GE(type.inserts, 1 + type.room.inserts);
}

// Data is not looked at before it is known to fit, so that the heads of bytes fields can be as long as any.
void claim_bytes(const TypeInfo& type, void* message, std::uint64_t length) {
    for (const FieldInfo& field : type.fields) {
        if (field.kind == Kind::bytes) store(message, field.second_offset, length);
        if (field.kind != Kind::message) continue;
        claim_bytes(*field.nested, static_cast<std::uint8_t*>(message) + field.offset, length);
    }
}

TEST(draft, of_every_type_at_its_largest_stays_in_its_class) {
    const std::vector<Drafted> all = all_drafted();
    EXPECT_FALSE(all.empty());
    for (const Drafted& drafted : all) {
        const TypeInfo& type = *find_type(std::string(drafted.name).substr(sizeof "vesk_" - 1));
        for (const std::size_t string :
             {std::size_t{longest_drafted_string}, std::size_t{longest_drafted_string} + 1}) {
            ShapedMessage message(type);
            message.fill({UINT64_MAX, string, 2});
            for (const std::uint64_t length : {std::uint64_t{1}, std::uint64_t{UINT32_MAX}, UINT64_MAX}) {
                claim_bytes(type, message.get(), length);
                for (const std::uint32_t flags : {0u, 1u}) expect_to_stay_in_its_class(drafted, message.get(), flags);
            }
        }
    }
}

}  // namespace
}  // namespace vesk::test
