// The bytes that a verb works on: of a file or of standard input, raw, hexadecimal or base64, whole or as frames.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vesk::tool {

enum class Form { raw, hex, base64 };

// A file or standard input as it was when it was opened: a regular file is mapped, anything else is read to its end.
class Input {
public:
    // `name` is "-" for standard input. Throws Failure: "NAME: why".
    Input(const std::string& name, Form form);
    ~Input();
    Input(Input&& other) noexcept;
    Input& operator=(Input&&) = delete;
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    const std::string& name() const { return name_; }
    const std::uint8_t* data() const { return data_; }
    std::uint64_t size() const { return size_; }

private:
    void map(int file, std::uint64_t size);
    void read_all(int file);
    void decode(Form form);
    void unmap();

    std::string name_;
    std::vector<std::uint8_t> bytes_;
    void* mapped_ = nullptr;
    std::uint64_t mapped_size_ = 0;
    const std::uint8_t* data_ = nullptr;
    std::uint64_t size_ = 0;
};

// Throws Failure.
std::vector<std::uint8_t> from_hex(std::string_view text, const std::string& name);
std::vector<std::uint8_t> from_base64(std::string_view text, const std::string& name);

// Bytes as they are to be written: as they are, or as a line of text.
std::string in_form(std::string_view bytes, Form form);

// One frame of the exchange: its kind and body.
struct Frame {
    std::uint32_t kind;
    std::string type;  // that its kind names; empty if none does
    const std::uint8_t* body;
    std::uint64_t length;
};

// The frames of a stream. Throws Failure where it is none, or is cut short.
std::vector<Frame> read_frames(const Input& input);

}  // namespace vesk::tool
