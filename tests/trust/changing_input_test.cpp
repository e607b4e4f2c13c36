// Input that changes while it is read: an allocation callback rewrites it at any of its requests, or another process
// does at any time. A list is counted before its array is asked for and read afterwards, so what was counted may no
// longer be there.
//
// What comes of a callback's rewriting is laid down by the second implementation of tests/support, which reads the same
// bytes between two requests. The input lies at a page that nobody can touch, and so does the structure.
#include "tests/support/changing_input.hpp"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vesk/client_service.h>

#include <algorithm>
#include <random>

#include "tests/support/first_difference.hpp"
#include "tests/support/full_message.hpp"
#include "tests/support/guarded_memory.hpp"
#include "tests/support/interpreter.hpp"
#include "tests/support/random_message.hpp"
#include "tests/trust/sanitized.hpp"

namespace vesk::test {
namespace {

// Decodes inputs of one type that are rewritten meanwhile, with both implementations.
class RewrittenDecoder {
public:
    RewrittenDecoder(const TypeInfo& type, const Bytes& input)
        : type_(type),
          table_type_(interpreter::find_type(type.name)),
          input_(input),
          memory_(input.size()),
          structure_(type.size),
          expected_(type) {}

    // The code, which both come to. The input lies before the second untouchable page, or after the first.
    std::int32_t decode(const Rewrite& rewrite, std::uint32_t flags, bool at_end) {
        const std::size_t length = input_.size();
        std::uint8_t* const input = at_end ? memory_.before_end(length) : memory_.begin();
        std::copy(input_.begin(), input_.end(), input);
        void* const message = structure_.before_end(type_.size);
        std::memset(message, 0x5A, type_.size);
        RewritingMemory ours{{}, rewrite, input, length};
        announce_attempt("decode of changing input", type_.name, length);
        const std::int32_t code = type_.decode(message, input, length, alloc_and_rewrite, &ours, flags);

        Bytes copy = input_;
        RewritingMemory theirs{{}, rewrite, copy.data(), length};
        const std::int32_t expected_code =
            interpreter::decode(table_type_, expected_.get(), copy.data(), length, alloc_and_rewrite, &theirs, flags);
        EXPECT_EQ(code, expected_code);
        EXPECT_TRUE(code <= VESK_OK && code > VESK_NO_MEMORY) << code;
        EXPECT_EQ(first_difference(type_, message, expected_.get()), "");

        const std::size_t owned = owned_blocks(type_, message).size();
        const std::size_t out = ours.ledger.blocks_out();
        type_.free(message, Ledger::release, &ours.ledger, flags);
        interpreter::release(table_type_, expected_.get(), Ledger::release, &theirs.ledger, flags);
        EXPECT_TRUE(ours.ledger.history() == theirs.ledger.history()) << "other requests or releases";
        // What is left was lost to a nested message that came again, in both. The blocks that bytes fields point to
        // belong to the input if they are by reference.
        EXPECT_EQ(ours.ledger.blocks_out(), theirs.ledger.blocks_out());
        EXPECT_TRUE(flags != 0 || ours.ledger.blocks_out() == out - owned);
        ours.ledger.forget();
        theirs.ledger.forget();
        return code;
    }

    // Requests of the decoding if nothing is rewritten.
    std::uint64_t count_requests() {
        std::uint64_t count = 0;
        decode([&](std::uint64_t n, std::uint8_t*, std::size_t) { count = n; }, 0, true);
        return count;
    }

private:
    const TypeInfo& type_;
    const interpreter::TableType& table_type_;
    Bytes input_;
    GuardedMemory memory_;
    GuardedMemory structure_;
    Storage expected_;
};

// ---- A callback's rewriting ----------------------------------------------------------------------------------------

// Each change at each request.
void rewrite_at_every_request(const TypeInfo& type, const Bytes& input, std::vector<std::uint64_t>& codes_seen) {
    RewrittenDecoder decoder(type, input);
    for (const std::size_t request : numbers_to(decoder.count_requests())) {
        for (const NamedChange& change : named_changes()) {
            SCOPED_TRACE(type.name + ", request " + std::to_string(request) + ", " + change.name);
            const Rewrite rewrite = [&](std::uint64_t n, std::uint8_t* bytes, std::size_t length) {
                if (n == request) change.change(bytes, length);
            };
            for (const std::uint32_t flags : {0u, std::uint32_t{VESK_BYTES_BY_REFERENCE}}) {
                const std::int32_t code = decoder.decode(rewrite, flags, request % 2 == 0);
                if (::testing::Test::HasFailure()) return;
                ++codes_seen[static_cast<std::size_t>(-code)];
            }
        }
    }
}

TEST(changing_input, every_change_at_every_request_comes_to_what_the_rules_say) {
    std::vector<std::uint64_t> codes_seen(4);
    for (const TypeInfo* type : all_types()) {
        rewrite_at_every_request(*type, full_encoding(*type), codes_seen);
        for (const FieldInfo& field : type->fields) {
            if (field.kind != Kind::list) continue;
            // So short that one byte reaches the end from anywhere.
            const Bytes element = message_field(field.number, number_field(31, 1));
            rewrite_at_every_request(*type, message(element, element, element), codes_seen);
        }
        if (HasFailure()) return;
    }
    for (const std::uint64_t count : codes_seen) EXPECT_GT(count, 100u);
}

TEST(changing_input, random_changes_at_random_requests_come_to_what_the_rules_say) {
    std::vector<std::uint64_t> codes_seen(4);
    std::uint64_t seed = 0;
    for (const TypeInfo* type : all_types()) {
        for (int round = 0; round < 20; ++round) {
            const RandomMessage message(*type, ++seed, Amount::wild);
            const Bytes input = encoded(*type, message.get());
            if (input.empty()) continue;
            RewrittenDecoder decoder(*type, input);
            const std::uint64_t often = 1 + seed % 5;
            for (std::uint64_t attempt = 0; attempt < 10; ++attempt) {
                SCOPED_TRACE(type->name + ", seed " + std::to_string(seed) + ", attempt " + std::to_string(attempt));
                // The same bytes for both implementations, whatever they ask for.
                const Rewrite rewrite = [&](std::uint64_t n, std::uint8_t* bytes, std::size_t length) {
                    std::mt19937_64 random(seed << 32 | attempt << 16 | n);
                    if (random() % often == 0) scribble(bytes, length, random);
                };
                const std::int32_t code = decoder.decode(rewrite, seed % 3 == 0, attempt % 2 == 0);
                if (HasFailure()) return;
                ++codes_seen[static_cast<std::size_t>(-code)];
            }
        }
    }
    for (const std::uint64_t count : codes_seen) EXPECT_GT(count, 100u);
}

// Counted as elements of the outer list, and then as those of an identifier's.
TEST(changing_input, the_same_bytes_may_ask_for_memory_twice) {
    constexpr std::uint32_t idproms = 7, elements = 6;
    Bytes empty, inner;
    for (int i = 0; i < 60; ++i) empty = message(empty, message_field(idproms, {}));
    for (int i = 0; i < 57; ++i) inner = message(inner, message_field(elements, {}));
    const Bytes one = message_field(idproms, message_field(1, message_field(1, inner)));
    ASSERT_EQ(one.size(), empty.size());
    const Rewrite rewrite = [&](std::uint64_t n, std::uint8_t* input, std::size_t) {
        if (n == 1) std::copy(one.begin(), one.end(), input);
    };
    Bytes input = empty;
    RewritingMemory memory{{}, rewrite, input.data(), input.size()};
    const TypeInfo& type = *find_type("resp_inv_data");
    Storage message(type);
    EXPECT_EQ(type.decode(message.get(), input.data(), input.size(), alloc_and_rewrite, &memory, 0), VESK_MALFORMED);
    EXPECT_EQ(memory.ledger.history(),
              (std::vector<Request>{{Request::What::alloc, 60 * sizeof(vesk_idprom_data)},
                                    {Request::What::alloc, 57 * sizeof(vesk_drin_eid_element)}}));
    type.free(message.get(), Ledger::release, &memory.ledger, 0);
}

// ---- Another process's writing -------------------------------------------------------------------------------------

// A page that this process shares with its children, between two that nobody can touch.
class SharedPage {
public:
    SharedPage() : size_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
        void* all = mmap(nullptr, 3 * size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (all == MAP_FAILED) throw std::bad_alloc();
        begin_ = static_cast<std::uint8_t*>(all) + size_;
        if (mmap(begin_, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == MAP_FAILED) {
            throw std::bad_alloc();
        }
    }
    ~SharedPage() { munmap(begin_ - size_, 3 * size_); }
    SharedPage(const SharedPage&) = delete;
    SharedPage& operator=(const SharedPage&) = delete;

    std::uint8_t* before_end(std::size_t length) const { return begin_ + size_ - length; }

private:
    std::size_t size_;
    std::uint8_t* begin_;
};

// Spoils one byte after the other and puts it right again, until it is killed.
[[noreturn]] void keep_writing(volatile std::uint8_t* input, const Bytes& whole) {
    for (std::size_t at = 0;; at = (at + 1) % whole.size()) {
        input[at] = static_cast<std::uint8_t>(whole.size() - at - 1);  // as a length, all that is left
        input[at] = whole[at];
    }
}

class WritingProcess {
public:
    WritingProcess(std::uint8_t* input, const Bytes& whole) : id_(fork()) {
        if (id_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // should the test end in the middle
        if (getppid() == parent_) keep_writing(input, whole);
        _exit(0);
    }
    ~WritingProcess() {
        if (!runs()) return;  // to -1, a signal goes to every process
        kill(id_, SIGKILL);
        waitpid(id_, nullptr, 0);
    }
    WritingProcess(const WritingProcess&) = delete;
    WritingProcess& operator=(const WritingProcess&) = delete;
    bool runs() const { return id_ > 0; }

private:
    pid_t parent_ = getpid();
    pid_t id_;
};

// The language promises nothing here. What the compilers make of it is held to the same bounds.
TEST(changing_input, another_process_may_write_at_any_time) {
    const TypeInfo& list = *find_type("resp_container_eid_nodeid");
    // An element that takes in the others reads each of them as an identifier.
    const Bytes element = message_field(1, number_field(3, 300));
    Bytes whole;
    for (int i = 0; i < 20; ++i) whole = message(whole, element);
    const SharedPage page;
    std::uint8_t* const input = page.before_end(whole.size());
    std::copy(whole.begin(), whole.end(), input);
    const WritingProcess writer(input, whole);
    ASSERT_TRUE(writer.runs());
    announce_attempt("decode of input that another process writes", list.name, whole.size());
    std::uint64_t accepted = 0, refused = 0;
    while (accepted < 20000 || refused < 20000) {
        Ledger ledger;
        Storage message(list);
        const std::int32_t code = list.decode(message.get(), input, whole.size(), Ledger::alloc, &ledger, 0);
        ASSERT_TRUE(code <= VESK_OK && code > VESK_NO_MEMORY) << code;
        ++(code == VESK_OK ? accepted : refused);
        list.free(message.get(), Ledger::release, &ledger, 0);
        ledger.forget();
    }
}

}  // namespace
}  // namespace vesk::test
