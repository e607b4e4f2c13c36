#include "tools/vesk/progress.hpp"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <string_view>
#include <system_error>

namespace vesk::tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patience{1};
constexpr std::chrono::milliseconds between{200};
constexpr std::string_view eraser = "\r\033[K";
constexpr std::size_t width = 30;

std::atomic<bool> is_shown{false};
std::atomic<Progress*> current{nullptr};

// What does not arrive does not matter: it is a bar.
void put(std::string_view text) {
    if (write(STDERR_FILENO, text.data(), text.size()) < 0) return;
}

}  // namespace

Progress::Progress(std::uint64_t total) : total_(total) {
    if (isatty(STDERR_FILENO) == 0) return;
    current = this;
    // Signals are for the thread that works: a handler that ends the program then ends it in a known place.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    try {
        thread_ = std::thread([this] { draw_again_and_again(); });
    } catch (const std::system_error&) {
        // It goes without a bar.
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Progress::~Progress() {
    erase();
    current = nullptr;
}

void Progress::end() {
    if (Progress* const progress = current) progress->erase();
}

void Progress::erase() {
    if (!thread_.joinable()) return;
    {
        const std::lock_guard lock(mutex_);
        is_ended_ = true;
    }
    ended_.notify_one();
    thread_.join();
    erase_progress_in_handler();
}

void Progress::draw_again_and_again() {
    const Clock::time_point begin = Clock::now();
    std::unique_lock lock(mutex_);
    const auto ended = [this] { return is_ended_; };
    for (Clock::time_point next = begin + patience; !ended_.wait_until(lock, next, ended); next += between) {
        is_shown = true;
        put(bar(std::chrono::duration<double>(Clock::now() - begin).count()));
    }
}

// "[=========                     ]  30 %, 4 s", or with a mark that moves instead of the part that is done.
std::string Progress::bar(double seconds) const {
    const std::uint64_t done = std::min(done_.load(std::memory_order_relaxed), total_);
    std::string text(width, ' ');
    std::string part;
    if (done != 0) {
        const double share = static_cast<double>(done) / static_cast<double>(total_);
        std::fill_n(text.begin(), static_cast<std::size_t>(share * width), '=');
        part = std::to_string(static_cast<int>(share * 100)) + " %, ";
        part.insert(0, std::max<std::size_t>(part.size(), 7) - part.size(), ' ');
    } else {
        constexpr std::size_t mark = 4;
        const std::size_t step = static_cast<std::size_t>(seconds * 5) % (2 * (width - mark));
        text.replace(std::min(step, 2 * (width - mark) - step), mark, mark, '=');
    }
    return std::string(eraser) + "[" + text + "] " + part + std::to_string(static_cast<int>(seconds)) + " s";
}

void erase_progress_in_handler() {
    if (is_shown.exchange(false)) put(eraser);
}

void complain(const std::string& line) {
    Progress::end();
    put("vesk: " + line + "\n");
}

}  // namespace vesk::tool
