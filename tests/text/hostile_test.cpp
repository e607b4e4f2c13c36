// Texts that nobody means well with, memory that refuses, and pages that nobody can touch.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>

#include "tests/support/changing_input.hpp"
#include "tests/support/first_difference.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/guarded_memory.hpp"
#include "tests/support/random_message.hpp"
#include "tests/text/calls.hpp"
#include "tests/trust/sanitized.hpp"

namespace vesk::test {
namespace {

// A text of each type with every field in it.
void for_full_texts(const std::function<void(Format format, const TypeInfo& type, const std::string& text)>& check) {
    for (const TypeInfo* type : all_types()) {
        for (const Format format : all_formats) {
            SCOPED_TRACE(type->name + ", " + name_of(format));
            const Printed printed = print_encoded(format, facts_of(*type), full_encoding(*type), VESK_TEXT_LOSSLESS);
            ASSERT_EQ(printed.code, VESK_OK);
            check(format, *type, printed.text);
            if (::testing::Test::HasFailure()) return;
        }
    }
}

const TypeInfo& small_type() { return type_named("resp_container_eid_nodeid"); }
std::string small_text(Format format) {
    return format == Format::json
               ? R"({"container_eid_nodeid_list":[{"eid":{"f1":1,"element_list":[{"f1":2},{}]},"f2":"a\u00e9\n","f3":7},)"
                 R"({}],"f2":4294967295})"
               : R"(container_eid_nodeid_list{eid{f1:1 element_list:[{f1:2},<>]}f2:'a\303\251' "\n" f3:0x7}#c
                 container_eid_nodeid_list{} f2:4294967295)";
}

// The verdict on a text is its own, whatever it is; a message that was accepted prints, and is parsed again to the
// same.
void expect_sane(Format format, const TypeInfo& type, std::string_view text) {
    const Parsed parsed(format, type, text, VESK_TEXT_LOSSLESS);
    if (parsed.code != VESK_OK) {
        EXPECT_TRUE(parsed.code <= VESK_TEXT_SYNTAX && parsed.code >= VESK_TEXT_NUL) << parsed.code;
        EXPECT_GE(parsed.report.line, 1u);
        EXPECT_GE(parsed.report.column, 1u);
        EXPECT_EQ(parsed.ledger.requests_made(), 0u);
        return;
    }
    const Printed printed = print(format, facts_of(type), parsed.message.get(), VESK_TEXT_LOSSLESS);
    ASSERT_EQ(printed.code, VESK_OK);
    const Parsed again(format, type, printed.text, VESK_TEXT_LOSSLESS);
    ASSERT_EQ(again.code, VESK_OK) << printed.text;
    EXPECT_EQ(first_difference(type, parsed.message.get(), again.message.get()), "") << text;
}

// ---- Texts ---------------------------------------------------------------------------------------------------------

TEST(hostile_text, deep_nesting_is_refused_where_the_type_ends) {
    for (const std::string& brackets : {std::string(1000000, '['), std::string(1000000, '{')}) {
        const Parsed parsed(Format::json, type_named("inv_policy"), "{\"f3\":" + brackets);
        EXPECT_EQ(parsed.verdict(), "-204 f3 1:7");
        EXPECT_EQ(Parsed(Format::json, type_named("inv_policy"), brackets).report.line, 1u);
        EXPECT_EQ(Parsed(Format::text, type_named("inv_policy"), "f3:" + brackets).verdict(), "-204 f3 1:4");
    }
    std::string deep = "{\"container_eid_nodeid_list\":";
    for (int i = 0; i < 100000; ++i) deep += "[{\"eid\":";
    EXPECT_EQ(Parsed(Format::json, small_type(), deep).code, VESK_TEXT_WRONG_KIND);
}

TEST(hostile_text, numbers_and_exponents_of_a_million_digits_are_judged_by_their_value) {
    const std::string zeros(1000000, '0');
    const auto code_of = [](const std::string& number) {
        return Parsed(Format::json, type_named("inv_policy"), R"({"f3":")" + number + "\"}").code;
    };
    EXPECT_EQ(code_of("1" + zeros), VESK_TEXT_OUT_OF_RANGE);
    EXPECT_EQ(code_of("1" + zeros + "e-1000000"), VESK_OK);
    EXPECT_EQ(code_of("0." + zeros + "1e1000001"), VESK_OK);
    EXPECT_EQ(code_of("0." + zeros), VESK_OK);
    EXPECT_EQ(code_of("1e" + zeros + "1"), VESK_OK);
    EXPECT_EQ(code_of("1e1" + zeros), VESK_TEXT_OUT_OF_RANGE);
    EXPECT_EQ(code_of("1e-1" + zeros), VESK_TEXT_OUT_OF_RANGE);
    EXPECT_EQ(code_of(std::string(1000000, '9')), VESK_TEXT_OUT_OF_RANGE);
    EXPECT_EQ(Parsed(Format::json, type_named("inv_policy"), "{\"f3\":1" + zeros + "}").code, VESK_TEXT_OUT_OF_RANGE);
    EXPECT_EQ(Parsed(Format::text, type_named("inv_policy"), "f3:0" + zeros + "1").code, VESK_OK);
    EXPECT_EQ(Parsed(Format::text, type_named("inv_policy"), "f3:1" + zeros).code, VESK_TEXT_OUT_OF_RANGE);
}

TEST(hostile_text, truncated_at_every_byte_it_has_an_error_or_a_meaning_of_its_own) {
    for_full_texts([](Format format, const TypeInfo& type, const std::string& text) {
        const std::size_t step = 1 + text.size() / (sanitized ? 50 : 300);
        for (std::size_t length = 0; length < text.size(); length += step) {
            const Parsed parsed(format, type, std::string_view(text).substr(0, length));
            // Of JSON no beginning is a text, of the text format some are.
            if (format == Format::json && length < text.size() - 1) {
                ASSERT_NE(parsed.code, VESK_OK) << length;
            }
            expect_sane(format, type, std::string_view(text).substr(0, length));
        }
    });
}

TEST(hostile_text, every_byte_changed_to_every_other_has_an_error_or_a_meaning_of_its_own) {
    for (const Format format : all_formats) {
        const std::string text = small_text(format);
        ASSERT_EQ(Parsed(format, small_type(), text).verdict(), "0");
        for (std::size_t at = 0; at < text.size(); ++at) {
            for (int value = 0; value < 256; value += sanitized ? 7 : 1) {
                std::string changed = text;
                changed[at] = static_cast<char>(value);
                SCOPED_TRACE(changed);
                expect_sane(format, small_type(), changed);
            }
        }
    }
}

TEST(hostile_text, bytes_left_out_doubled_and_moved_have_an_error_or_a_meaning_of_their_own) {
    for_full_texts([](Format format, const TypeInfo& type, const std::string& text) {
        std::mt19937_64 random(type.fields.size());
        for (int round = 0; round < (sanitized ? 10 : 50); ++round) {
            std::string changed = text;
            const std::size_t at = random() % changed.size();
            const std::size_t length = 1 + random() % std::min<std::size_t>(20, changed.size() - at);
            const std::string part = changed.substr(at, length);
            if (random() % 2 == 0) changed.erase(at, length);
            if (random() % 2 == 0) changed.insert(random() % (changed.size() + 1), part);
            SCOPED_TRACE(changed);
            expect_sane(format, type, changed);
        }
    });
}

TEST(hostile_text, text_of_4_gib_is_refused_before_it_is_looked_at) {
    const char text[] = "{}";
    for (const Format format : all_formats) {
        const auto parse = format == Format::json ? vesk_json_parse : vesk_text_parse;
        const TypeInfo& type = type_named("inv_policy");
        Storage message(type);
        EXPECT_EQ(
            parse(facts_of(type), message.get(), text, std::uint64_t{1} << 32, nullptr, nullptr, nullptr, nullptr),
            VESK_TOO_LONG);
        EXPECT_TRUE(is_clear(type, message.get()));
    }
}

// ---- Memory --------------------------------------------------------------------------------------------------------

// The parser's own memory, with its highest level.
struct OwnMemory {
    Ledger ledger;
    std::uint64_t now = 0;
    std::uint64_t most = 0;
    std::map<void*, std::uint64_t> sizes;

    static void* alloc(std::uint64_t size, void* context) {
        OwnMemory& own = *static_cast<OwnMemory*>(context);
        void* const block = Ledger::alloc(size, &own.ledger);
        if (block == nullptr) return nullptr;
        own.sizes[block] = size;
        own.now += size;
        own.most = std::max(own.most, own.now);
        return block;
    }
    static void release(void* block, void* context) {
        OwnMemory& own = *static_cast<OwnMemory*>(context);
        own.now -= own.sizes[block];
        Ledger::release(block, &own.ledger);
    }
    vesk_text_options options(std::uint64_t limit = UINT64_MAX) {
        vesk_text_options options = with_flags(VESK_TEXT_LOSSLESS);
        options.alloc = alloc;
        options.release = release;
        options.context = this;
        options.memory_limit = limit;
        return options;
    }
};

TEST(text_memory, refused_block_ends_a_parse_and_what_was_built_is_freed) {
    for_full_texts([](Format format, const TypeInfo& type, const std::string& text) {
        const Parsed whole(format, type, text, with_flags(VESK_TEXT_LOSSLESS));
        ASSERT_EQ(whole.code, VESK_OK);
        const std::uint64_t requests = whole.ledger.requests_made();
        for (const std::size_t request : numbers_to(static_cast<std::size_t>(requests))) {
            if (request == 0) continue;
            const Parsed parsed(format, type, text, with_flags(VESK_TEXT_LOSSLESS), request);
            ASSERT_EQ(parsed.code, VESK_NO_MEMORY) << request;
            ASSERT_EQ(parsed.report.line, 0u);
            ASSERT_EQ(parsed.ledger.requests_made(), request) << "it goes on";
            const std::vector<const void*> owned = owned_blocks(type, parsed.message.get());
            ASSERT_EQ(owned.size(), parsed.ledger.blocks_out());
        }
    });
}

TEST(text_memory, what_is_asked_for_is_what_decoding_asks_for) {
    for_full_texts([](Format format, const TypeInfo& type, const std::string& text) {
        const Parsed parsed(format, type, text, with_flags(VESK_TEXT_LOSSLESS));
        const AnyDecoded decoded(type, full_encoding(type));
        EXPECT_EQ(parsed.ledger.history(), decoded.ledger.history());
        EXPECT_EQ(first_difference(type, parsed.message.get(), decoded.message.get()), "");
    });
}

TEST(text_memory, message_without_blocks_needs_no_allocator) {
    for (const auto& [text, code] :
         {std::pair{R"({"f3":1})", std::int32_t{VESK_OK}}, {R"({"f1":""})", std::int32_t{VESK_NO_MEMORY}}}) {
        Storage message(type_named("inv_policy"));
        EXPECT_EQ(vesk_json_parse(vesk_type_named("inv_policy"), message.get(), text, std::strlen(text), nullptr,
                                  nullptr, nullptr, nullptr),
                  code);
    }
}

TEST(text_memory, parser_without_memory_of_its_own_says_so_and_asks_for_no_block) {
    for_full_texts([](Format format, const TypeInfo& type, const std::string& text) {
        OwnMemory counting;
        ASSERT_EQ(Parsed(format, type, text, counting.options()).code, VESK_OK);
        ASSERT_EQ(counting.ledger.blocks_out(), 0u);
        const std::uint64_t requests = counting.ledger.requests_made();
        ASSERT_GE(requests, 1u);
        for (std::uint64_t request = 1; request <= requests; ++request) {
            OwnMemory own;
            own.ledger.fail_request(request);
            const Parsed parsed(format, type, text, own.options());
            ASSERT_EQ(parsed.code, VESK_NO_MEMORY) << request;
            ASSERT_EQ(parsed.ledger.requests_made(), 0u);
            ASSERT_EQ(own.ledger.blocks_out(), 0u);
            ASSERT_TRUE(is_clear(type, parsed.message.get()));
        }
        // With just what it takes there is enough, and with a byte less there is not.
        OwnMemory enough;
        ASSERT_EQ(Parsed(format, type, text, enough.options(counting.most)).code, VESK_OK);
        OwnMemory scarce;
        ASSERT_EQ(Parsed(format, type, text, scarce.options(counting.most - 1)).code, VESK_NO_MEMORY);
    });
}

TEST(text_memory, parser_needs_at_most_what_the_contract_says_for_each_character) {
    std::string elements = "[{}";
    for (int i = 1; i < 100000; ++i) elements += ",{}";
    const std::string json = "{\"container_eid_nodeid_list\":" + elements + "]}";
    const std::string text = "container_eid_nodeid_list:" + elements + "]";
    for (const Format format : all_formats) {
        const std::string& hostile = format == Format::json ? json : text;
        OwnMemory own;
        ASSERT_EQ(Parsed(format, small_type(), hostile, own.options()).code, VESK_OK);
        EXPECT_LE(own.most, 49 * hostile.size() + 2048);
        EXPECT_GE(own.most, 10 * hostile.size()) << "the worst text is another one by now";
    }
}

// ---- Pages ---------------------------------------------------------------------------------------------------------

TEST(text_guard_pages, text_structure_and_report_are_not_left) {
    for_full_texts([](Format format, const TypeInfo& type, const std::string& text) {
        const GuardedMemory text_pages(text.size());
        const GuardedMemory structure_pages(type.size);
        const GuardedMemory report_pages(sizeof(vesk_text_report));
        const auto parse = format == Format::json ? vesk_json_parse : vesk_text_parse;
        const vesk_text_options options = with_flags(VESK_TEXT_LOSSLESS);
        const std::size_t step = 1 + text.size() / 60;
        for (std::size_t cut = 0; cut <= text.size(); cut += step) {
            const std::size_t length = text.size() - cut;
            announce_attempt("parsing", type.name, length);
            char* const at = reinterpret_cast<char*>(text_pages.before_end(length));
            std::copy_n(text.begin(), length, at);
            text_pages.forbid_writing();
            void* const message = structure_pages.before_end(type.size);
            auto* const report = reinterpret_cast<vesk_text_report*>(report_pages.before_end(sizeof(vesk_text_report)));
            report->size = sizeof *report;
            Ledger ledger;
            const std::int32_t code =
                parse(facts_of(type), message, at, length, Ledger::alloc, &ledger, report, &options);
            ASSERT_TRUE(code == VESK_OK || code <= VESK_TEXT_SYNTAX);
            type.free(message, Ledger::release, &ledger, 0);
            text_pages.allow_writing();
        }
    });
}

TEST(text_guard_pages, encoded_bytes_are_not_left_and_only_read) {
    for (const TypeInfo* type : all_types()) {
        const Bytes whole = full_encoding(*type);
        const GuardedMemory pages(whole.size());
        for (const std::size_t length : numbers_to(whole.size())) {
            announce_attempt("printing", type->name, length);
            std::uint8_t* const at = pages.before_end(length);
            std::copy_n(whole.begin(), length, at);
            pages.forbid_writing();
            std::uint64_t printed = 0;
            const auto count = [](const char*, std::size_t size, void* context) {
                *static_cast<std::uint64_t*>(context) += size;
                return std::int32_t{0};
            };
            const vesk_text_options options = with_flags(VESK_TEXT_LOSSLESS);
            const std::int32_t code =
                vesk_json_print_encoded(facts_of(*type), at, length, count, &printed, nullptr, &options);
            ASSERT_EQ(vesk_text_print_encoded(facts_of(*type), at, length, count, &printed, nullptr, nullptr), code);
            ASSERT_EQ(code == VESK_OK, vesk_check(facts_of(*type), at, length, 0, nullptr, nullptr) == VESK_OK);
            pages.allow_writing();
        }
    }
}

// The bytes have been checked when the first call of the callback changes them.
TEST(text_guard_pages, encoded_bytes_that_change_while_they_are_printed_are_not_left) {
    struct Changing {
        std::uint8_t* at;
        std::size_t length;
        const NamedChange& change;
        std::uint64_t calls = 0;
    };
    const auto change_input = [](const char*, std::size_t, void* context) {
        Changing& changing = *static_cast<Changing*>(context);
        ++changing.calls;
        changing.change.change(changing.at, changing.length);
        return std::int32_t{0};
    };
    std::uint64_t changed_in_time[2] = {};
    const auto print_changing = [&](const TypeInfo& type, const Bytes& input, bool in_order) {
        if (input.empty()) return;
        const GuardedMemory pages(input.size());
        std::uint8_t* const at = pages.before_end(input.size());
        for (const NamedChange& change : named_changes()) {
            for (const auto print : {vesk_json_print_encoded, vesk_text_print_encoded}) {
                announce_attempt("printing what changes", type.name, input.size());
                std::copy(input.begin(), input.end(), at);
                Changing changing{at, input.size(), change};
                print(facts_of(type), at, input.size(), change_input, &changing, nullptr, nullptr);
                changed_in_time[in_order] += changing.calls > 1;
            }
        }
    };
    for (const TypeInfo* type : all_types()) {
        for (std::uint64_t seed = 1; seed <= 20; ++seed) {
            const Bytes whole = encoded(*type, RandomMessage(*type, seed, Amount::much).get());
            print_changing(*type, whole, true);
            for (const FieldInfo& field : type->fields) {
                if (field.kind != Kind::uint32) continue;
                print_changing(*type, message(whole, number_field(field.number, 1)), false);
                break;
            }
        }
    }
    EXPECT_GT(changed_in_time[0], 100u);
    EXPECT_GT(changed_in_time[1], 100u);
}

}  // namespace
}  // namespace vesk::test
