#include "text/output.hpp"

#include <charconv>

namespace vesk {

void Output::flush() {
    if (at_ != buffer_ && !stopped_) {
        stopped_ = write_(buffer_, static_cast<std::size_t>(at_ - buffer_), context_) != 0;
    }
    at_ = buffer_;
}

void Output::put_in_parts(const char* text, std::size_t length) {
    while (length != 0) {
        if (room() == 0) flush();
        const std::size_t part = length < room() ? length : room();
        std::memcpy(at_, text, part);
        at_ += part;
        text += part;
        length -= part;
    }
}

void Output::put_decimal(std::uint64_t value) {
    constexpr std::size_t most_digits = 20;
    if (room() < most_digits) flush();
    at_ = std::to_chars(at_, buffer_ + sizeof buffer_, value).ptr;
}

}  // namespace vesk
