// The rules that hold for every message type, tried on messages filled at random. A failure names the type and the
// seed; RandomMessage(type, seed, amount) gives the message again.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

// Calls `check` with `rounds` messages of every type.
void for_every_type(std::uint64_t rounds, Amount amount,
                    const std::function<void(const TypeInfo& type, const void* message)>& check) {
    std::uint64_t seed = 1;
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t round = 0; round < rounds; ++round, ++seed) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(seed));
            const RandomMessage message(*type, seed, amount);
            check(*type, message.get());
            if (::testing::Test::HasFailure()) return;
        }
    }
}

// ---- Encode and decode ---------------------------------------------------------------------------------------------

void expect_same_bytes_after_decode(const TypeInfo& type, const void* message, std::uint32_t flags) {
    const Bytes first = encoded(type, message);
    const AnyDecoded decoded(type, first, flags);
    ASSERT_EQ(decoded.code, VESK_OK) << to_hex(first);
    EXPECT_EQ(to_hex(encoded(type, decoded.message.get())), to_hex(first));
}

TEST(every_type, encode_decode_encode_gives_the_same_bytes) {
    for (const Amount amount : {Amount::some, Amount::much}) {
        for_every_type(20, amount, [](const TypeInfo& type, const void* message) {
            expect_same_bytes_after_decode(type, message, 0);
        });
    }
}

TEST(every_type, bytes_decoded_by_reference_encode_to_the_same_bytes) {
    for_every_type(10, Amount::much, [](const TypeInfo& type, const void* message) {
        expect_same_bytes_after_decode(type, message, VESK_BYTES_BY_REFERENCE);
    });
}

TEST(every_type, measuring_gives_the_length_of_the_encoding) {
    for_every_type(4, Amount::much, [](const TypeInfo& type, const void* message) {
        for (const std::uint32_t flags : {0u, 1u}) {
            const std::uint64_t length = type.encode(message, nullptr, 0, nullptr, nullptr, flags);
            Bytes buffer(length + 100);
            EXPECT_EQ(type.encode(message, buffer.data(), buffer.size(), nullptr, nullptr, flags), length);

            std::uint32_t counted = 0;
            EXPECT_EQ(type.encode(message, nullptr, 0, nullptr, &counted, flags), length);
            std::vector<vesk_segment> segments(counted);
            std::uint32_t listed = counted;
            EXPECT_EQ(type.encode(message, buffer.data(), buffer.size(), segments.data(), &listed, flags), length);
            EXPECT_EQ(listed, counted);
        }
    });
}

TEST(every_type, bytes_behind_the_encoding_stay_as_they_were) {
    for_every_type(3, Amount::some, [](const TypeInfo& type, const void* message) {
        const Bytes expected = encoded(type, message);
        for (const std::size_t more : {1u, 7u, 300u}) {
            Bytes buffer(expected.size() + more, 0xEE);
            ASSERT_EQ(type.encode(message, buffer.data(), buffer.size(), nullptr, nullptr, 0), expected.size());
            ASSERT_EQ(to_hex(Bytes(buffer.begin() + static_cast<std::ptrdiff_t>(expected.size()), buffer.end())),
                      to_hex(Bytes(more, 0xEE)));
        }
    });
}

TEST(every_type, a_length_that_no_buffer_can_have_is_a_buffer_without_end) {
    for_every_type(1, Amount::some, [](const TypeInfo& type, const void* message) {
        const Bytes expected = encoded(type, message);
        for (const std::uint64_t length : {std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
            Bytes buffer(expected.size() + 1, 0xEE);
            ASSERT_EQ(type.encode(message, buffer.data(), length, nullptr, nullptr, 0), expected.size());
            ASSERT_EQ(to_hex(buffer), to_hex(vesk::test::message(expected, hex("EE"))));
        }
    });
}

TEST(every_type, cleared_message_encodes_to_nothing) {
    for (const TypeInfo* type : all_types()) {
        const Storage message(*type, 0);
        std::uint32_t segments = 0;
        EXPECT_EQ(type->encode(message.get(), nullptr, 0, nullptr, nullptr, 0), 0u) << type->name;
        EXPECT_EQ(type->encode(message.get(), nullptr, 0, nullptr, &segments, 0), 0u) << type->name;
        EXPECT_EQ(segments, 0u) << type->name;
    }
}

TEST(every_type, empty_input_decodes_to_a_cleared_message) {
    for (const TypeInfo* type : all_types()) {
        Storage message(*type);
        EXPECT_EQ(type->decode(message.get(), nullptr, 0, nullptr, nullptr, 0), VESK_OK) << type->name;
        EXPECT_TRUE(is_clear(*type, message.get())) << type->name;
    }
}

// A cut between two fields, or between two elements of a list, leaves a shorter message. Any other cut falls into a
// varint or in front of the end of some length, and that is VESK_MALFORMED; no other code can come of it, since every
// tag that is still there is a known one with its own wire type.
TEST(every_type, cut_input_is_a_shorter_message_or_malformed) {
    for_every_type(2, Amount::some, [](const TypeInfo& type, const void* message) {
        const Bytes whole = encoded(type, message);
        for (std::size_t length = 0; length < whole.size(); ++length) {
            const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
            const AnyDecoded decoded(type, cut);  // its ledger fails the test if a block is left after the free
            if (decoded.code == VESK_OK) {
                ASSERT_EQ(to_hex(encoded(type, decoded.message.get())), to_hex(cut));
            } else {
                ASSERT_EQ(decoded.code, VESK_MALFORMED) << length << " bytes of " << to_hex(whole);
            }
        }
    });
}

struct Range {
    std::size_t start;
    std::size_t end;
};

// Appends where the contents of strings and bytes fields stand in an encoding of the type.
void find_contents(const TypeInfo& type, const Bytes& bytes, Range message, std::vector<Range>& contents) {
    const std::uint8_t* at = bytes.data() + message.start;
    const std::uint8_t* end = bytes.data() + message.end;
    while (at < end) {
        std::uint32_t tag = 0;
        std::uint64_t value = 0;
        at = read_varint32(at, end, &tag);
        if (wire_type_of_tag(tag) == fixed32_type || wire_type_of_tag(tag) == fixed64_type) {
            at += wire_type_of_tag(tag) == fixed32_type ? 4 : 8;
            continue;
        }
        if (at != nullptr) at = read_long_varint64(at, end, &value);
        ASSERT_NE(at, nullptr) << to_hex(bytes);
        if (wire_type_of_tag(tag) == varint_type) continue;
        const auto field = std::find_if(type.fields.begin(), type.fields.end(), [&](const FieldInfo& candidate) {
            return candidate.number == field_number_of_tag(tag);
        });
        ASSERT_TRUE(field != type.fields.end() && value <= static_cast<std::uint64_t>(end - at)) << to_hex(bytes);
        const std::size_t start = static_cast<std::size_t>(at - bytes.data());
        if (field->nested != nullptr) {
            find_contents(*field->nested, bytes, {start, start + static_cast<std::size_t>(value)}, contents);
        } else if (field->kind != Kind::repeated) {
            contents.push_back({start, start + static_cast<std::size_t>(value)});
        }
        at += value;
    }
}

TEST(every_type, short_buffer_gets_what_fits_and_strings_and_bytes_only_whole) {
    for_every_type(2, Amount::some, [](const TypeInfo& type, const void* message) {
        const Bytes whole = encoded(type, message);
        std::vector<Range> contents;
        find_contents(type, whole, {0, whole.size()}, contents);
        for (std::size_t room = 0; room <= whole.size() + 1; ++room) {
            Bytes buffer(whole.size() + 8, 0xEE);
            ASSERT_EQ(type.encode(message, buffer.data(), room, nullptr, nullptr, 0), whole.size()) << room;

            Bytes expected(buffer.size(), 0xEE);
            std::copy_n(whole.begin(), std::min(room, whole.size()), expected.begin());
            for (const Range& content : contents) {
                if (content.end <= room) continue;
                std::fill(expected.begin() + static_cast<std::ptrdiff_t>(content.start),
                          expected.begin() + static_cast<std::ptrdiff_t>(content.end), std::uint8_t{0xEE});
            }
            ASSERT_EQ(to_hex(buffer), to_hex(expected)) << room << " of " << whole.size() << " bytes";
        }
    });
}

// ---- Duplicate and free --------------------------------------------------------------------------------------------

TEST(every_type, duplicate_encodes_to_the_same_bytes_and_shares_no_block) {
    for_every_type(4, Amount::much, [](const TypeInfo& type, const void* message) {
        const AnyDecoded source(type, encoded(type, message));
        Ledger ledger;
        Storage copy(type, 0);
        ASSERT_EQ(type.duplicate(copy.get(), source.message.get(), Ledger::alloc, &ledger), VESK_OK);
        EXPECT_EQ(to_hex(encoded(type, copy.get())), to_hex(encoded(type, source.message.get())));

        std::vector<const void*> blocks = owned_blocks(type, copy.get());
        EXPECT_EQ(blocks.size(), ledger.blocks_out());
        EXPECT_TRUE(std::all_of(blocks.begin(), blocks.end(), [&](const void* block) { return ledger.owns(block); }));
        std::sort(blocks.begin(), blocks.end());
        EXPECT_EQ(std::adjacent_find(blocks.begin(), blocks.end()), blocks.end()) << "one block owned twice";

        type.free(copy.get(), Ledger::release, &ledger, 0);
        EXPECT_EQ(ledger.blocks_out(), 0u);
    });
}

// Strings, bytes fields and lists are copied also when their presence bits are clear, and the bits stay clear.
TEST(every_type, duplicate_of_a_hand_filled_message_encodes_to_the_same_bytes) {
    for_every_type(4, Amount::much, [](const TypeInfo& type, const void* message) {
        Ledger ledger;
        Storage copy(type);
        ASSERT_EQ(type.duplicate(copy.get(), message, Ledger::alloc, &ledger), VESK_OK);
        EXPECT_EQ(to_hex(encoded(type, copy.get())), to_hex(encoded(type, message)));
        EXPECT_EQ(owned_blocks(type, copy.get()).size(), ledger.blocks_out());
        type.free(copy.get(), Ledger::release, &ledger, 0);
        EXPECT_EQ(ledger.blocks_out(), 0u);
    });
}

TEST(every_type, second_free_releases_nothing) {
    for_every_type(2, Amount::much, [](const TypeInfo& type, const void* message) {
        AnyDecoded decoded(type, encoded(type, message));
        type.free(decoded.message.get(), Ledger::release, &decoded.ledger, 0);
        EXPECT_EQ(decoded.ledger.blocks_out(), 0u);
        decoded.ledger.clear_history();
        type.free(decoded.message.get(), Ledger::release, &decoded.ledger, 0);
        EXPECT_TRUE(decoded.ledger.history().empty());
    });
}

// ---- Memory that cannot be had -------------------------------------------------------------------------------------

// Runs `scenario` with the first, second, ... of its allocations failing, then once with none failing.
void expect_every_allocation_may_fail(const TypeInfo& type,
                                      const std::function<std::int32_t(void* message, Ledger& ledger)>& scenario) {
    std::int32_t code = VESK_NO_MEMORY;
    for (std::uint64_t failing = 1; code != VESK_OK; ++failing) {
        Ledger ledger;
        ledger.fail_request(failing);
        Storage message(type);
        code = scenario(message.get(), ledger);
        ASSERT_EQ(code, ledger.requests_made() < failing ? VESK_OK : VESK_NO_MEMORY) << "allocation " << failing;
        type.free(message.get(), Ledger::release, &ledger, 0);
        ASSERT_EQ(ledger.blocks_out(), 0u) << "allocation " << failing;
    }
}

TEST(every_type, decode_stops_at_any_failing_allocation_and_frees_to_nothing) {
    for_every_type(4, Amount::some, [](const TypeInfo& type, const void* message) {
        const Bytes input = encoded(type, message);
        expect_every_allocation_may_fail(type, [&](void* decoded, Ledger& ledger) {
            return type.decode(decoded, input.data(), input.size(), Ledger::alloc, &ledger, 0);
        });
    });
}

bool owns_block(const FieldInfo& field, const void* message) {
    switch (field.kind) {
        case Kind::string: return load<void*>(message, field.offset) != nullptr;
        case Kind::bytes: return load<std::uint64_t>(message, field.second_offset) != 0;
        case Kind::list:
        case Kind::repeated:
        case Kind::strings:
        case Kind::blobs: return load<std::uint32_t>(message, field.second_offset) != 0;
        default: return false;
    }
}

// How many strings or bytes of a repeated field the copy lacks.
int count_lost_elements(const FieldInfo& field, const void* source, const void* copy) {
    if (field.kind != Kind::strings && field.kind != Kind::blobs) return 0;
    const Kind kind = field.kind == Kind::strings ? Kind::string : Kind::bytes;
    const std::size_t step = field.kind == Kind::strings ? sizeof(char*) : sizeof(vesk_bytes);
    int lost = 0;
    for (std::size_t i = 0; i < load<std::uint32_t>(source, field.second_offset); ++i) {
        const FieldInfo element{0, kind, i * step, i * step + offsetof(vesk_bytes, length), nullptr};
        lost += owns_block(element, load<void*>(source, field.offset)) &&
                !owns_block(element, load<void*>(copy, field.offset));
    }
    return lost;
}

// How many strings, bytes fields and lists the copy lacks, nested ones included. Expects that these are empty and not
// present in the copy, and that every other field is as present as in the source.
int count_lost(const TypeInfo& type, const void* source, const void* copy) {
    int lost = 0;
    for (std::size_t index = 0; index < type.fields.size(); ++index) {
        const FieldInfo& field = type.fields[index];
        const bool is_lost = owns_block(field, source) && !owns_block(field, copy);
        EXPECT_EQ(is_present(type, copy, index), is_present(type, source, index) && !is_lost)
            << type.name << " field " << field.number;
        if (is_lost) {
            EXPECT_EQ(load<void*>(copy, field.offset), nullptr) << type.name << " field " << field.number;
            ++lost;
        } else if (is_repeated_kind(field.kind)) {
            lost += count_lost_elements(field, source, copy);
        } else if (field.kind == Kind::message) {
            lost += count_lost(*field.nested, member_at(source, field.offset), member_at(copy, field.offset));
        } else if (field.kind == Kind::list) {
            for (std::size_t i = 0; i < load<std::uint32_t>(source, field.second_offset); ++i) {
                lost += count_lost(*field.nested, element_at(load<void*>(source, field.offset), *field.nested, i),
                                   element_at(load<void*>(copy, field.offset), *field.nested, i));
            }
        }
    }
    return lost;
}

TEST(every_type, duplicate_lacks_just_the_field_whose_allocation_failed) {
    for_every_type(4, Amount::some, [](const TypeInfo& type, const void* message) {
        expect_every_allocation_may_fail(type, [&](void* copy, Ledger& ledger) {
            const std::int32_t code = type.duplicate(copy, message, Ledger::alloc, &ledger);
            EXPECT_EQ(count_lost(type, message, copy), code == VESK_OK ? 0 : 1);
            return code;
        });
    });
}

TEST(every_type, duplicate_without_a_callback_leaves_a_copy_without_blocks) {
    for_every_type(4, Amount::some, [](const TypeInfo& type, const void* message) {
        Storage copy(type);
        const std::int32_t code = type.duplicate(copy.get(), message, nullptr, nullptr);
        EXPECT_TRUE(owned_blocks(type, copy.get()).empty());
        Ledger ledger;
        Storage whole(type);
        type.duplicate(whole.get(), message, Ledger::alloc, &ledger);
        EXPECT_EQ(code, ledger.requests_made() == 0 ? VESK_OK : VESK_NO_MEMORY);
        type.free(whole.get(), Ledger::release, &ledger, 0);
    });
}

}  // namespace
}  // namespace vesk::test
