// What is printed, on its way to the caller's callback: gathered in a buffer, so that the callback is called for
// stretches of some KiB.
#pragma once

#include <vesk/vesk_text.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vesk {

// A format's words for what no decimal says. Arrays, so that the library has no pointers to be relocated.
struct NotFinite {
    char nan[6];
    char infinity[11];
    char minus_infinity[12];
};

class Output {
public:
    Output(vesk_text_write write, void* context) : write_(write), context_(context) {}

    void put(char character) {
        if (at_ == buffer_ + sizeof buffer_) flush();
        *at_++ = character;
    }

    void put(const char* text, std::size_t length) {
        if (length > room()) return put_in_parts(text, length);
        std::memcpy(at_, text, length);
        at_ += length;
    }

    // Room for so many characters, at most `most_reserved`, and that they have been put there. What is put one by one
    // between the two needs no look at the buffer's end.
    static constexpr std::size_t most_reserved = 1024;
    char* reserve(std::size_t size) {
        if (room() < size) flush();
        return at_;
    }
    void commit(char* end) { at_ = end; }

    void put_blanks(std::uint32_t count) {
        for (; count != 0; --count) put(' ');
    }

    void put_decimal(std::uint64_t value);

    // A number (toolkit/kinds.hpp) of any kind but a flag; of a float or double the shortest decimal that is read back
    // as the same.
    void put_number(std::uint16_t kind, std::uint64_t number, const NotFinite& not_finite);

    // Hands on what has been gathered.
    void flush();

    // The callback has asked to stop. What is put from then on is dropped.
    bool has_stopped() const { return stopped_; }

private:
    std::size_t room() const { return static_cast<std::size_t>(buffer_ + sizeof buffer_ - at_); }
    void put_in_parts(const char* text, std::size_t length);

    vesk_text_write write_;
    void* context_;
    bool stopped_ = false;
    char* at_ = buffer_;
    char buffer_[4096];
};

}  // namespace vesk
