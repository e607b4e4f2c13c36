// Printing JSON.
#include "text/printer.hpp"
#include "text/utf8.hpp"

namespace vesk {
namespace {

constexpr std::uint32_t blanks_a_level = 2;
constexpr char hex_digits[] = "0123456789abcdef";

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
        switch (kind) {
            case VESK_KIND_UINT32: return output_.put_decimal(value);
            // Readers with floating-point numbers keep 53 bits of a number.
            case VESK_KIND_UINT64:
                output_.put('"');
                output_.put_decimal(value);
                return output_.put('"');
            case VESK_KIND_BOOL: return value != 0 ? output_.put("true", 4) : output_.put("false", 5);
            default: return other_number(kind, value);
        }
    }
    bool string(Data data);
    void bytes(Data data);

private:
    void other_number(std::uint16_t kind, std::uint64_t value) {
        static constexpr NotFinite not_finite{R"("NaN")", R"("Infinity")", R"("-Infinity")"};
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
    // Character by character: most names have two or three, which a call of memcpy takes longer for.
    void put_name(const vesk_field* field) {
        const char* name = vesk_field_name(field);
        char* out = output_.reserve(Output::most_reserved);
        char* const last = out + Output::most_reserved - 4;
        out = begin_item(out);
        *out++ = '"';
        while (*name != '\0' && out != last) *out++ = *name++;
        if (*name != '\0') [[unlikely]] {
            output_.commit(out);
            output_.put(name, std::strlen(name));
            out = output_.reserve(4);
        }
        *out++ = '"';
        *out++ = ':';
        *out = ' ';
        output_.commit(one_line_ ? out : out + 1);
    }
    const std::uint8_t* put_plain(const std::uint8_t* at, const std::uint8_t* end);
    void put_escaped(std::uint8_t character);
    void put_unit(std::uint32_t unit);

    Output& output_;
    bool one_line_;
    bool lossless_;
    bool is_first_ = true;
    std::uint32_t level_ = 0;
};

// The characters that may stand in a string as they are.
struct Plain {
    bool is_plain[256] = {};
    constexpr Plain() {
        for (int byte = 0x20; byte < 0x80; ++byte) is_plain[byte] = byte != '"' && byte != '\\';
    }
    constexpr bool operator()(std::uint8_t byte) const { return is_plain[byte]; }
};
constexpr Plain plain;

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
    while (at != end && plain(*at)) {
        char* out = output_.reserve(Output::most_reserved);
        char* const last = out + Output::most_reserved;
        while (at != end && plain(*at) && out != last) *out++ = static_cast<char>(*at++);
        output_.commit(out);
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
