// One implementation at work on one workload, behind an interface that costs it nothing: a call of `run` is many calls
// of the implementation.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/workloads.hpp"

namespace vesk::bench {

enum class Operation { measure, encode, measure_and_encode, decode, duplicate, decode_and_free };

inline constexpr Operation all_operations[] = {Operation::measure, Operation::encode,    Operation::measure_and_encode,
                                               Operation::decode,  Operation::duplicate, Operation::decode_and_free};

const char* name_of(Operation operation);

class Contestant {
public:
    virtual ~Contestant() = default;

    // False where the implementation has no such operation.
    virtual bool can(Operation operation) const = 0;

    // Runs the operation on `calls` messages, in turn. False if a call failed.
    virtual bool run(Operation operation, std::size_t calls) = 0;

    // What the implementation writes after it has read the workload's message: shows that all do the same work.
    virtual Bytes reencoded(std::size_t index) = 0;
};

struct Entry {
    std::string name;
    std::unique_ptr<Contestant> contestant;
};

// Counts through the messages of a workload, round and round.
class Turn {
public:
    explicit Turn(std::size_t count) : count_(count) {}
    std::size_t next() {
        const std::size_t index = index_;
        index_ = index + 1 == count_ ? 0 : index + 1;
        return index;
    }

private:
    std::size_t count_;
    std::size_t index_ = 0;
};

// Calls work(index) so many times; false if one call returned false.
template <class Work>
bool repeat(std::size_t calls, Turn* turn, Work work) {
    bool ok = true;
    for (std::size_t i = 0; i < calls; ++i) ok &= work(turn->next());
    return ok;
}

// Memory for one message at a time: blocks are handed out in a row and all taken back at once. Aligned as malloc's.
class BumpArena {
public:
    explicit BumpArena(std::size_t capacity)
        : memory_(new std::uint8_t[capacity]), next_(memory_.get()), end_(memory_.get() + capacity) {}

    void reset() { next_ = memory_.get(); }

    void* allocate(std::size_t size) {
        const std::size_t taken = (size + 15) & ~std::size_t{15};
        if (taken > static_cast<std::size_t>(end_ - next_)) return nullptr;
        std::uint8_t* block = next_;
        next_ += taken;
        return block;
    }

private:
    std::unique_ptr<std::uint8_t[]> memory_;
    std::uint8_t* next_;
    std::uint8_t* end_;
};

// Room for any implementation's form of so many messages; what is not used is never touched.
inline std::size_t arena_capacity(const Workload& workload, std::size_t messages = 1) {
    return (std::size_t{1} << 20) + 20 * workload.longest_encoding * messages;
}

// The library that this program is linked with, or the one in a file, which is loaded apart from the other.
Entry make_linked_library(const Workload& workload);
Entry make_loaded_library(const std::string& name, const std::string& file, const Workload& workload);

// The library that this program is linked with, loaded once more with bench/free_identifier.c in place of the entity
// identifier's stand-in. Nothing is added for a workload without identifiers, or with bytes by reference.
void add_library_with_free_identifier(const Workload& workload, std::vector<Entry>* entries);

// What moving the bytes alone takes.
Entry make_floor(const Workload& workload);

// Those that can take the workload.
void add_protobuf_cpp(const Workload& workload, std::vector<Entry>* entries);
void add_protobuf_c(const Workload& workload, std::vector<Entry>* entries);
void add_nanopb(const Workload& workload, std::vector<Entry>* entries);

}  // namespace vesk::bench
