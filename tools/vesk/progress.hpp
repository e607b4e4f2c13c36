// A bar on standard error, where that is a terminal and the work takes over a second.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace vesk::tool {

// Lives as long as the work; at most one at a time. Work of which nobody can say how far it is has a bar that moves to
// and fro.
class Progress {
public:
    explicit Progress(std::uint64_t total);  // of whatever at() counts; 0 if it is not known
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void at(std::uint64_t done) { done_.store(done, std::memory_order_relaxed); }

    // Takes the bar away for good, since the terminal is wanted for something else.
    static void end();

private:
    void draw_again_and_again();
    std::string bar(double seconds) const;
    void erase();

    std::uint64_t total_;
    std::atomic<std::uint64_t> done_{0};
    std::mutex mutex_;
    std::condition_variable ended_;
    bool is_ended_ = false;
    std::thread thread_;
};

// For a signal's handler: writes what takes the bar away, if there is one.
void erase_progress_in_handler();

// One line on standard error.
void complain(const std::string& line);

}  // namespace vesk::tool
