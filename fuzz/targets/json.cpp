// Texts: any bytes, and what is printed of a message, as it is or changed. What parses prints, and is parsed again to a
// message with the same encoding; a bad text asks for no block; memory that runs out, the caller's or the parser's own,
// leaves a message that can be freed.
#include <vesk/vesk_text.h>

#include <string>

#include "fuzz/input.hpp"
#include "fuzz/messages.hpp"
#include "fuzz/random.hpp"

namespace vesk::fuzz {
namespace {

// Bits of the input's flags.
constexpr std::uint32_t as_text_format = 1;  // else JSON
constexpr std::uint32_t as_it_stands = 2;    // the input is the text; else it is a message that is printed
constexpr std::uint32_t in_one_line = 4;

struct Case {
    const TypeInfo& type;
    const vesk_type* facts;
    bool is_json;
    vesk_text_options options;
};

std::int32_t append(const char* text, std::size_t length, void* context) {
    static_cast<std::string*>(context)->append(text, length);
    return 0;
}

std::int32_t print(const Case& input, const void* message, std::string* text) {
    text->clear();
    const auto call = input.is_json ? vesk_json_print : vesk_text_print;
    return call(input.facts, message, append, text, nullptr, &input.options);
}

std::int32_t print_encoded(const Case& input, const std::uint8_t* bytes, std::size_t length, std::string* text) {
    text->clear();
    const auto call = input.is_json ? vesk_json_print_encoded : vesk_text_print_encoded;
    return call(input.facts, bytes, length, append, text, nullptr, &input.options);
}

// A message with the memory that it takes.
class Message {
public:
    std::uint8_t* reset(const TypeInfo& type, std::uint32_t refused = 0) {
        structure_.reset();
        blocks_.reset(refused);
        return message_ = structure_.take(type.size);
    }

    // From a text in a block of exactly its length.
    std::int32_t parse(const Case& input, const std::string& text, std::uint32_t refused) {
        reset(input.type, refused);
        std::uint8_t* const copy = structure_.take(text.size());
        std::copy(text.begin(), text.end(), copy);
        vesk_text_report report;
        report.size = sizeof report;
        const auto call = input.is_json ? vesk_json_parse : vesk_text_parse;
        const std::int32_t code = call(input.facts, message_, reinterpret_cast<const char*>(copy), text.size(),
                                       Pool::alloc, &blocks_, &report, &input.options);
        expect(report.code == code, "the report has another code");
        expect((code <= VESK_TEXT_SYNTAX) == (report.line != 0 && report.column != 0),
               "an error of the text without a place in it, or another error with one");
        expect(code == VESK_OK || code == VESK_NO_MEMORY || code <= VESK_TEXT_SYNTAX, "not a documented code");
        expect(code == VESK_OK || code == VESK_NO_MEMORY || blocks_.blocks().empty(), "a bad text asks for a block");
        expect(code != VESK_OK || blocks_.refusals() == 0, "a refused block is no error");
        return code;
    }

    void free(const TypeInfo& type) {
        type.free(message_, Pool::release, &blocks_, 0);
        expect(blocks_.blocks_out() == 0, "a block is lost");
    }

    const std::uint8_t* get() const { return message_; }
    Pool& blocks() { return blocks_; }

private:
    Pool structure_;
    Pool blocks_;
    std::uint8_t* message_ = nullptr;
};

std::string encode(const TypeInfo& type, const void* message) {
    std::string bytes(measured(type, message), '\0');
    type.encode(message, bytes.data(), bytes.size(), nullptr, nullptr, 0);
    return bytes;
}

// Prints the input as a message, straight from its bytes and from a structure. False if it is none.
bool print_input(const Case& input, const Input& given, std::string* text) {
    static Message decoded;
    static std::string from_structure;
    const std::int32_t code = print_encoded(input, given.message, given.length, text);
    std::uint8_t* const message = decoded.reset(input.type);
    expect(input.type.decode(message, given.message, given.length, Pool::alloc, &decoded.blocks(), 0) == code,
           "printing and decoding the bytes have different codes");
    if (code != VESK_OK) return false;
    expect(print(input, message, &from_structure) == VESK_OK, "a structure that was decoded is not printed");
    const bool has_nul = text->find(input.is_json ? "\\u0000" : "\\000") != std::string::npos;
    expect(has_nul || *text == from_structure, "bytes and structure are printed differently");
    return true;
}

// Changes a text as a careless person would, or one who means no good.
void distort_text(std::uint32_t seed, std::string* text) {
    static constexpr char characters[] = "{}[]<>:,;\"'\\#/ \n\t0123456789.eE+-truefalsnxu\x00\x7F\x80\xC3\xED\xFF";
    if (seed == 0) return;
    Random random(seed);
    for (std::uint64_t changes = 1 + random.below(4); changes != 0 && !text->empty(); --changes) {
        const std::size_t at = random.below(text->size());
        const std::size_t other = random.below(text->size());
        const std::size_t length = 1 + random.below(12);
        switch (random.below(5)) {
            case 0: text->erase(at, length); break;
            case 1: text->insert(at, text->substr(other, length)); break;
            case 2: text->replace(at, length, text->substr(other, length)); break;
            case 3: (*text)[at] = characters[random.below(sizeof characters - 1)]; break;
            default: text->resize(at); break;
        }
    }
}

}  // namespace

void check(const Input& input) {
    static Message first;
    static Message second;
    static std::string text;
    static std::string printed;
    Case tried{*input.type, vesk_type_named(input.type->name.c_str()), (input.flags & as_text_format) == 0,
               vesk_default_text_options()};
    tried.options.flags = VESK_TEXT_LOSSLESS | ((input.flags & in_one_line) != 0 ? VESK_TEXT_ONE_LINE : 0);

    const bool is_own_text = (input.flags & as_it_stands) != 0;
    if (is_own_text) {
        text.assign(reinterpret_cast<const char*>(input.message), input.length);
    } else {
        if (!print_input(tried, input, &text)) return;
        distort_text(input.distortion, &text);
    }

    if (input.room != 0) tried.options.memory_limit = std::uint64_t{input.room} * 16;
    const std::int32_t code = first.parse(tried, text, input.refused);
    tried.options.memory_limit = UINT64_MAX;
    if (code == VESK_OK) {
        expect(print(tried, first.get(), &printed) == VESK_OK, "what was parsed is not printed");
        expect(second.parse(tried, printed, 0) == VESK_OK, "what was printed is not parsed");
        expect(encode(tried.type, first.get()) == encode(tried.type, second.get()),
               "what was printed is parsed to another message");
        second.free(tried.type);
    }
    first.free(tried.type);
}

}  // namespace vesk::fuzz
