#include "tests/support/guarded_memory.hpp"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <new>

namespace vesk::test {
namespace {

const char* attempted = "nothing";
const char* attempted_type = "";
std::size_t attempted_length = 0;
struct sigaction earlier_action;

// Says what was tried, and lets the access happen again under the earlier action. Such a fault comes out of an
// instruction of the test's own thread, never out of the middle of printing.
void report_fault(int number) {
    std::fprintf(stderr, "touched memory that is out of bounds: %s of %s, %zu\n", attempted, attempted_type,
                 attempted_length);
    sigaction(number, &earlier_action, nullptr);
}

}  // namespace

GuardedMemory::GuardedMemory(std::size_t capacity) : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
    capacity_ = (capacity / page_ + 1) * page_;
    void* all = mmap(nullptr, capacity_ + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (all == MAP_FAILED) throw std::bad_alloc();
    begin_ = static_cast<std::uint8_t*>(all) + page_;
    allow_writing();
}

GuardedMemory::~GuardedMemory() { munmap(begin_ - page_, capacity_ + 2 * page_); }

void GuardedMemory::forbid_writing() const {
    if (mprotect(begin_, capacity_, PROT_READ) != 0) throw std::bad_alloc();
}

void GuardedMemory::allow_writing() const {
    if (mprotect(begin_, capacity_, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
}

void announce_attempt(const char* what, const std::string& type, std::size_t length) {
    attempted = what;
    attempted_type = type.c_str();
    attempted_length = length;
    static const int installed = [] {
        struct sigaction action {};
        action.sa_handler = report_fault;
        return sigaction(SIGSEGV, &action, &earlier_action);
    }();
    static_cast<void>(installed);
}

}  // namespace vesk::test
