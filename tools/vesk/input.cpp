#include "tools/vesk/input.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"

namespace vesk::tool {
namespace {

[[noreturn]] void fail(const std::string& name, int why) { throw Failure(quote_name(name) + ": " + because(why)); }

class File {
public:
    explicit File(const std::string& name)
        : number_(name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (number_ < 0) fail(name, errno);
    }
    ~File() {
        if (number_ != STDIN_FILENO) close(number_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    int number() const { return number_; }

private:
    int number_;
};

int digit_of(char character) {
    if (character >= '0' && character <= '9') return character - '0';
    if (character >= 'a' && character <= 'f') return character - 'a' + 10;
    if (character >= 'A' && character <= 'F') return character - 'A' + 10;
    return -1;
}

int sextet_of(char character) {
    if (character >= 'A' && character <= 'Z') return character - 'A';
    if (character >= 'a' && character <= 'z') return character - 'a' + 26;
    if (character >= '0' && character <= '9') return character - '0' + 52;
    if (character == '+' || character == '-') return 62;
    if (character == '/' || character == '_') return 63;
    return -1;
}

bool is_blank(char character) { return std::isspace(static_cast<unsigned char>(character)) != 0; }

[[noreturn]] void fail_at(const std::string& name, std::size_t at, const std::string& what) {
    throw Failure(quote_name(name) + ": " + what + " at character " + std::to_string(at + 1));
}

constexpr std::uint64_t header_length = 12;
constexpr std::uint8_t magic[] = {0x56, 0x53, 0x4B, 0x31};

std::uint32_t read_number(const std::uint8_t* at) {
    return std::uint32_t{at[0]} << 24 | std::uint32_t{at[1]} << 16 | std::uint32_t{at[2]} << 8 | at[3];
}

const char* const types_of_frames[] = {
    nullptr, "req_inv_data", "req_inv_data_by_type", "req_inv_data_by_eid", "resp_inv_data", "resp_inv_data_by_eid"};

}  // namespace

std::size_t read_hex(std::uint8_t* text, std::size_t length, const std::string& name) {
    std::size_t digits = 0;
    unsigned high = 0;
    for (std::size_t at = 0; at < length; ++at) {
        const char character = static_cast<char>(text[at]);
        if (is_blank(character)) continue;
        const int digit = digit_of(character);
        if (digit < 0) fail_at(name, at, "no hexadecimal digit");
        if (digits++ % 2 == 0) {
            high = static_cast<unsigned>(digit) << 4;
        } else {
            text[digits / 2 - 1] = static_cast<std::uint8_t>(high | static_cast<unsigned>(digit));
        }
    }
    if (digits % 2 != 0) throw Failure(quote_name(name) + ": an odd number of hexadecimal digits");
    return digits / 2;
}

std::size_t read_base64(std::uint8_t* text, std::size_t length, const std::string& name) {
    std::uint32_t bits = 0;
    unsigned held = 0;
    std::size_t sextets = 0;
    std::size_t size = 0;
    bool padded = false;
    for (std::size_t at = 0; at < length; ++at) {
        const char character = static_cast<char>(text[at]);
        if (is_blank(character)) continue;
        if (character == '=') {
            padded = true;
            continue;
        }
        const int sextet = sextet_of(character);
        if (sextet < 0 || padded) fail_at(name, at, "no base64");
        bits = bits << 6 | static_cast<std::uint32_t>(sextet);
        held += 6;
        ++sextets;
        if (held >= 8) {
            held -= 8;
            text[size++] = static_cast<std::uint8_t>(bits >> held);
        }
    }
    if (sextets % 4 == 1) throw Failure(quote_name(name) + ": base64 that is cut short");
    return size;
}

std::string in_form(std::string_view bytes, Form form) {
    if (form == Form::raw) return std::string(bytes);
    std::string text;
    if (form == Form::hex) {
        for (const char byte : bytes) text += hex_of(byte);
        return text + "\n";
    }
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            bits = bits << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0u);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            text += at + i <= bytes.size() ? alphabet[bits >> (18 - 6 * i) & 63] : '=';
        }
    }
    return text + "\n";
}

Input::Input(const std::string& name, Form form) : name_(name) {
    const File file(name);
    struct stat status {};
    if (fstat(file.number(), &status) != 0) fail(name, errno);
    if (S_ISDIR(status.st_mode)) fail(name, EISDIR);
    // Files of the kernel's say that they have 0 bytes.
    const bool has_size = S_ISREG(status.st_mode) && status.st_size > 0;
    read_all(file.number(), has_size ? static_cast<std::uint64_t>(status.st_size) : UINT64_MAX);
    struct stat after {};
    if (fstat(file.number(), &after) != 0) fail(name, errno);
    if (has_size && after.st_size != status.st_size) {
        throw Failure(quote_name(name) + ": had " + std::to_string(status.st_size) + " bytes at first and has " +
                      std::to_string(after.st_size) + " now; try again once nothing writes to it");
    }
    if (form == Form::hex) size_ = read_hex(bytes_.get(), size_, name_);
    if (form == Form::base64) size_ = read_base64(bytes_.get(), size_, name_);
}

// A large block is moved without being copied, so there are never two of them.
void Input::grow(std::uint64_t capacity) {
    auto* const block = static_cast<std::uint8_t*>(std::realloc(bytes_.get(), capacity));
    if (block == nullptr) throw Failure(quote_name(name_) + ": not enough memory");
    static_cast<void>(bytes_.release());
    bytes_.reset(block);
    capacity_ = capacity;
}

void Input::read_all(int file, std::uint64_t most) {
    constexpr std::uint64_t step = 1 << 20;
    while (size_ < most) {
        if (size_ == capacity_) grow(std::min(most, capacity_ + step));
        const ssize_t got = read(file, bytes_.get() + size_, capacity_ - size_);
        if (got == 0) break;
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && errno == EAGAIN) {
            wait_until(file, POLLIN);
            continue;
        }
        if (got < 0) fail(name_, errno);
        size_ += static_cast<std::uint64_t>(got);
    }
}

bool FrameReader::next(Frame* frame) {
    if (at_ == input_.size()) return false;
    const std::uint8_t* const header = input_.data() + at_;
    const std::uint64_t left = input_.size() - at_;
    const auto fail = [&](const std::string& what) {
        throw Failure(quote_name(input_.name()) + ": frame " + std::to_string(count_) + " at byte " +
                      std::to_string(at_) + ": " + what);
    };
    if (left < header_length) fail("its header is cut short");
    if (std::memcmp(header, magic, sizeof magic) != 0) fail("does not begin with VSK1");
    const std::uint32_t kind = read_number(header + 4);
    const std::uint32_t length = read_number(header + 8);
    if (left - header_length < length) fail("its body of " + std::to_string(length) + " bytes is cut short");
    *frame = {kind, kind < std::size(types_of_frames) ? types_of_frames[kind] : nullptr, header + header_length,
              length};
    at_ += header_length + length;
    ++count_;
    return true;
}

}  // namespace vesk::tool
