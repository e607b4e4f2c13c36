// Parsing JSON: RapidJSON's reader says what stands in the text, and where it is wrong.
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <initializer_list>

#include "text/builder.hpp"
#include "text/decimal.hpp"
#include "text/utf8.hpp"

namespace vesk {
namespace {

// A reader that decodes strings where they stand asks for no memory.
class NoMemory {
public:
    [[maybe_unused]] static constexpr bool kNeedFree = false;
    static void* Malloc(std::size_t) { return nullptr; }
    static void* Realloc(void*, std::size_t, std::size_t) { return nullptr; }
    static void Free(void*) {}
};

using Reader = rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, NoMemory>;
constexpr unsigned how_to_read = rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag;

// ---- Names ---------------------------------------------------------------------------------------------------------

// Whether a key is the name as in the schema, entity_common.
bool is_name(const char* name, const char* key, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        if (name[i] != key[i] || key[i] == '\0') return false;
    }
    return name[length] == '\0';
}

// Whether it is the name as the mapping spells it, entityCommon.
bool is_camel_case_name(const char* name, const char* key, std::size_t length) {
    const char* const end = key + length;
    for (; *name != '\0'; ++name) {
        bool is_upper = false;
        for (; *name == '_'; ++name) is_upper = true;
        if (*name == '\0') break;
        const bool changes = is_upper && *name >= 'a' && *name <= 'z';
        const char expected = changes ? static_cast<char>(*name - 'a' + 'A') : *name;
        if (key == end || *key++ != expected) return false;
    }
    return key == end;
}

// The field of a key; null if there is none. The search goes once around, from the likeliest place on.
const vesk_field* find_field(const vesk_type* type, std::uint32_t likeliest, const char* key, std::size_t length) {
    for (const auto is_spelled : {is_name, is_camel_case_name}) {
        for (std::uint32_t i = 0, place = likeliest; i < type->field_count; ++i, ++place) {
            if (place >= type->field_count) place = 0;
            const vesk_field* const field = vesk_type_field(type, place);
            if (is_spelled(vesk_field_name(field), key, length)) return field;
        }
    }
    return nullptr;
}

// ---- Contents ------------------------------------------------------------------------------------------------------

// The value of a character of base64, of both alphabets; 64 for any other.
std::uint32_t value_of_digit(std::uint8_t character) {
    if (character >= 'A' && character <= 'Z') return character - std::uint32_t{'A'};
    if (character >= 'a' && character <= 'z') return character - std::uint32_t{'a'} + 26;
    if (character >= '0' && character <= '9') return character - std::uint32_t{'0'} + 52;
    if (character == '+' || character == '-') return 62;
    if (character == '/' || character == '_') return 63;
    return 64;
}

// Decodes base64 where it stands. False if it is none.
bool decode_base64(std::uint8_t* text, std::uint64_t* length) {
    std::uint64_t digits = *length;
    while (digits != 0 && *length - digits < 2 && text[digits - 1] == '=') --digits;
    const bool is_padded = digits != *length;
    if (is_padded ? *length % 4 != 0 : *length % 4 == 1) return false;
    std::uint8_t* out = text;
    std::uint32_t bits = 0;
    unsigned bit_count = 0;
    for (std::uint64_t i = 0; i < digits; ++i) {
        const std::uint32_t value = value_of_digit(text[i]);
        if (value == 64) return false;
        bits = (bits & 0x3F) << 6 | value;  // up to 6 of the last digit's are left
        bit_count += 6;
        if (bit_count < 8) continue;
        bit_count -= 8;
        *out++ = static_cast<std::uint8_t>(bits >> bit_count);
    }
    *length = static_cast<std::uint64_t>(out - text);
    return true;
}

// Escapes may have left halves of surrogate pairs. Each of \udc80 to \udcff becomes a byte if that is asked for; false
// if there is another one. The text itself is known to be UTF-8.
bool settle_surrogates(std::uint8_t* string, std::uint64_t* length, bool lossless) {
    const std::uint8_t* at = string;
    const std::uint8_t* const end = string + *length;
    std::uint8_t* out = string;
    while (at != end) {
        if (!is_low_surrogate(at, end)) {
            *out++ = *at++;
            continue;
        }
        const std::uint32_t unit = 0xD000u | (at[1] & 0x3Fu) << 6 | (at[2] & 0x3Fu);
        if (!lossless || unit < 0xDC80 || unit > 0xDCFF) return false;
        *out++ = static_cast<std::uint8_t>(unit & 0xFF);
        at += 3;
    }
    *length = static_cast<std::uint64_t>(out - string);
    return true;
}

// ---- Events --------------------------------------------------------------------------------------------------------

// What the reader calls. Each returns false after an error, whose place in the text is then error_at().
class Events : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Events> {
public:
    Events(Builder& builder, const rapidjson::InsituStringStream& stream, Outcome& outcome, bool lossless)
        : builder_(builder), stream_(stream), outcome_(outcome), lossless_(lossless) {}

    const char* error_at() const { return error_at_; }

    bool Null() { return begin_value(stream_.src_ - 4) && builder_.add_nothing(); }

    bool Bool(bool value) {
        if (!begin_value(stream_.src_ - (value ? 4 : 5))) return false;
        if (builder_.wanted() != VESK_KIND_BOOL) return refuse("true or false");
        return builder_.add_number(value ? 1 : 0);
    }

    bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
        if (!begin_value(text)) return false;
        return is_number() ? add_number(text, length) : refuse("a number");
    }

    bool String(const char* text, rapidjson::SizeType length, bool) {
        if (!begin_value(text - 1)) return false;
        // In the copy, which is ours to write to.
        std::uint8_t* const string = reinterpret_cast<std::uint8_t*>(const_cast<char*>(text));
        std::uint64_t size = length;
        const bool has_escapes = text + length + 1 != stream_.src_;
        switch (builder_.wanted()) {
            case VESK_KIND_STRING:
                if (has_escapes && !settle_surrogates(string, &size, lossless_)) {
                    return builder_.fail(VESK_TEXT_NOT_UTF8, "half of a surrogate pair");
                }
                return builder_.add_data(string, size);
            case VESK_KIND_BYTES:
                return decode_base64(string, &size) ? builder_.add_data(string, size)
                                                    : builder_.fail(VESK_TEXT_NOT_BASE64);
            default: return is_number() ? add_number(text, length) : refuse("a string");
        }
    }

    bool StartObject() {
        if (!has_begun_) {
            has_begun_ = true;
            return true;
        }
        if (!begin_value(stream_.src_ - 1)) return false;
        if (builder_.wanted() != VESK_KIND_MESSAGE) return refuse("an object");
        return builder_.begin_message();
    }

    bool Key(const char* text, rapidjson::SizeType length, bool) {
        error_at_ = text - 1;
        const vesk_field* const field = find_field(builder_.type(), builder_.likeliest(), text, length);
        if (field == nullptr) {
            builder_.fail(VESK_TEXT_UNKNOWN_NAME, "no field of this name: ");
            outcome_.add_quoted(text, length);
            return false;
        }
        return builder_.enter(field, Builder::Lists::stand_once);
    }

    bool EndObject(rapidjson::SizeType) {
        error_at_ = stream_.src_ - 1;
        return builder_.end_message();
    }

    bool StartArray() {
        if (!begin_value(stream_.src_ - 1)) return false;
        if (!has_count(builder_.field()) || builder_.is_in_list()) return refuse("an array");
        builder_.enter_list();
        return true;
    }

    bool EndArray(rapidjson::SizeType) {
        builder_.leave_list();
        return true;
    }

private:
    // Whether a value may stand here at all: the text as a whole must be an object.
    bool begin_value(const char* at) {
        error_at_ = at;
        if (has_begun_) return true;
        return builder_.fail(VESK_TEXT_WRONG_KIND, "the text is no object");
    }

    bool is_number() const {
        const std::uint16_t kind = builder_.wanted();
        return is_scalar_kind(kind) && kind < VESK_KIND_REPEATED && kind != VESK_KIND_BOOL;
    }

    bool add_number(const char* text, std::size_t length) {
        std::uint64_t value = 0;
        const Decimal read = read_number(builder_.wanted(), text, text + length, &value);
        if (read == Decimal::no_number) return builder_.fail(VESK_TEXT_WRONG_KIND, "a string that is no number");
        if (read == Decimal::out_of_range) return builder_.fail(VESK_TEXT_OUT_OF_RANGE);
        return builder_.add_number(value);
    }

    // As the kind's number (toolkit/kinds.hpp).
    static Decimal read_number(std::uint16_t kind, const char* at, const char* end, std::uint64_t* value) {
        const bool is_float = kind == VESK_KIND_FLOAT;
        if (is_float || kind == VESK_KIND_DOUBLE) return read_any_real(at, end, is_float, value);
        const Decimal read = has_sign(kind) ? read_signed_decimal(at, end, value) : read_decimal(at, end, value);
        return read == Decimal::good && !fits(kind, *value) ? Decimal::out_of_range : read;
    }

    static Decimal read_any_real(const char* at, const char* end, bool is_float, std::uint64_t* bits) {
        const auto is = [&](const char* word) { return is_name(word, at, static_cast<std::size_t>(end - at)); };
        if (is("NaN")) {
            *bits = nan_bits(is_float);
        } else if (is("Infinity") || is("-Infinity")) {
            *bits = infinity_bits(is_float, *at == '-');
        } else {
            return read_real(at, end, is_float, bits);
        }
        return Decimal::good;
    }

    bool refuse(const char* found) {
        builder_.fail(VESK_TEXT_WRONG_KIND, found);
        outcome_.add_reason(" where ");
        outcome_.add_reason(wanted());
        outcome_.add_reason(" is expected");
        return false;
    }

    const char* wanted() const {
        if (!builder_.is_in_list() && has_count(builder_.field())) return "an array";
        switch (builder_.wanted()) {
            case VESK_KIND_BOOL: return "true or false";
            case VESK_KIND_STRING: return "a string";
            case VESK_KIND_BYTES: return "a string of base64";
            case VESK_KIND_MESSAGE: return "an object";
            default: return "a number";
        }
    }

    Builder& builder_;
    const rapidjson::InsituStringStream& stream_;
    Outcome& outcome_;
    bool lossless_;
    bool has_begun_ = false;
    const char* error_at_ = nullptr;
};

// An error that the reader has found by itself.
void fail_by_reader(rapidjson::ParseErrorCode error, Builder& builder) {
    switch (error) {
        case rapidjson::kParseErrorNumberTooBig: builder.fail(VESK_TEXT_OUT_OF_RANGE); break;
        case rapidjson::kParseErrorStringUnicodeSurrogateInvalid:
            builder.fail(VESK_TEXT_NOT_UTF8, "half of a surrogate pair");
            break;
        default: builder.fail(VESK_TEXT_SYNTAX, rapidjson::GetParseError_En(error));
    }
}

// What stands in `copy`, which has `length` bytes and a NUL. Returns null, or where an error is.
const char* read_json(Builder& builder, char* copy, std::uint64_t length, Outcome& outcome, std::uint32_t flags) {
    const std::uint8_t* const begin = reinterpret_cast<const std::uint8_t*>(copy);
    const std::uint8_t* const bad = find_not_utf8(begin, begin + length);
    if (bad != begin + length) {
        outcome.fail(VESK_TEXT_NOT_UTF8, nullptr, "the text is not UTF-8");
        return copy + (bad - begin);
    }
    if (std::strncmp(copy, "\xEF\xBB\xBF", 3) == 0) {
        outcome.fail(VESK_TEXT_SYNTAX, nullptr, "a byte order mark");
        return copy;
    }
    rapidjson::InsituStringStream stream(copy);
    NoMemory no_memory;
    Reader reader(&no_memory);
    Events events(builder, stream, outcome, (flags & VESK_TEXT_LOSSLESS) != 0);
    const rapidjson::ParseResult result = reader.Parse<how_to_read>(stream, events);
    if (!outcome.ok()) return events.error_at();
    if (result.IsError()) {
        fail_by_reader(result.Code(), builder);
        return copy + result.Offset();
    }
    // The reader takes a NUL for the end.
    if (stream.Tell() != length) {
        outcome.fail(VESK_TEXT_SYNTAX, nullptr, "a NUL after the text");
        return copy + stream.Tell();
    }
    return nullptr;
}

}  // namespace
}  // namespace vesk

int32_t vesk_json_parse(const vesk_type* type, void* message, const char* text, uint64_t length, vesk_alloc alloc,
                        void* context, vesk_text_report* report, const vesk_text_options* options) {
    return vesk::parse_text(type, message, text, length, alloc, context, report, options, vesk::read_json);
}
