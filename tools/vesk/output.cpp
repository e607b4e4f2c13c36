#include "tools/vesk/output.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/progress.hpp"

namespace vesk::tool {
namespace {

constexpr std::size_t most_held = 1 << 16;

// The file that is written aside now, for a signal to take away.
std::atomic<const char*> written_aside{nullptr};

void end_by(int signal) {
    if (const char* const name = written_aside.load()) unlink(name);
    erase_progress_in_handler();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

constexpr int ending_signals[] = {SIGINT, SIGTERM, SIGHUP};

bool wants_colour(int file) {
    const char* const unwanted = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return isatty(file) != 0 && (unwanted == nullptr || *unwanted == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

// Bytes of the UTF-8 character at `at`; 0 if there is none.
std::size_t utf8_length(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() - at < length) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    if (first == 0xE0 && byte(1) < 0xA0) return 0;
    if (first == 0xED && byte(1) > 0x9F) return 0;  // surrogates
    if (first == 0xF0 && byte(1) < 0x90) return 0;
    if (first == 0xF4 && byte(1) > 0x8F) return 0;
    return length;
}

// The character at `at`, or the one byte there if it is none, as a terminal may have it; the position after it.
std::size_t add_visible(std::string_view text, std::size_t at, std::string* to) {
    const std::size_t length = utf8_length(text, at);
    const std::string_view character = text.substr(at, length == 0 ? 1 : length);
    if (length != 0 && !is_control(character)) {
        *to += character;
    } else {
        for (const char byte : character) *to += "\\x" + hex_of(byte);
    }
    return at + character.size();
}

}  // namespace

Output* Output::standard_ = nullptr;

Output::Output()
    : name_("standard output"), file_(STDOUT_FILENO), terminal_(isatty(file_) != 0), coloured_(wants_colour(file_)) {
    standard_ = this;
}

void Output::flush_standard() {
    if (standard_ != nullptr) standard_->flush();
}

Output::Output(const std::string& name)
    : name_(quote_name(name)), target_(name), file_(-1), terminal_(false), coloured_(false) {
    struct stat status {};
    if (stat(name.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        file_ = open(name.c_str(), O_WRONLY | O_CLOEXEC);
    } else {
        open_aside();
    }
    if (file_ < 0) throw OutputFailure(name_ + ": " + because(errno));
}

// The signals wait until there is a name to take away.
void Output::open_aside() {
    if (char* const real = realpath(target_.c_str(), nullptr)) {
        target_ = real;
        std::free(real);
    }
    aside_ = target_ + ".XXXXXX";
    sigset_t ending;
    sigset_t before;
    sigemptyset(&ending);
    for (const int signal : ending_signals) sigaddset(&ending, signal);
    pthread_sigmask(SIG_BLOCK, &ending, &before);
    file_ = mkostemp(aside_.data(), O_CLOEXEC);
    const int why = errno;
    if (file_ >= 0) {
        const mode_t mask = umask(0);
        umask(mask);
        fchmod(file_, 0666 & ~mask);
        written_aside = aside_.c_str();
        for (const int signal : ending_signals) {
            if (std::signal(signal, end_by) == SIG_IGN) std::signal(signal, SIG_IGN);  // as whoever called wants it
        }
    } else {
        aside_.clear();
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = why;
}

Output::~Output() {
    if (standard_ == this) standard_ = nullptr;
    if (file_ != STDOUT_FILENO && file_ >= 0) ::close(file_);
    if (aside_.empty()) return;
    unlink(aside_.c_str());
    written_aside = nullptr;
}

std::string Output::in(Ink ink, const std::string& text) const {
    static constexpr const char* colours[] = {"34", "35", "32", "33", "2", "32", "1;31"};
    return coloured_ ? "\033[" + std::string(colours[static_cast<std::size_t>(ink)]) + "m" + text + "\033[0m" : text;
}

void Output::write(std::string_view text) {
    held_ += text;
    if (held_.size() >= most_held) flush();
}

std::int32_t Output::write_to(const char* text, std::size_t length, void* context) {
    Output& output = *static_cast<Output*>(context);
    try {
        output.write({text, length});
        return 0;
    } catch (...) {
        output.failure_ = std::current_exception();
        return 1;
    }
}

void Output::flush() {
    if (terminal_) Progress::end();
    std::size_t at = 0;
    while (at < held_.size()) {
        const ssize_t written = ::write(file_, held_.data() + at, held_.size() - at);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0 && errno == EAGAIN) {
            wait_until(file_, POLLOUT);
            continue;
        }
        if (written < 0) {
            const int why = errno;
            held_.clear();
            throw OutputFailure(name_ + ": " + because(why));
        }
        at += static_cast<std::size_t>(written);
    }
    held_.clear();
}

void Output::close() {
    flush();
    if (aside_.empty()) return;
    if (fsync(file_) != 0 || rename(aside_.c_str(), target_.c_str()) != 0)
        throw OutputFailure(name_ + ": " + because(errno));
    written_aside = nullptr;
    aside_.clear();
}

void wait_until(int file, short events) {
    pollfd it{file, events, 0};
    poll(&it, 1, -1);
}

std::string counted(std::uint64_t count, const std::string& what, const std::string& ending) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : ending);
}

bool is_control(std::string_view character) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(character[i]); };
    const auto ends_from = [&](unsigned char first, unsigned char last) {
        return byte(character.size() - 1) >= first && byte(character.size() - 1) <= last;
    };
    if (character.size() == 1) return byte(0) < 0x20 || byte(0) == 0x7F;
    if (character.starts_with("\xC2")) return ends_from(0x80, 0x9F);  // U+0080 to U+009F
    if (character.starts_with("\xE2\x80")) {                          // U+200B to U+200F, U+2028 to U+202E
        return ends_from(0x8B, 0x8F) || ends_from(0xA8, 0xAE);
    }
    if (character.starts_with("\xE2\x81")) return ends_from(0xA0, 0xAF);  // U+2060 to U+206F
    return character == "\xD8\x9C" || character == "\xEF\xBB\xBF";        // U+061C, U+FEFF
}

std::string visible(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) at = add_visible(text, at, &result);
    return result;
}

std::string hex_of(char byte) {
    constexpr char digits[] = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(byte);
    return {digits[value >> 4], digits[value & 15]};
}

std::string quote(std::string_view text, std::size_t most) {
    std::string quoted = "\"";
    std::size_t at = 0;
    while (at < text.size() && at < most) {
        if (text[at] == '"' || text[at] == '\\') quoted += '\\';
        at = add_visible(text, at, &quoted);
    }
    quoted += '"';
    if (at < text.size()) quoted += " and " + counted(text.size() - at, "byte") + " more";
    return quoted;
}

std::string quote_name(const std::string& name) {
    const std::string quoted = quote(name, name.size());
    return quoted.size() == name.size() + 2 ? name : quoted;
}

void append_json(std::string& json, std::string_view text) {
    const auto is_plain = [](char character) {
        return character >= 0x20 && character < 0x7F && character != '"' && character != '\\';
    };
    if (std::all_of(text.begin(), text.end(), is_plain)) {
        json += text;
        return;
    }
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = utf8_length(text, at);
        const std::string_view character = text.substr(at, length == 0 ? 1 : length);
        const auto first = static_cast<unsigned char>(character[0]);
        if (length == 0) {
            json += "\\udc" + hex_of(character[0]);
        } else if (character == "\"" || character == "\\") {
            json += '\\';
            json += character;
        } else if (first < 0x20 || first == 0x7F) {
            json += "\\u00" + hex_of(character[0]);
        } else {
            json += character;
        }
        at += character.size();
    }
}

std::string html_escape(std::string_view text) {
    std::string escaped_text;
    for (const char character : text) {
        switch (character) {
            case '&': escaped_text += "&amp;"; break;
            case '<': escaped_text += "&lt;"; break;
            case '>': escaped_text += "&gt;"; break;
            case '"': escaped_text += "&quot;"; break;
            case '\'': escaped_text += "&#39;"; break;
            default: escaped_text += character;
        }
    }
    return escaped_text;
}

}  // namespace vesk::tool
