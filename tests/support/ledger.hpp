// The memory of a test: hands out blocks as the library's allocation callback and keeps a ledger of them.
#pragma once

#include <vesk/vesk_runtime.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace vesk::test {

// What a callback was asked, in order.
struct Request {
    enum class What { alloc, release } what;
    std::uint64_t size;  // of the block asked for or given back
    bool operator==(const Request&) const = default;
};

// New blocks are filled with 0xA5 and stand between guard bytes. A release of a block that the ledger did not give, a
// block given back twice, and a damaged guard fail the test when the block comes back, or when the ledger takes it back
// itself. So does a block that is still out when the ledger is destroyed, unless the test says forget().
class Ledger {
public:
    static constexpr std::uint8_t fill = 0xA5;

    Ledger() = default;
    ~Ledger();
    Ledger(const Ledger&) = delete;
    Ledger& operator=(const Ledger&) = delete;

    // The callbacks; their context is the ledger.
    static void* alloc(std::uint64_t size, void* context);
    static void release(void* block, void* context);

    // The n-th request from now, counted from 1, gets null; only that one.
    void fail_request(std::uint64_t n) { failing_.insert(requests_made_ + n); }
    // The n-th request from now and all behind it get null.
    void fail_from_request(std::uint64_t n) { failing_from_ = requests_made_ + n; }
    void fail_from_now_on() { fail_from_request(1); }
    // A memory without large blocks, and one that has no use for empty ones.
    void refuse_above(std::uint64_t size) { largest_ = size; }
    void refuse_empty() { smallest_ = 1; }
    void fail_never() {
        failing_.clear();
        failing_from_ = never;
        smallest_ = 0;
        largest_ = no_limit;
    }

    std::uint64_t requests_made() const { return requests_made_; }
    std::uint64_t requests_refused() const { return requests_refused_; }
    std::size_t blocks_out() const { return blocks_.size(); }
    bool owns(const void* block) const { return blocks_.contains(const_cast<void*>(block)); }
    const std::vector<Request>& history() const { return history_; }
    void clear_history() { history_.clear(); }

    // Takes back every block by itself: for blocks that the contract gives up for lost.
    void forget();

private:
    struct Block {
        std::unique_ptr<std::uint8_t[]> memory;
        std::uint64_t size;
    };

    static constexpr std::uint64_t never = ~std::uint64_t{0};
    static constexpr std::uint64_t no_limit = ~std::uint64_t{0};

    static void expect_whole_guards(const Block& block);
    bool refuses(std::uint64_t size) const;

    std::map<void*, Block> blocks_;
    std::set<std::uint64_t> failing_;
    std::uint64_t failing_from_ = never;
    std::uint64_t smallest_ = 0;
    std::uint64_t largest_ = no_limit;
    std::uint64_t requests_made_ = 0;
    std::uint64_t requests_refused_ = 0;
    std::vector<Request> history_;
};

}  // namespace vesk::test
