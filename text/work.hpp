// The memory that a parser needs until it returns, within the caller's limit.
#pragma once

#include <vesk/vesk_text.h>

#include <cstdint>
#include <cstdlib>

namespace vesk {

class Work {
public:
    explicit Work(const vesk_text_options& options) : options_(options), left_(options.memory_limit) {}

    // Null if there is none, or above the limit.
    void* allocate(std::uint64_t size) {
        if (size > left_ || size > SIZE_MAX) return nullptr;
        void* const block = options_.alloc != nullptr ? options_.alloc(size, options_.context)
                                                      : std::malloc(static_cast<std::size_t>(size));
        if (block != nullptr) left_ -= size;
        return block;
    }

    void release(void* block, std::uint64_t size) {
        if (block == nullptr) return;
        left_ += size;
        if (options_.alloc == nullptr) return std::free(block);
        if (options_.release != nullptr) options_.release(block, options_.context);
    }

private:
    const vesk_text_options& options_;
    std::uint64_t left_;
};

// The text in memory that a parser may write to: strings are decoded where they stand. Zeros follow, so that it ends in
// a NUL and may be read in words.
class WorkingCopy {
public:
    static constexpr std::uint64_t zeros = 16;

    WorkingCopy(Work& work, const char* text, std::uint64_t length) : work_(work), size_(length + zeros) {
        begin_ = static_cast<char*>(work.allocate(size_));
        if (begin_ == nullptr) return;
        if (length != 0) std::memcpy(begin_, text, static_cast<std::size_t>(length));
        std::memset(begin_ + length, 0, zeros);
    }
    ~WorkingCopy() { work_.release(begin_, size_); }
    WorkingCopy(const WorkingCopy&) = delete;
    WorkingCopy& operator=(const WorkingCopy&) = delete;

    char* begin() const { return begin_; }  // null if there is no memory

private:
    Work& work_;
    std::uint64_t size_;
    char* begin_;
};

}  // namespace vesk
