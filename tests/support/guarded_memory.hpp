// Memory between two pages that nobody can touch: one byte too far, read or written, ends the program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vesk::test {

class GuardedMemory {
public:
    // Throws std::bad_alloc if the pages cannot be had.
    explicit GuardedMemory(std::size_t capacity);
    ~GuardedMemory();
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    // Behind the first untouchable page.
    std::uint8_t* begin() const { return begin_; }
    // `length` bytes before the second one.
    std::uint8_t* before_end(std::size_t length) const { return begin_ + capacity_ - length; }

    // Between the pages; from then on a write ends the program as well, or is allowed again.
    void forbid_writing() const;
    void allow_writing() const;

private:
    std::size_t page_;
    std::size_t capacity_;  // whole pages
    std::uint8_t* begin_;
};

// What is tried from now on. If it touches an untouchable page, the program says so before it ends.
void announce_attempt(const char* what, const std::string& type, std::size_t length);

}  // namespace vesk::test
