// Memory of more than 4 GiB that takes almost none: between its first and its last bytes one piece is mapped again and
// again, so that what is written into one repetition is read in all of them.
#pragma once

#include "tests/support/bytes.hpp"

namespace vesk::test {

class VastMemory {
public:
    // The last byte stands before a page that nobody can touch. Throws std::bad_alloc if the memory cannot be had.
    explicit VastMemory(std::uint64_t size);
    ~VastMemory();
    VastMemory(const VastMemory&) = delete;
    VastMemory& operator=(const VastMemory&) = delete;

    std::uint8_t* data() const { return data_; }
    std::uint64_t size() const { return size_; }

    // Repeats one or two bytes from the first one on to the end.
    void fill(const Bytes& pattern);
    // Stores bytes at the start and at the end, of which the first and the last `own_size` are not repeated.
    void write_at_start(const Bytes& bytes);
    void write_at_end(const Bytes& bytes);

    Bytes start(std::size_t length) const { return Bytes(data_, data_ + length); }
    Bytes end(std::size_t length) const { return Bytes(data_ + size_ - length, data_ + size_); }
    // True if the byte stands at every place but the first and the last `length`.
    bool holds_only(std::uint8_t byte, std::size_t length) const;

    static constexpr std::size_t own_size = 1 << 16;

private:
    static constexpr std::size_t piece_size = 2 << 20;

    std::uint64_t size_;
    std::uint64_t mapped_;
    std::uint8_t* mapping_;
    std::uint8_t* data_;
    std::uint8_t* pieces_;  // where the repeated piece stands first
    std::uint64_t piece_count_;
};

// Bytes of memory that this process takes, memory that is mapped several times counted once.
std::uint64_t proportional_memory();

}  // namespace vesk::test
