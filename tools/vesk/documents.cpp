#include "tools/vesk/documents.hpp"

#include <cstdio>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/pre_flight.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::tool {
namespace {

// Bytes that are not UTF-8 survive a way there and back.
vesk_text_options lossless() {
    vesk_text_options options = vesk_default_text_options();
    options.flags = VESK_TEXT_LOSSLESS;
    return options;
}

// JSON may have control characters from U+007F on as they are; a terminal obeys them.
class WithoutControls {
public:
    WithoutControls(vesk_text_write write, void* context) : write_(write), context_(context) {}

    // A vesk_text_write; a character may be cut in two.
    static std::int32_t write_to(const char* text, std::size_t length, void* context) {
        WithoutControls& self = *static_cast<WithoutControls*>(context);
        self.plain_.clear();
        for (const char byte : std::string_view(text, length)) self.put(byte);
        return self.plain_.empty() ? 0 : self.write_(self.plain_.data(), self.plain_.size(), self.context_);
    }

private:
    // Of JSON's text: UTF-8, and line ends between its strings.
    void put(char character) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x7F) {
            plain_ += character;
            return;
        }
        if (held_.empty()) size_ = byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
        held_ += character;
        if (held_.size() < size_) return;
        plain_ += is_control(held_) ? escape(held_) : held_;
        held_.clear();
    }

    // Of a character of up to three bytes: none of four is a control character.
    static std::string escape(std::string_view character) {
        constexpr unsigned of_first[] = {0, 0x7F, 0x1F, 0x0F};
        unsigned code_point = static_cast<unsigned char>(character[0]) & of_first[character.size()];
        for (const char byte : character.substr(1))
            code_point = code_point << 6 | (static_cast<unsigned char>(byte) & 0x3F);
        char text[8];
        std::snprintf(text, sizeof text, "\\u%04x", code_point & 0xFFFF);
        return text;
    }

    vesk_text_write write_;
    void* context_;
    std::string held_;  // the beginning of a character
    std::size_t size_ = 0;
    std::string plain_;
};

std::string place_of(const vesk_text_report& report) {
    if (report.line == 0) return "";
    return ":" + std::to_string(report.line) + ":" + std::to_string(report.column);
}

std::string reason_of(const vesk_text_report& report) {
    return (report.path[0] != '\0' ? std::string(report.path) + ": " : "") + visible(report.reason);
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
    return {static_cast<const char*>(bytes), static_cast<std::size_t>(length)};
}

}  // namespace vesk::tool
