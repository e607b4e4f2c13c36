// Printing the text format, as protobuf prints it.
#include "text/printer.hpp"

namespace vesk {
namespace {

constexpr std::uint32_t blanks_a_level = 2;

class Text {
public:
    Text(Output& output, std::uint32_t flags) : output_(output), one_line_((flags & VESK_TEXT_ONE_LINE) != 0) {}

    void begin_text() {}
    void end_text() {}

    void begin_field(const vesk_field* field) { put_name(field, ": "); }
    void end_field() { end_line(); }
    void begin_list(const vesk_field*) {}
    void end_list() {}
    void begin_message(const vesk_field* field) {
        put_name(field, one_line_ ? " {" : " {\n");
        ++level_;
    }
    void begin_element(const vesk_field* field) { begin_message(field); }
    void end_message() {
        --level_;
        begin_line();
        output_.put('}');
        end_line();
    }

    void begin_value(const vesk_field* field) { begin_field(field); }
    void end_value() { end_field(); }

    void number(std::uint16_t kind, std::uint64_t value) {
        static constexpr NotFinite not_finite{"nan", "inf", "-inf"};
        if (kind == VESK_KIND_BOOL) return value != 0 ? output_.put("true", 4) : output_.put("false", 5);
        output_.put_number(kind, value, not_finite);
    }
    // The escapes say any byte.
    bool string(Data data) {
        bytes(data);
        return true;
    }
    void bytes(Data data);

private:
    void put_name(const vesk_field* field, const char* after) {
        begin_line();
        const char* const name = vesk_field_name(field);
        output_.put(name, std::strlen(name));
        output_.put(after, std::strlen(after));
    }
    void begin_line() {
        if (!one_line_) return output_.put_blanks(level_ * blanks_a_level);
        if (!is_first_) output_.put(' ');
        is_first_ = false;
    }
    void end_line() {
        if (!one_line_) output_.put('\n');
    }
    void put_escaped(std::uint8_t byte);

    Output& output_;
    bool one_line_;
    bool is_first_ = true;
    std::uint32_t level_ = 0;
};

constexpr bool needs_no_escape(std::uint8_t byte) {
    return byte >= 0x20 && byte < 0x7F && byte != '"' && byte != '\'' && byte != '\\';
}

void Text::put_escaped(std::uint8_t byte) {
    const char digits[] = {'\\', static_cast<char>('0' + (byte >> 6)), static_cast<char>('0' + (byte >> 3 & 7)),
                           static_cast<char>('0' + (byte & 7))};
    switch (byte) {
        case '\n': return output_.put("\\n", 2);
        case '\r': return output_.put("\\r", 2);
        case '\t': return output_.put("\\t", 2);
        case '"': return output_.put("\\\"", 2);
        case '\'': return output_.put("\\'", 2);
        case '\\': return output_.put("\\\\", 2);
        default: return output_.put(digits, sizeof digits);
    }
}

void Text::bytes(Data data) {
    const std::uint8_t* at = data.at;
    const std::uint8_t* const end = at + data.length;
    output_.put('"');
    while (at != end) {
        const std::uint8_t* const run = at;
        while (at != end && needs_no_escape(*at)) ++at;
        output_.put(reinterpret_cast<const char*>(run), static_cast<std::size_t>(at - run));
        if (at != end) put_escaped(*at++);
    }
    output_.put('"');
}

}  // namespace
}  // namespace vesk

int32_t vesk_text_print(const vesk_type* type, const void* message, vesk_text_write write, void* context,
                        vesk_text_report* report, const vesk_text_options* options) {
    return vesk::print_structure<vesk::Text>(type, message, write, context, report, options);
}

int32_t vesk_text_print_encoded(const vesk_type* type, const void* input, uint64_t length, vesk_text_write write,
                                void* context, vesk_text_report* report, const vesk_text_options* options) {
    return vesk::print_encoded<vesk::Text>(type, input, length, write, context, report, options);
}
