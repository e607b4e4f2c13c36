// The bytes that a verb works on: of a file or of standard input, raw, hexadecimal or base64, whole or as frames.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace vesk::tool {

enum class Form { raw, hex, base64 };

// A file or standard input. Of a regular file what it had when it was opened, so that one that grows comes to an end;
// one that has another size then is refused. Takes as much memory as its file has bytes, and no more on the way there.
class Input {
public:
    // `name` is "-" for standard input. Throws Failure: "NAME: why".
    Input(const std::string& name, Form form);

    const std::string& name() const { return name_; }
    const std::uint8_t* data() const { return bytes_.get(); }
    std::uint64_t size() const { return size_; }

private:
    struct Free {
        void operator()(std::uint8_t* block) const { std::free(block); }
    };

    void grow(std::uint64_t capacity);
    void read_all(int file, std::uint64_t most);

    std::string name_;
    std::unique_ptr<std::uint8_t[], Free> bytes_;
    std::uint64_t capacity_ = 0;
    std::uint64_t size_ = 0;
};

// What a text says, in its place; returns its length in bytes. Throws Failure: "NAME: why".
std::size_t read_hex(std::uint8_t* text, std::size_t length, const std::string& name);
std::size_t read_base64(std::uint8_t* text, std::size_t length, const std::string& name);

// Bytes as they are to be written: as they are, or as a line of text.
std::string in_form(std::string_view bytes, Form form);

// One frame of the exchange: its kind and body.
struct Frame {
    std::uint32_t kind;
    const char* type;  // that its kind names; null if it names none
    const std::uint8_t* body;
    std::uint64_t length;
};

// The frames of a stream, one after the other.
class FrameReader {
public:
    explicit FrameReader(const Input& input) : input_(input) {}

    // False at the end of the stream. Throws Failure where there is no frame, or one that is cut short.
    bool next(Frame* frame);
    // Of the frame that was read last, "NAME#0".
    std::string name() const { return input_.name() + "#" + std::to_string(count_ - 1); }

private:
    const Input& input_;
    std::uint64_t at_ = 0;
    std::uint64_t count_ = 0;
};

}  // namespace vesk::tool
