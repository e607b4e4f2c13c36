#include "tools/vesk/input.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>

#include "tools/vesk/failure.hpp"

namespace vesk::tool {
namespace {

class File {
public:
    File(const std::string& name) : number_(name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (number_ < 0) throw Failure(name + ": " + std::strerror(errno));
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
    throw Failure(name + ": " + what + " at character " + std::to_string(at + 1));
}

constexpr std::uint64_t header_length = 12;
constexpr std::uint8_t magic[] = {0x56, 0x53, 0x4B, 0x31};

std::uint32_t read_number(const std::uint8_t* at) {
    return std::uint32_t{at[0]} << 24 | std::uint32_t{at[1]} << 16 | std::uint32_t{at[2]} << 8 | at[3];
}

const char* const types_of_frames[] = {
    "", "req_inv_data", "req_inv_data_by_type", "req_inv_data_by_eid", "resp_inv_data", "resp_inv_data_by_eid"};

}  // namespace

std::vector<std::uint8_t> from_hex(std::string_view text, const std::string& name) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 2);
    int high = -1;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (is_blank(text[at])) continue;
        const int digit = digit_of(text[at]);
        if (digit < 0) fail_at(name, at, "no hexadecimal digit");
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high << 4 | digit));
            high = -1;
        }
    }
    if (high >= 0) throw Failure(name + ": an odd number of hexadecimal digits");
    return bytes;
}

std::vector<std::uint8_t> from_base64(std::string_view text, const std::string& name) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    unsigned held = 0;
    std::size_t sextets = 0;
    bool padded = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (is_blank(text[at])) continue;
        if (text[at] == '=') {
            padded = true;
            continue;
        }
        const int sextet = sextet_of(text[at]);
        if (sextet < 0 || padded) fail_at(name, at, "no base64");
        bits = bits << 6 | static_cast<std::uint32_t>(sextet);
        held += 6;
        ++sextets;
        if (held >= 8) {
            held -= 8;
            bytes.push_back(static_cast<std::uint8_t>(bits >> held));
        }
    }
    if (sextets % 4 == 1) throw Failure(name + ": base64 that is cut short");
    return bytes;
}

std::string in_form(std::string_view bytes, Form form) {
    if (form == Form::raw) return std::string(bytes);
    std::string text;
    if (form == Form::hex) {
        for (const char byte : bytes) {
            text += "0123456789abcdef"[static_cast<unsigned char>(byte) >> 4];
            text += "0123456789abcdef"[byte & 15];
        }
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
    if (fstat(file.number(), &status) != 0) throw Failure(name + ": " + std::strerror(errno));
    if (S_ISDIR(status.st_mode)) throw Failure(name + ": is a directory");
    // What is mapped and shrinks meanwhile would end the program, so a file of some pages is read.
    constexpr off_t worth_mapping = 1 << 24;
    if (S_ISREG(status.st_mode) && status.st_size >= worth_mapping && form == Form::raw) {
        map(file.number(), static_cast<std::uint64_t>(status.st_size));
    } else {
        read_all(file.number());
    }
    if (form != Form::raw) decode(form);
}

Input::Input(Input&& other) noexcept
    : name_(std::move(other.name_)),
      bytes_(std::move(other.bytes_)),
      mapped_(other.mapped_),
      mapped_size_(other.mapped_size_),
      data_(other.data_),
      size_(other.size_) {
    other.mapped_ = nullptr;
}

Input::~Input() {
    if (mapped_ != nullptr) munmap(mapped_, mapped_size_);
}

void Input::map(int file, std::uint64_t size) {
    void* const at = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0);
    if (at == MAP_FAILED) return read_all(file);
    mapped_ = at;
    mapped_size_ = size;
    data_ = static_cast<const std::uint8_t*>(at);
    size_ = size;
}

void Input::read_all(int file) {
    std::uint8_t block[65536];
    while (true) {
        const ssize_t got = read(file, block, sizeof block);
        if (got == 0) break;
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw Failure(name_ + ": " + std::strerror(errno));
        bytes_.insert(bytes_.end(), block, block + got);
    }
    data_ = bytes_.data();
    size_ = bytes_.size();
}

void Input::decode(Form form) {
    const std::string_view text(reinterpret_cast<const char*>(data_), size_);
    bytes_ = form == Form::hex ? from_hex(text, name_) : from_base64(text, name_);
    data_ = bytes_.data();
    size_ = bytes_.size();
}

std::vector<Frame> read_frames(const Input& input) {
    std::vector<Frame> frames;
    std::uint64_t at = 0;
    while (at < input.size()) {
        const std::uint8_t* const header = input.data() + at;
        const std::string place =
            input.name() + ": frame " + std::to_string(frames.size()) + " at byte " + std::to_string(at);
        if (input.size() - at < header_length) throw Failure(place + ": its header is cut short");
        if (std::memcmp(header, magic, sizeof magic) != 0) throw Failure(place + ": does not begin with VSK1");
        const std::uint32_t kind = read_number(header + 4);
        const std::uint32_t length = read_number(header + 8);
        if (input.size() - at - header_length < length) {
            throw Failure(place + ": its body of " + std::to_string(length) + " bytes is cut short");
        }
        const bool known = kind < std::size(types_of_frames);
        frames.push_back({kind, known ? types_of_frames[kind] : "", header + header_length, length});
        at += header_length + length;
    }
    return frames;
}

}  // namespace vesk::tool
