// Printing JSON.
#include <iterator>

#include "text/printer.hpp"
#include "text/utf8.hpp"

namespace vesk {
namespace {

constexpr std::uint32_t blanks_a_level = 2;
constexpr char hex_digits[] = "0123456789abcdef";

// The names of the fields that were printed last, each as it stands in the text: a list's elements have the same fields
// again and again, and to copy so many bytes takes less time than to look for the end of two or three.
class Names {
public:
    struct Name {
        const vesk_field* field;
        char text[23];        // in quotes, with a colon and a blank
        std::uint8_t length;  // 0 if the name is too long for this
    };

    const Name& of(const vesk_field* field) {
        Name& name = names_[reinterpret_cast<std::uintptr_t>(field) / 8 % std::size(names_)];
        if (name.field != field) [[unlikely]]
            prepare(name, field);
        return name;
    }

private:
    // No part of what is called for each field, which it would make larger.
    [[gnu::noinline]] static void prepare(Name& name, const vesk_field* field) {
        const char* const text = vesk_field_name(field);
        const std::size_t length = std::strlen(text);
        const bool fits = length + 4 <= sizeof name.text;
        name.field = field;
        name.length = fits ? static_cast<std::uint8_t>(length + 4) : 0;
        if (!fits) return;
        name.text[0] = '"';
        std::memcpy(name.text + 1, text, length);
        std::memcpy(name.text + 1 + length, "\": ", 3);
    }

    Name names_[64] = {};
};

class Json {
public:
    Json(Output& output, std::uint32_t flags)
        : output_(output), one_line_((flags & VESK_TEXT_ONE_LINE) != 0), lossless_((flags & VESK_TEXT_LOSSLESS) != 0) {}

    void begin_text() { open('{'); }
    void end_text() {
        close('}');
        if (!one_line_) output_.put('\n');
    }

    void begin_field(const vesk_field* field) { put_name(field); }
    void end_field() {}
    void begin_list(const vesk_field* field) {
        put_name(field);
        open('[');
    }
    void end_list() { close(']'); }
    void begin_message(const vesk_field* field) {
        put_name(field);
        open('{');
    }
    void begin_element(const vesk_field*) {
        output_.commit(begin_item(output_.reserve(Output::most_reserved)));
        open('{');
    }
    void end_message() { close('}'); }

    void begin_value(const vesk_field*) { output_.commit(begin_item(output_.reserve(Output::most_reserved))); }
    void end_value() {}

    void number(std::uint16_t kind, std::uint64_t value) {
        if (kind == VESK_KIND_UINT32) return output_.put_decimal(value);
        if (kind == VESK_KIND_BOOL) return put_flag(value != 0);
        other_number(kind, value);
    }
    bool string(Data data);
    void bytes(Data data);

private:
    void put_flag(bool value) {
        static constexpr char words[2][8] = {"false", "true"};
        char* const out = output_.reserve(sizeof words[value]);
        std::memcpy(out, words[value], sizeof words[value]);
        output_.commit(out + (value ? 4 : 5));
    }
    void other_number(std::uint16_t kind, std::uint64_t value) {
        static constexpr NotFinite not_finite{R"("NaN")", R"("Infinity")", R"("-Infinity")"};
        // Readers with floating-point numbers keep 53 bits of a number.
        const bool quoted = size_of_element(kind) == 8 && kind != VESK_KIND_DOUBLE;
        if (quoted) output_.put('"');
        output_.put_number(kind, value, not_finite);
        if (quoted) output_.put('"');
    }
    void open(char bracket) {
        output_.put(bracket);
        ++level_;
        is_first_ = true;
    }
    void close(char bracket) {
        --level_;
        if (!is_first_) begin_line();
        output_.put(bracket);
        is_first_ = false;
    }
    // What stands in front of a field or element, put at `out`; the position after it.
    char* begin_item(char* out) {
        *out = ',';
        out += !is_first_;
        is_first_ = false;
        if (one_line_) return out;
        *out = '\n';
        std::memset(out + 1, ' ', blanks());
        return out + 1 + blanks();
    }
    std::uint32_t blanks() const { return level_ * blanks_a_level; }
    void begin_line() {
        if (one_line_) return;
        output_.put('\n');
        output_.put_blanks(blanks());
    }
    void put_name(const vesk_field* field) {
        char* const out = begin_item(output_.reserve(Output::most_reserved));
        const Names::Name& name = names_.of(field);
        if (name.length == 0) [[unlikely]]
            return put_long_name(field, out);
        std::memcpy(out, name.text, sizeof name.text);
        output_.commit(out + name.length - (one_line_ ? 1 : 0));
    }
    void put_long_name(const vesk_field* field, char* out);
    const std::uint8_t* put_plain(const std::uint8_t* at, const std::uint8_t* end);
    void put_escaped(std::uint8_t character);
    void put_unit(std::uint32_t unit);

    Output& output_;
    Names names_;
    bool one_line_;
    bool lossless_;
    bool is_first_ = true;
    std::uint32_t level_ = 0;
};

// Whether a character may stand in a string as it is.
constexpr bool is_plain(std::uint8_t byte) { return byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\'; }

constexpr std::uint64_t in_every_byte(std::uint8_t byte) { return std::uint64_t{byte} * 0x0101010101010101; }

// Whether all of eight may. Of a byte below 0x80 each sum has the high bit unless it is the one that is looked for.
constexpr bool are_plain(std::uint64_t word) {
    const std::uint64_t low = word & in_every_byte(0x7F);
    const std::uint64_t no_controls = low + in_every_byte(0x80 - 0x20);
    const std::uint64_t no_quotes = (low ^ in_every_byte('"')) + in_every_byte(0x7F);
    const std::uint64_t no_backslashes = (low ^ in_every_byte('\\')) + in_every_byte(0x7F);
    const std::uint64_t high_bits = in_every_byte(0x80);
    return (~word & no_controls & no_quotes & no_backslashes & high_bits) == high_bits;
}

// Up to 8 bytes as a word, the first lowest, with blanks for those that are missing.
std::uint64_t load_padded(const std::uint8_t* at, std::size_t size) {
    std::uint64_t word = 0;
    if (size >= sizeof word) {
        read_fixed(at, at + sizeof word, &word);
        return word;
    }
    if (size >= 4) {
        std::uint32_t first = 0;
        std::uint32_t last = 0;
        read_fixed(at, at + 4, &first);
        read_fixed(at + size - 4, at + size, &last);
        word = first | std::uint64_t{last} << (size - 4) * 8;
    } else {
        word = at[0] | std::uint64_t{at[size / 2]} << size / 2 * 8 | std::uint64_t{at[size - 1]} << (size - 1) * 8;
    }
    const std::uint64_t of_bytes = (std::uint64_t{1} << size * 8) - 1;
    return word | (in_every_byte(' ') & ~of_bytes);
}

void Json::put_long_name(const vesk_field* field, char* out) {
    const char* const name = vesk_field_name(field);
    output_.commit(out);
    output_.put('"');
    output_.put(name, std::strlen(name));
    output_.put("\": ", one_line_ ? 2 : 3);
}

// \u00e9
void Json::put_unit(std::uint32_t unit) {
    const char escape[] = {'\\',
                           'u',
                           hex_digits[unit >> 12 & 15],
                           hex_digits[unit >> 8 & 15],
                           hex_digits[unit >> 4 & 15],
                           hex_digits[unit & 15]};
    output_.put(escape, sizeof escape);
}

// A character below U+0080 that may not stand in a string.
void Json::put_escaped(std::uint8_t character) {
    switch (character) {
        case '"': return output_.put("\\\"", 2);
        case '\\': return output_.put("\\\\", 2);
        case '\b': return output_.put("\\b", 2);
        case '\f': return output_.put("\\f", 2);
        case '\n': return output_.put("\\n", 2);
        case '\r': return output_.put("\\r", 2);
        case '\t': return output_.put("\\t", 2);
        default: return put_unit(character);
    }
}

// Puts what needs no escape, in stretches; returns the position after it.
const std::uint8_t* Json::put_plain(const std::uint8_t* at, const std::uint8_t* end) {
    constexpr std::ptrdiff_t longest = Output::most_reserved - 8;  // for the last word
    while (at != end) {
        const std::uint8_t* const last = end - at < longest ? end : at + longest;
        char* out = output_.reserve(Output::most_reserved);
        while (at != last) {
            const std::size_t size = last - at < 8 ? static_cast<std::size_t>(last - at) : 8;
            const std::uint64_t word = load_padded(at, size);
            if (!are_plain(word)) break;
            store_word(reinterpret_cast<std::uint8_t*>(out), word);
            out += size;
            at += size;
        }
        while (at != last && is_plain(*at)) *out++ = static_cast<char>(*at++);
        output_.commit(out);
        if (at != last) break;
    }
    return at;
}

// False if the string is not UTF-8, and there is no escape for that.
bool Json::string(Data data) {
    const std::uint8_t* const end = data.at + data.length;
    output_.put('"');
    for (const std::uint8_t* at = put_plain(data.at, end); at != end; at = put_plain(at, end)) {
        const unsigned length = measure_utf8(at, end);
        if (length == 1) {
            put_escaped(*at++);
        } else if (length != 0) {
            output_.put(reinterpret_cast<const char*>(at), length);
            at += length;
        } else if (lossless_) {
            put_unit(0xDC00u + *at++);
        } else {
            return false;
        }
    }
    output_.put('"');
    return true;
}

void Json::bytes(Data data) {
    static constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::uint8_t* at = data.at;
    output_.put('"');
    for (std::uint64_t left = data.length; left != 0;) {
        const std::uint32_t taken = left < 3 ? static_cast<std::uint32_t>(left) : 3;
        std::uint32_t group = std::uint32_t{at[0]} << 16;
        if (taken > 1) group |= std::uint32_t{at[1]} << 8;
        if (taken > 2) group |= at[2];
        const char text[] = {digits[group >> 18], digits[group >> 12 & 63], taken > 1 ? digits[group >> 6 & 63] : '=',
                             taken > 2 ? digits[group & 63] : '='};
        output_.put(text, sizeof text);
        at += taken;
        left -= taken;
    }
    output_.put('"');
}

}  // namespace
}  // namespace vesk

int32_t vesk_json_print(const vesk_type* type, const void* message, vesk_text_write write, void* context,
                        vesk_text_report* report, const vesk_text_options* options) {
    return vesk::print_structure<vesk::Json>(type, message, write, context, report, options);
}

int32_t vesk_json_print_encoded(const vesk_type* type, const void* input, uint64_t length, vesk_text_write write,
                                void* context, vesk_text_report* report, const vesk_text_options* options) {
    return vesk::print_encoded<vesk::Json>(type, input, length, write, context, report, options);
}
