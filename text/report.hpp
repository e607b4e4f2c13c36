// Options and reports as this version of the library knows them, whatever version the caller was compiled with.
#pragma once

#include <vesk/vesk_text.h>

#include <cstdint>
#include <cstring>

#include "toolkit/options.hpp"
#include "toolkit/path.hpp"

namespace vesk {

inline vesk_text_options read_text_options(const vesk_text_options* given) {
    vesk_text_options options = vesk_default_text_options();
    if (given != nullptr) copy_common(options, given, given->size);
    return options;
}

// What a call has come to so far; the first error stays.
class Outcome {
public:
    Outcome() { std::memset(&report_, 0, sizeof report_); }

    bool ok() const { return report_.code == VESK_OK; }
    std::int32_t code() const { return report_.code; }

    // Returns false, so that whoever fails can return what this returns.
    bool fail(std::int32_t code, const Place* place, const char* reason) {
        if (ok()) {
            report_.code = code;
            print_path(place, report_.path);
            add_reason(reason);
        }
        return false;
    }
    bool fail(std::int32_t code, const Place* place) { return fail(code, place, vesk_text_result_text(code)); }

    // More of the reason; what does not fit is cut off.
    void add_reason(const char* text) { add_reason(text, std::strlen(text)); }
    void add_reason(const char* text, std::size_t length) {
        const std::size_t used = std::strlen(report_.reason);
        const std::size_t room = sizeof report_.reason - 1 - used;
        std::memcpy(report_.reason + used, text, length < room ? length : room);
    }

    // The text's own words: in quotes, and in one line.
    void add_quoted(const char* text, std::size_t length) {
        std::size_t most = 40;
        while (most < length && (text[most] & 0xC0) == 0x80) --most;  // whole characters
        add_reason("\"");
        for (std::size_t i = 0; i < length && i < most; ++i) {
            const char character = text[i];
            const bool is_control = static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
            add_reason(is_control ? "?" : &character, 1);
        }
        add_reason(length > most ? "...\"" : "\"");
    }

    vesk_text_report& report() { return report_; }

    // The result, and the report for who wants it.
    std::int32_t finish(vesk_text_report* report) const {
        if (report != nullptr) write_common(report, report_);
        return report_.code;
    }

private:
    vesk_text_report report_;
};

}  // namespace vesk
