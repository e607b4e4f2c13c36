// The messages for C++20: each accessor against the C structure and functions that it stands for, in each memory, with
// memory that runs out at every request.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <vesk/vesk.hpp>
#include <vesk/vesk_print.hpp>

#include "tests/support/api.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/messages.hpp"
#include "tests/support/type_info.hpp"

namespace vesk {
namespace {

using test::Bytes;
using test::bytes_field;
using test::concatenate;
using test::encoded;
using test::find_type;
using test::full_encoding;
using test::hex;
using test::Ledger;
using test::message_field;
using test::number_field;
using test::text_field;
using test::to_hex;
using test::TypeInfo;

memory memory_of(Ledger& ledger) { return {Ledger::alloc, Ledger::release, &ledger}; }

std::span<const std::byte> as_span(const Bytes& bytes) { return std::as_bytes(std::span(bytes)); }

template <class T>
Bytes bytes_of(const message<T>& message) {
    return encoded(message.c());
}

// A memory resource that checks what it gets back.
class CheckedResource final : public std::pmr::memory_resource {
public:
    std::size_t left = SIZE_MAX;  // requests until it is out of memory
    std::map<void*, std::pair<std::size_t, std::size_t>> blocks;
    int mistakes = 0;

private:
    void* do_allocate(std::size_t size, std::size_t alignment) override {
        if (left == 0) throw std::bad_alloc();
        --left;
        void* const block = ::operator new (size, std::align_val_t{alignment});
        blocks[block] = {size, alignment};
        return block;
    }
    void do_deallocate(void* block, std::size_t size, std::size_t alignment) override {
        const auto found = blocks.find(block);
        if (found == blocks.end() || found->second != std::pair(size, alignment)) ++mistakes;
        blocks.erase(block);
        ::operator delete (block, std::align_val_t{alignment});
    }
    bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override { return this == &other; }
};

// ---- Numbers and flags ----------------------------------------------------------------------------------------------

TEST(view_set, number_sets_value_and_presence_bit_alone) {
    message<vesk_led_data> led;
    led.set<&vesk_led_data::f3>(7u);
    vesk_led_data expected = {};
    expected.f3 = 7;
    VESK_MARK(&expected, VESK_LED_DATA_F3);
    EXPECT_EQ(std::memcmp(&led.c(), &expected, sizeof expected), 0);
    EXPECT_EQ(led.get<&vesk_led_data::f3>(), std::optional<std::uint32_t>(7));
}

TEST(view_get, field_whose_bit_is_clear_is_nothing_whatever_its_member_holds) {
    message<vesk_led_data> led;
    led.c().f3 = 7;
    EXPECT_FALSE(led.has<&vesk_led_data::f3>());
    EXPECT_EQ(led.get<&vesk_led_data::f3>(), std::nullopt);
}

TEST(view_set, number_of_64_bits_takes_a_shorter_one) {
    message<vesk_entity_common_data> common;
    common.set<&vesk_entity_common_data::f20>(7u);
    common.set<&vesk_entity_common_data::f20>(UINT64_MAX);
    EXPECT_EQ(*common.get<&vesk_entity_common_data::f20>(), UINT64_MAX);
}

// ---- Strings and bytes ----------------------------------------------------------------------------------------------

TEST(view_set, string_is_copied_and_the_one_before_given_back) {
    Ledger ledger;
    message<vesk_led_data> led(memory_of(ledger));
    std::string text = "green";
    ASSERT_FALSE(led.set<&vesk_led_data::f5>(std::string_view(text)));
    ASSERT_FALSE(led.set<&vesk_led_data::f5>("red"));
    text = "other";
    EXPECT_EQ(*led.get<&vesk_led_data::f5>(), "red");
    ASSERT_FALSE(led.set<&vesk_led_data::f5>(""));
    EXPECT_EQ(*led.get<&vesk_led_data::f5>(), "");
    led.clear<&vesk_led_data::f5>();
    EXPECT_EQ(led.get<&vesk_led_data::f5>(), std::nullopt);
    EXPECT_EQ(led.c().f5, nullptr);
}

TEST(view_set, string_with_a_nul_inside_is_refused_and_the_field_stays) {
    message<vesk_led_data> led;
    ASSERT_FALSE(led.set<&vesk_led_data::f5>("green"));
    EXPECT_EQ(led.set<&vesk_led_data::f5>(std::string_view("r\0d", 3)), make_error_code(error::embedded_nul));
    EXPECT_EQ(*led.get<&vesk_led_data::f5>(), "green");
}

TEST(view_set, without_memory_the_field_stays) {
    Ledger ledger;
    message<vesk_eeprom_data> eeprom(memory_of(ledger));
    const Bytes four = hex("00010203");
    ASSERT_FALSE(eeprom.set<&vesk_eeprom_data::f4>("serial"));
    ASSERT_FALSE(eeprom.set<&vesk_eeprom_data::f20>(as_span(four)));
    ledger.fail_from_now_on();
    EXPECT_EQ(eeprom.set<&vesk_eeprom_data::f4>("other"), std::errc::not_enough_memory);
    EXPECT_EQ(eeprom.set<&vesk_eeprom_data::f20>(as_span(hex("FF"))), std::errc::not_enough_memory);
    EXPECT_EQ(*eeprom.get<&vesk_eeprom_data::f4>(), "serial");
    EXPECT_TRUE(std::ranges::equal(*eeprom.get<&vesk_eeprom_data::f20>(), as_span(four)));
}

TEST(view_set, bytes_are_copied_with_their_length) {
    Ledger ledger;
    message<vesk_eeprom_data> eeprom(memory_of(ledger));
    ASSERT_FALSE(eeprom.set<&vesk_eeprom_data::f20>(as_span(hex("00010203"))));
    EXPECT_EQ(to_hex(bytes_of(eeprom)), to_hex(bytes_field(20, hex("00010203"))));
    ASSERT_FALSE(eeprom.set<&vesk_eeprom_data::f20>(std::span<const std::byte>()));
    EXPECT_EQ(to_hex(bytes_of(eeprom)), to_hex(bytes_field(20, {})));
    eeprom.clear<&vesk_eeprom_data::f20>();
    EXPECT_EQ(to_hex(bytes_of(eeprom)), "");
}

// ---- Nested messages and lists --------------------------------------------------------------------------------------

TEST(view_edit, nested_message_is_present_and_written_in_place) {
    message<vesk_led_data> led;
    EXPECT_EQ(led.get<&vesk_led_data::entity_common>(), std::nullopt);
    led.edit<&vesk_led_data::entity_common>().set<&vesk_entity_common_data::f6>(true);
    EXPECT_EQ(to_hex(bytes_of(led)), to_hex(message_field(1, number_field(6, 1))));
    EXPECT_EQ(*led.get<&vesk_led_data::entity_common>()->get<&vesk_entity_common_data::f6>(), true);
    led.clear<&vesk_led_data::entity_common>();
    EXPECT_EQ(to_hex(bytes_of(led)), "");
}

TEST(view_resize, list_keeps_what_stays_gives_back_what_goes_and_has_new_ones_empty) {
    Ledger ledger;
    message<vesk_resp_inv_data> response(memory_of(ledger));
    constexpr auto list = &vesk_resp_inv_data::idprom_list;
    ASSERT_FALSE(response.resize<list>(3));
    ASSERT_FALSE(response.edit<list>(0).set<&vesk_idprom_data::f4>("a"));
    ASSERT_FALSE(response.edit<list>(2).set<&vesk_idprom_data::f4>("c"));
    ASSERT_FALSE(response.resize<list>(1));
    ASSERT_FALSE(response.resize<list>(2));
    const auto elements = *response.get<list>();
    ASSERT_EQ(elements.size(), 2u);
    EXPECT_EQ(*view(elements[0]).get<&vesk_idprom_data::f4>(), "a");
    EXPECT_FALSE(view(elements[1]).has<&vesk_idprom_data::f4>());
    if constexpr (sizeof(std::size_t) > sizeof(std::uint32_t)) {  // a count has 32 bits
        EXPECT_EQ(response.resize<list>(std::size_t{UINT32_MAX} + 1), make_error_code(error::too_many));
    }
    ledger.fail_from_now_on();
    EXPECT_EQ(response.resize<list>(3), std::errc::not_enough_memory);
    EXPECT_EQ(response.get<list>()->size(), 2u);
    response.clear<list>();
    EXPECT_EQ(response.get<list>().has_value(), false);
}

TEST(view_list_builder, list_grows_and_goes_into_the_message_as_a_whole) {
    Ledger ledger;
    message<vesk_resp_inv_data> response(memory_of(ledger));
    constexpr auto list = &vesk_resp_inv_data::idprom_list;
    ASSERT_FALSE(response.resize<list>(1));
    ASSERT_FALSE(response.edit<list>(0).set<&vesk_idprom_data::f4>("old"));
    list_builder<list> builder(response.allocator());
    Bytes expected;
    for (unsigned i = 0; i < 100; ++i) {
        const std::string text = std::to_string(i);
        if (i % 3 == 0) {
            ASSERT_FALSE(builder.append());
            ASSERT_FALSE(builder.edit(i).set<&vesk_idprom_data::f4>(std::string_view(text)));
        } else {
            message<vesk_idprom_data> element(i % 3 == 1 ? memory_of(ledger) : heap());
            ASSERT_FALSE(element.set<&vesk_idprom_data::f4>(std::string_view(text)));
            ASSERT_FALSE(builder.append(std::move(element)));
        }
        expected = concatenate({expected, message_field(7, text_field(4, text))});
    }
    builder.put(response.edit());
    EXPECT_EQ(builder.size(), 0u);
    EXPECT_EQ(to_hex(bytes_of(response)), to_hex(expected));
}

TEST(view_list_builder, what_is_put_nowhere_is_given_back_and_memory_may_run_out_anywhere) {
    for (unsigned failing = 1; failing < 40; ++failing) {
        Ledger ledger;
        ledger.fail_request(failing);
        list_builder<&vesk_resp_inv_data::idprom_list> builder(memory_of(ledger));
        unsigned done = 0;
        for (unsigned i = 0; i < 10; ++i) {
            if (builder.append()) break;
            if (builder.edit(i).set<&vesk_idprom_data::f4>("x")) break;
            ++done;
        }
        EXPECT_EQ(done == 10, failing > 13) << failing;  // ten strings, and an array of 4, 8 and 16
    }
}

// ---- Whole messages -------------------------------------------------------------------------------------------------

template <class T>
void expect_round_trip(const TypeInfo& type) {
    const Bytes input = full_encoding(type);
    Ledger ledger;
    message<T> first(memory_of(ledger));
    ASSERT_FALSE(first.decode(as_span(input))) << type.name;
    EXPECT_EQ(first.encoded_size(), input.size());
    Bytes buffer(input.size());
    std::uint64_t length = 0;
    ASSERT_FALSE(first.encode(std::as_writable_bytes(std::span(buffer)), length));
    EXPECT_EQ(length, input.size());
    EXPECT_EQ(to_hex(buffer), to_hex(input)) << type.name;
    EXPECT_EQ(first.encode({}, length), make_error_code(std::int32_t{VESK_TOO_SHORT}));
    EXPECT_EQ(length, input.size());

    message<T> copy;
    ASSERT_FALSE(copy.copy(first));
    EXPECT_EQ(to_hex(bytes_of(copy)), to_hex(input));
    message<T> moved(std::move(copy));
    EXPECT_EQ(to_hex(bytes_of(moved)), to_hex(input));
    EXPECT_EQ(copy.encoded_size(), 0u);  // NOLINT: what is left behind is promised to be empty
    first = std::move(moved);
    EXPECT_EQ(to_hex(bytes_of(first)), to_hex(input));
    ASSERT_FALSE(first.copy(first));
    EXPECT_EQ(to_hex(bytes_of(first)), to_hex(input));

    message<T> by_reference;
    ASSERT_FALSE(by_reference.decode(as_span(input), VESK_BYTES_BY_REFERENCE));
    EXPECT_EQ(to_hex(bytes_of(by_reference)), to_hex(input));
}

TEST(view_message, every_type_is_decoded_encoded_copied_moved_and_given_back) {
#define VESK_TEST_ROUND_TRIP(T) expect_round_trip<T>(*find_type(std::string(#T).substr(5)));
    VESK_TEST_TYPES(VESK_TEST_ROUND_TRIP)
#undef VESK_TEST_ROUND_TRIP
}

TEST(view_message, after_an_error_it_is_empty_and_its_code_says_why) {
    Ledger ledger;
    message<vesk_led_data> led(memory_of(ledger));
    ASSERT_FALSE(led.set<&vesk_led_data::f5>("green"));
    const Bytes input = concatenate({text_field(5, "red"), hex("80")});
    const std::error_code failed = led.decode(as_span(input));
    EXPECT_EQ(failed, make_error_code(std::int32_t{VESK_MALFORMED}));
    EXPECT_EQ(failed.message(), vesk_result_text(VESK_MALFORMED));
    EXPECT_STREQ(failed.category().name(), "vesk");
    EXPECT_EQ(led.encoded_size(), 0u);
    EXPECT_EQ(make_error_code(error::embedded_nul).message(), "a string with a NUL inside");
    EXPECT_FALSE(make_error_code(std::int32_t{VESK_OK}));
}

TEST(view_memory, arena_keeps_its_limit_and_gives_back_as_a_whole) {
    unsigned char room[4096];
    vesk_arena arena;
    vesk_arena_of_buffer(&arena, room, sizeof room);
    vesk_arena_limit(&arena, 64, UINT64_MAX);
    {
        message<vesk_led_data> led(vesk::memory_of(arena));
        ASSERT_FALSE(led.set<&vesk_led_data::f5>("green"));
        EXPECT_EQ(led.set<&vesk_led_data::f5>(std::string_view(std::string(64, 'x'))), std::errc::not_enough_memory);
        EXPECT_EQ(*led.get<&vesk_led_data::f5>(), "green");
    }
    vesk_arena_close(&arena);
}

TEST(view_memory, resource_gets_back_each_block_with_its_size_and_alignment) {
    const Bytes input =
        concatenate({message_field(7, text_field(4, "first")), message_field(7, text_field(4, "second"))});
    for (std::size_t left = 0; left < 5; ++left) {
        CheckedResource resource;
        resource.left = left;
        {
            message<vesk_resp_inv_data> response(vesk::memory_of(resource));
            const std::error_code failed = response.decode(as_span(input));
            EXPECT_EQ(failed == std::errc::not_enough_memory, left < 3) << left;
            if (!failed) {
                for (const auto& [block, size] : resource.blocks) {
                    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0u);
                }
                EXPECT_EQ(resource.blocks.size(), 3u);
            }
        }
        EXPECT_TRUE(resource.blocks.empty());
        EXPECT_EQ(resource.mistakes, 0);
    }
}

// ---- Printing -------------------------------------------------------------------------------------------------------

TEST(view_print, present_fields_stand_in_one_line) {
    message<vesk_resp_inv_data> response;
    response.set<&vesk_resp_inv_data::f1>(5u);
    ASSERT_FALSE(response.resize<&vesk_resp_inv_data::idprom_list>(2));
    auto idprom = response.edit<&vesk_resp_inv_data::idprom_list>(0);
    ASSERT_FALSE(idprom.set<&vesk_idprom_data::f4>("a \"b\"\n\xC3\xA4\\"));
    ASSERT_FALSE(idprom.edit<&vesk_idprom_data::eeprom>().set<&vesk_eeprom_data::f20>(as_span(hex("00FF41"))));
    EXPECT_EQ(to_string(response),
              R"(f1: 5 idprom_list { eeprom { f20: "\000\377A" } f4: "a \"b\"\012\303\244\\" } idprom_list {})");
    std::ostringstream stream;
    stream << response << '|' << view(response);
    EXPECT_EQ(stream.str(), to_string(response) + "|" + to_string(response));
    EXPECT_EQ(to_string(message<vesk_led_data>()), "");
}

}  // namespace
}  // namespace vesk
