#include "tools/vesk/documents.hpp"

#include <cstdio>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/spans.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::tool {
namespace {

// Bytes that are not UTF-8 survive a way there and back.
vesk_text_options lossless() {
    vesk_text_options options = vesk_default_text_options();
    options.flags = VESK_TEXT_LOSSLESS;
    return options;
}

// JSON may have the control characters U+007F to U+009F as they are; a terminal takes them for commands.
class WithoutControls {
public:
    WithoutControls(vesk_text_write write, void* context) : write_(write), context_(context) {}

    // A vesk_text_write; a character may be cut in two.
    static std::int32_t write_to(const char* text, std::size_t length, void* context) {
        WithoutControls& self = *static_cast<WithoutControls*>(context);
        self.plain_.clear();
        for (const char character : std::string_view(text, length)) self.put(character);
        return self.plain_.empty() ? 0 : self.write_(self.plain_.data(), self.plain_.size(), self.context_);
    }

private:
    static constexpr unsigned char first_of_two = 0xC2;  // of U+0080 to U+00BF

    void put(char character) {
        const auto byte = static_cast<unsigned char>(character);
        if (held_) {
            held_ = false;
            if (byte < 0xA0) return escape(byte);
            plain_ += static_cast<char>(first_of_two);
        } else if (byte == first_of_two) {
            held_ = true;
            return;
        } else if (byte == 0x7F) {
            return escape(byte);
        }
        plain_ += character;
    }

    void escape(unsigned code_point) {
        char text[8];
        std::snprintf(text, sizeof text, "\\u%04x", code_point);
        plain_ += text;
    }

    vesk_text_write write_;
    void* context_;
    bool held_ = false;
    std::string plain_;
};

std::string place_of(const vesk_text_report& report) {
    if (report.line == 0) return "";
    return ":" + std::to_string(report.line) + ":" + std::to_string(report.column);
}

std::string reason_of(const vesk_text_report& report) {
    return (report.path[0] != '\0' ? std::string(report.path) + ": " : "") + report.reason;
}

}  // namespace

void print_document(const vesk_type* type, const std::string& name, const void* bytes, std::uint64_t length,
                    Format format, vesk_text_write write, void* context) {
    const vesk_text_options options = lossless();
    vesk_text_report report;
    report.size = sizeof report;
    WithoutControls safe(write, context);
    const std::int32_t code =
        format == Format::json
            ? vesk_json_print_encoded(type, bytes, length, WithoutControls::write_to, &safe, &report, &options)
            : vesk_text_print_encoded(type, bytes, length, write, context, &report, &options);
    if (code == VESK_OK || code == VESK_STOPPED) return;
    const vesk_report why = check(type, static_cast<const std::uint8_t*>(bytes), length);
    throw Failure(quote_name(name) + ": " + (why.code != VESK_OK ? verdict(why) : reason_of(report)));
}

std::string encode_document(const vesk_type* type, const std::string& name, std::string_view text, Format format) {
    Message message(type);
    const vesk_text_options options = lossless();
    vesk_text_report report;
    report.size = sizeof report;
    const auto parse = format == Format::json ? vesk_json_parse : vesk_text_parse;
    std::int32_t code =
        parse(type, message.get(), text.data(), text.size(), vesk_arena_alloc, message.arena(), &report, &options);
    if (code != VESK_OK) throw Failure(quote_name(name) + place_of(report) + ": " + reason_of(report));
    void* bytes;
    std::uint64_t length;
    code = vesk_encode(type, message.get(), vesk_arena_alloc, message.arena(), &bytes, &length);
    if (code != VESK_OK) throw Failure(quote_name(name) + ": " + vesk_toolkit_result_text(code));
    return {static_cast<const char*>(bytes), length};
}

}  // namespace vesk::tool
