// Parsing the text format.
#include "text/builder.hpp"
#include "text/decimal.hpp"
#include "text/utf8.hpp"

namespace vesk {
namespace {

bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Of a hexadecimal digit; 16 for any other character.
std::uint32_t value_of_digit(char c) {
    if (is_digit(c)) return static_cast<std::uint32_t>(c - '0');
    if (c >= 'a' && c <= 'f') return static_cast<std::uint32_t>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return static_cast<std::uint32_t>(c - 'A' + 10);
    return 16;
}

class TextReader {
public:
    TextReader(Builder& builder, char* begin, std::uint64_t length, Outcome& outcome)
        : builder_(builder), outcome_(outcome), at_(begin), end_(begin + length), error_at_(begin) {}

    const char* error_at() const { return error_at_; }

    // Reads fields up to the character that closes the message; NUL stands for the end of the text.
    bool read_message(char closing) {
        while (true) {
            skip_blanks();
            if (at_ == end_) return closing == '\0' ? builder_.end_message() : fail_here("the text ends in a message");
            if (closing != '\0' && *at_ == closing) {
                ++at_;
                return builder_.end_message();
            }
            if (!read_field()) return false;
        }
    }

private:
    // ---- Fields ----

    bool read_field() {
        error_at_ = at_;
        const char* const name = at_;
        if (!is_letter(*at_)) return fail_here("a field's name is expected");
        while (is_letter(*at_) || is_digit(*at_)) ++at_;
        const std::size_t length = static_cast<std::size_t>(at_ - name);
        const vesk_field* const field = find_field(name, length);
        if (field == nullptr) {
            builder_.fail(VESK_TEXT_UNKNOWN_NAME, "no field of this name: ");
            outcome_.add_quoted(name, length);
            return false;
        }
        if (!builder_.enter(field, Builder::Lists::may_go_on)) return false;
        skip_blanks();
        const bool has_colon = take(':');
        skip_blanks();
        if (!read_value(field, has_colon)) return false;
        skip_blanks();
        if (!take(',')) take(';');
        return true;
    }

    const vesk_field* find_field(const char* name, std::size_t length) const {
        const vesk_type* const type = builder_.type();
        for (std::uint32_t i = 0; i < type->field_count; ++i) {
            // From the likeliest on, once around.
            const vesk_field* const field = vesk_type_field(type, (builder_.likeliest() + i) % type->field_count);
            const char* const candidate = vesk_field_name(field);
            if (std::strncmp(candidate, name, length) == 0 && candidate[length] == '\0') return field;
        }
        return nullptr;
    }

    bool read_value(const vesk_field* field, bool has_colon) {
        error_at_ = at_;
        if (field->kind == VESK_KIND_MESSAGE) return read_nested();
        if (field->kind != VESK_KIND_LIST && !has_colon) return fail_here("a colon is expected");
        return has_count(field) ? read_list() : read_single();
    }

    // A value by itself, or an element.
    bool read_single() {
        error_at_ = at_;
        switch (builder_.wanted()) {
            case VESK_KIND_MESSAGE: return read_nested();
            case VESK_KIND_STRING:
            case VESK_KIND_BYTES: return read_string();
            case VESK_KIND_BOOL: return read_flag();
            case VESK_KIND_UINT32: return read_number(UINT32_MAX);
            case VESK_KIND_UINT64: return read_number(UINT64_MAX);
            case VESK_KIND_FLOAT:
            case VESK_KIND_DOUBLE: return read_real(builder_.wanted() == VESK_KIND_FLOAT);
            default: return read_other_number(builder_.wanted());
        }
    }

    bool read_nested() {
        error_at_ = at_;
        const char opening = *at_;
        if (opening != '{' && opening != '<') return refuse("a message is expected, in braces");
        if (!builder_.begin_message()) return false;
        ++at_;
        return read_message(opening == '{' ? '}' : '>');
    }

    // One element, or some in brackets.
    bool read_list() {
        builder_.enter_list();
        if (!take('[')) {
            if (!read_single()) return false;
        } else if (skip_blanks(), !take(']')) {
            while (true) {
                skip_blanks();
                if (!read_single()) return false;
                skip_blanks();
                if (take(']')) break;
                if (!take(',')) return fail_here("a comma or ] is expected after an element");
            }
        }
        builder_.leave_list();
        return true;
    }

    // ---- Scalars ----

    // Letters, digits and what else a number may have, so that 1f2 and 1.0 are one word and none that is known.
    std::size_t take_word() {
        const char* const word = at_;
        while (is_letter(*at_) || is_digit(*at_) || *at_ == '.' || *at_ == '-' || *at_ == '+') ++at_;
        return static_cast<std::size_t>(at_ - word);
    }

    bool read_number(std::uint64_t most) {
        if (*at_ == '-') {
            take_word();
            return builder_.fail(VESK_TEXT_OUT_OF_RANGE);
        }
        std::uint64_t value = 0;
        if (!read_magnitude(&value)) return false;
        return value <= most ? builder_.add_number(value) : builder_.fail(VESK_TEXT_OUT_OF_RANGE);
    }

    // A whole number without a sign.
    bool read_magnitude(std::uint64_t* number) {
        const char* const word = at_;
        const std::size_t length = take_word();
        if (length == 0) return refuse("a number is expected");
        const bool is_hex = length > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
        const bool is_octal = !is_hex && length > 1 && word[0] == '0';
        const std::uint32_t base = is_hex ? 16 : is_octal ? 8 : 10;
        std::uint64_t value = 0;
        bool fits_64_bits = true;
        for (std::size_t i = is_hex ? 2 : 0; i < length; ++i) {
            const std::uint32_t digit = value_of_digit(word[i]);
            if (digit >= base) return builder_.fail(VESK_TEXT_WRONG_KIND, "a whole number is expected");
            fits_64_bits = fits_64_bits && !__builtin_mul_overflow(value, base, &value) &&
                           !__builtin_add_overflow(value, digit, &value);
        }
        *number = value;
        return fits_64_bits || builder_.fail(VESK_TEXT_OUT_OF_RANGE);
    }

    // A minus sign, and blanks after it.
    bool take_minus() {
        if (!take('-')) return false;
        skip_blanks();
        return true;
    }

    // A whole number of a kind that messages of others have.
    bool read_other_number(std::uint16_t kind) {
        if (!has_sign(kind)) return read_number(size_of_element(kind) == 4 ? UINT32_MAX : UINT64_MAX);
        const bool is_negative = take_minus();
        std::uint64_t magnitude = 0;
        if (!read_magnitude(&magnitude)) return false;
        std::uint64_t number = 0;
        if (!apply_sign(is_negative, magnitude, &number) || !fits(kind, number)) {
            return builder_.fail(VESK_TEXT_OUT_OF_RANGE);
        }
        return builder_.add_number(number);
    }

    // 1, 1.5, .5e3, 1.5f, inf and nan, in capitals, too.
    bool read_real(bool is_float) {
        const bool is_negative = take_minus();
        const char* const word = at_;
        std::size_t length = take_word();
        if (length == 0) return refuse("a number is expected");
        const std::uint64_t sign = is_negative ? std::uint64_t{1} << (is_float ? 31 : 63) : 0;
        if (is_word(word, length, "inf") || is_word(word, length, "infinity")) {
            return builder_.add_number(infinity_bits(is_float, is_negative));
        }
        if (is_word(word, length, "nan")) return builder_.add_number(nan_bits(is_float));
        const bool is_octal = length > 1 && word[0] == '0' && is_digit(word[1]);
        if (length > 1 && (word[length - 1] == 'f' || word[length - 1] == 'F')) --length;
        std::uint64_t bits = 0;
        const Decimal read = is_digit(word[0]) || word[0] == '.'
                                 ? read_lenient_real(word, word + length, is_float, &bits)
                                 : Decimal::no_number;
        if (read == Decimal::no_number || is_octal) {
            return builder_.fail(VESK_TEXT_WRONG_KIND, "a decimal number is expected");
        }
        if (read == Decimal::out_of_range) return builder_.fail(VESK_TEXT_OUT_OF_RANGE);
        return builder_.add_number(bits | sign);
    }

    // Whether a word is this one, which is in small letters, whatever its own are.
    static bool is_word(const char* word, std::size_t length, const char* small) {
        for (; length != 0; --length, ++word, ++small) {
            if (*small == '\0' || (*word | 0x20) != *small) return false;
        }
        return *small == '\0';
    }

    bool read_flag() {
        if (is_digit(*at_) || *at_ == '-') return read_number(1);
        const char* const word = at_;
        const std::size_t length = take_word();
        const auto is = [&](const char* text) {
            return std::strlen(text) == length && std::memcmp(text, word, length) == 0;
        };
        if (is("true") || is("True") || is("t")) return builder_.add_number(1);
        if (is("false") || is("False") || is("f")) return builder_.add_number(0);
        return refuse("true or false is expected");
    }

    // ---- Strings ----

    // Literals one after the other are one string. They are put together where the first one stands.
    bool read_string() {
        if (*at_ != '"' && *at_ != '\'') return refuse("a string in quotes is expected");
        std::uint8_t* const string = reinterpret_cast<std::uint8_t*>(at_);
        std::uint8_t* out = string;
        const char* const begin = at_;
        do {
            if (!read_literal(&out)) return false;
            skip_blanks();
        } while (*at_ == '"' || *at_ == '\'');
        error_at_ = begin;
        return builder_.add_data(string, static_cast<std::uint64_t>(out - string));
    }

    bool read_literal(std::uint8_t** out) {
        const char quote = *at_++;
        while (*at_ != quote) {
            if (at_ == end_ || *at_ == '\n' || *at_ == '\0') return fail_here("the string does not end in its line");
            if (*at_ == '\\') {
                if (!read_escape(out)) return false;
            } else {
                *(*out)++ = static_cast<std::uint8_t>(*at_++);
            }
        }
        ++at_;
        return true;
    }

    bool read_escape(std::uint8_t** out) {
        static constexpr char letters[] = "abfnrtv\\?'\"";
        static constexpr char meanings[] = "\a\b\f\n\r\t\v\\?'\"";
        error_at_ = at_++;
        const char letter = *at_;
        if (letter >= '0' && letter <= '7') {
            *(*out)++ = static_cast<std::uint8_t>(take_digits(8, 3));
            return true;
        }
        if (letter == '\0') return fail_at_error("the string does not end in its line");
        ++at_;
        if (letter == 'x' || letter == 'X') {
            if (value_of_digit(*at_) > 15) return fail_at_error("a hexadecimal digit is expected after \\x");
            *(*out)++ = static_cast<std::uint8_t>(take_digits(16, 2));
            return true;
        }
        if (letter == 'u' || letter == 'U') return read_code_point(letter, out);
        const char* const found = std::strchr(letters, letter);
        if (found == nullptr) return fail_at_error("no such escape");
        *(*out)++ = static_cast<std::uint8_t>(meanings[found - letters]);
        return true;
    }

    // After \u, with four digits, or \U, with eight. A surrogate pair is two of \u.
    bool read_code_point(char letter, std::uint8_t** out) {
        std::uint32_t code_point = 0;
        if (!take_code_unit(letter == 'u' ? 4 : 8, &code_point)) return false;
        const bool is_high = code_point >= 0xD800 && code_point <= 0xDBFF;
        if (is_high && letter == 'u' && at_[0] == '\\' && at_[1] == 'u') {
            at_ += 2;
            std::uint32_t low = 0;
            if (!take_code_unit(4, &low)) return false;
            if (low >= 0xDC00 && low <= 0xDFFF) code_point = 0x10000 + ((code_point - 0xD800) << 10) + (low - 0xDC00);
        }
        if (code_point >= 0xD800 && code_point <= 0xDFFF) {
            return builder_.fail(VESK_TEXT_NOT_UTF8, "half of a surrogate pair");
        }
        if (code_point > 0x10FFFF) return fail_at_error("no such character");
        *out = put_utf8(*out, code_point);
        return true;
    }

    bool take_code_unit(unsigned digits, std::uint32_t* value) {
        const char* const first = at_;
        *value = take_digits(16, digits);
        if (at_ == first + digits) return true;
        return fail_at_error(digits == 4 ? "\\u wants four digits" : "\\U wants eight digits");
    }

    // Reads digits while there are some, up to a number of them.
    std::uint32_t take_digits(std::uint32_t base, unsigned most) {
        std::uint32_t value = 0;
        for (; most != 0 && value_of_digit(*at_) < base; --most) value = value * base + value_of_digit(*at_++);
        return value;
    }

    // ---- Characters ----

    // The text ends in a NUL, which is none of the characters that are asked for.
    bool take(char character) {
        if (*at_ != character) return false;
        ++at_;
        return true;
    }

    void skip_blanks() {
        while (true) {
            while (is_blank(*at_)) ++at_;
            if (*at_ != '#') return;
            while (at_ != end_ && *at_ != '\n') ++at_;
        }
    }

    bool fail_here(const char* reason) {
        error_at_ = at_;
        return fail_at_error(reason);
    }
    bool fail_at_error(const char* reason) { return builder_.fail(VESK_TEXT_SYNTAX, reason); }

    // Where a value should begin: another value is of the wrong kind, anything else is none.
    bool refuse(const char* reason) {
        const char found = *error_at_;
        const bool is_value = is_letter(found) || is_digit(found) || (found != '\0' && std::strchr("\"'{<[-", found));
        return builder_.fail(is_value ? VESK_TEXT_WRONG_KIND : VESK_TEXT_SYNTAX, reason);
    }

    Builder& builder_;
    Outcome& outcome_;
    char* at_;
    const char* end_;
    const char* error_at_;
};

const char* read_text_format(Builder& builder, char* copy, std::uint64_t length, Outcome& outcome, std::uint32_t) {
    TextReader reader(builder, copy, length, outcome);
    return reader.read_message('\0') ? nullptr : reader.error_at();
}

}  // namespace
}  // namespace vesk

int32_t vesk_text_parse(const vesk_type* type, void* message, const char* text, uint64_t length, vesk_alloc alloc,
                        void* context, vesk_text_report* report, const vesk_text_options* options) {
    return vesk::parse_text(type, message, text, length, alloc, context, report, options, vesk::read_text_format);
}
