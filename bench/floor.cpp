// What no implementation goes below: to encode, the bytes are copied; to decode or duplicate, the structures are
// cleared and the bytes copied. A bytes field by reference is not copied.
#include <cstring>

#include "bench/contestant.hpp"

namespace vesk::bench {
namespace {

class Floor : public Contestant {
public:
    explicit Floor(const Workload& workload)
        : workload_(workload), turn_(workload.messages.size()), buffer_(workload.longest_encoding) {
        for (const Message& message : workload.messages) {
            const void* content = message.get();
            lengths_.push_back(workload.type->encode(content, nullptr, 0, nullptr, nullptr, workload.flags));
            structures_.push_back(extent_of(*workload.type, content).structures);
            if (structures_.back() > cleared_.size()) cleared_.resize(structures_.back());
        }
    }

    bool can(Operation operation) const override { return operation != Operation::measure; }

    bool run(Operation operation, std::size_t calls) override {
        const bool encodes = operation == Operation::encode || operation == Operation::measure_and_encode;
        return repeat(calls, &turn_, [&](std::size_t i) {
            if (!encodes) std::memset(cleared_.data(), 0, structures_[i]);
            std::memcpy(buffer_.data(), workload_.encoded[i].data(), lengths_[i]);
            // Both count as read, so that neither is optimised away.
            asm volatile("" : : "r"(cleared_.data()), "r"(buffer_.data()) : "memory");
            return true;
        });
    }

    Bytes reencoded(std::size_t index) override { return workload_.encoded[index]; }

private:
    const Workload& workload_;
    Turn turn_;
    Bytes buffer_;
    Bytes cleared_;
    std::vector<std::uint64_t> lengths_;
    std::vector<std::uint64_t> structures_;
};

}  // namespace

Entry make_floor(const Workload& workload) { return {"floor", std::make_unique<Floor>(workload)}; }

}  // namespace vesk::bench
