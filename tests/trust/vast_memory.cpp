#include "tests/trust/vast_memory.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <new>
#include <stdexcept>

namespace vesk::test {
namespace {

std::uint8_t* map(void* address, std::uint64_t size, int protection, int flags, int file) {
    void* mapped = mmap(address, size, protection, flags, file, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    return static_cast<std::uint8_t*>(mapped);
}

constexpr int writable = PROT_READ | PROT_WRITE;
constexpr int own = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;

}  // namespace

// From the low addresses up: a page nobody can touch, the own start, the pieces, the own end, and such a page again.
VastMemory::VastMemory(std::uint64_t size) : size_(size) {
    const std::uint64_t page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    const std::uint64_t whole_pages = (size + page - 1) / page * page;
    piece_count_ = whole_pages < 2 * own_size ? 0 : (whole_pages - 2 * own_size) / piece_size;
    mapped_ = whole_pages + 2 * page;
    mapping_ = map(nullptr, mapped_, PROT_NONE, own, -1);
    map(mapping_ + page, whole_pages, writable, own | MAP_FIXED, -1);
    data_ = mapping_ + page + whole_pages - size;

    const std::uint64_t own_start = whole_pages - own_size - piece_count_ * piece_size;
    pieces_ = mapping_ + page + own_start;
    const int file = memfd_create("piece", 0);
    if (file < 0 || ftruncate(file, piece_size) != 0) throw std::bad_alloc();
    for (std::uint64_t i = 0; i < piece_count_; ++i) {
        map(pieces_ + i * piece_size, piece_size, writable, MAP_SHARED | MAP_FIXED | MAP_POPULATE, file);
    }
    close(file);
}

VastMemory::~VastMemory() { munmap(mapping_, mapped_); }

void VastMemory::fill(const Bytes& pattern) {
    const auto repeat = [&](std::uint8_t* first, const std::uint8_t* last) {
        for (std::uint8_t* at = first; at < last; ++at) *at = pattern[(at - data_) % pattern.size()];
    };
    if (piece_count_ != 0 && piece_size % pattern.size() != 0) throw std::invalid_argument("no pattern that repeats");
    repeat(data_, pieces_ + std::min<std::uint64_t>(piece_count_, 1) * piece_size);
    repeat(pieces_ + piece_count_ * piece_size, data_ + size_);
}

void VastMemory::write_at_start(const Bytes& bytes) {
    if (bytes.size() > own_size) throw std::length_error("not so much at the start");
    std::copy(bytes.begin(), bytes.end(), data_);
}

void VastMemory::write_at_end(const Bytes& bytes) {
    if (bytes.size() > own_size) throw std::length_error("not so much at the end");
    std::copy(bytes.begin(), bytes.end(), data_ + size_ - bytes.size());
}

bool VastMemory::holds_only(std::uint8_t byte, std::size_t length) const {
    const auto is_all = [&](const std::uint8_t* first, const std::uint8_t* last) {
        return std::all_of(first, last, [&](std::uint8_t each) { return each == byte; });
    };
    const std::uint64_t distinct = std::min<std::uint64_t>(piece_count_, 1) * piece_size;
    return is_all(data_ + length, pieces_ + distinct) &&
           is_all(pieces_ + piece_count_ * piece_size, data_ + size_ - length);
}

std::uint64_t proportional_memory() {
    std::ifstream file("/proc/self/smaps_rollup");
    for (std::string word; file >> word;) {
        std::uint64_t kilobytes;
        if (word == "Pss:" && file >> kilobytes) return kilobytes * 1024;
    }
    throw std::runtime_error("/proc/self/smaps_rollup does not say what this process takes");
}

}  // namespace vesk::test
