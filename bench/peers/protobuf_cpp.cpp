// protobuf C++ with its three kinds of memory: the heap, an arena that is reset after each message, and one message
// that is used again and again.
#include <google/protobuf/arena.h>

#include "bench/contestant.hpp"
#include "bench/peers/message_types.hpp"
#include "client_service.pb.h"

namespace vesk::bench {
namespace {

using google::protobuf::Arena;
using google::protobuf::ArenaOptions;

enum class Memory { heap, arena, reused };

// An arena with a block that is large enough for every message: it asks for no other, and a reset keeps it.
class RoomyArena {
public:
    explicit RoomyArena(std::size_t size) : block_(new char[size]), arena_(options(block_.get(), size)) {}
    Arena* get() { return &arena_; }

private:
    static ArenaOptions options(char* block, std::size_t size) {
        ArenaOptions options;
        options.initial_block = block;
        options.initial_block_size = size;
        return options;
    }

    std::unique_ptr<char[]> block_;
    Arena arena_;
};

template <class Message, Memory memory>
class ProtobufCpp : public Contestant {
public:
    explicit ProtobufCpp(const Workload& workload)
        : workload_(workload),
          turn_(workload.messages.size()),
          buffer_(workload.longest_encoding),
          source_arena_(memory == Memory::arena ? arena_capacity(workload, workload.messages.size()) : 1024),
          arena_(memory == Memory::arena ? arena_capacity(workload) : 1024) {
        for (const Bytes& input : workload.encoded) {
            sources_.push_back(memory == Memory::arena ? Arena::CreateMessage<Message>(source_arena_.get())
                                                       : owned_.emplace_back(std::make_unique<Message>()).get());
            parse(input, sources_.back());
        }
    }

    bool can(Operation) const override { return true; }

    bool run(Operation operation, std::size_t calls) override {
        switch (operation) {
            case Operation::measure:
                return repeat(calls, &turn_, [&](std::size_t i) { return sources_[i]->ByteSizeLong() != 0; });
            case Operation::encode:
                return repeat(calls, &turn_, [&](std::size_t i) {
                    return sources_[i]->SerializePartialToArray(buffer_.data(), static_cast<int>(buffer_.size()));
                });
            case Operation::measure_and_encode:
                return repeat(calls, &turn_, [&](std::size_t i) {
                    const std::size_t length = sources_[i]->ByteSizeLong();
                    return sources_[i]->SerializeWithCachedSizesToArray(buffer_.data()) == buffer_.data() + length;
                });
            case Operation::decode:
            case Operation::decode_and_free:
                return repeat(calls, &turn_, [&](std::size_t i) {
                    return with_target([&](Message* target) { return parse(workload_.encoded[i], target); });
                });
            case Operation::duplicate:
                return repeat(calls, &turn_, [&](std::size_t i) {
                    return with_target([&](Message* target) {
                        target->CopyFrom(*sources_[i]);
                        return true;
                    });
                });
        }
        return false;
    }

    Bytes reencoded(std::size_t index) override {
        Bytes bytes(sources_[index]->ByteSizeLong());
        sources_[index]->SerializeWithCachedSizesToArray(bytes.data());
        return bytes;
    }

private:
    static bool parse(const Bytes& input, Message* message) {
        return message->ParsePartialFromArray(input.data(), static_cast<int>(input.size()));
    }

    // Hands an empty message to the work; the heap's and the arena's is gone afterwards.
    template <class Work>
    bool with_target(Work work) {
        if constexpr (memory == Memory::heap) {
            Message target;
            return work(&target);
        } else if constexpr (memory == Memory::arena) {
            const bool ok = work(Arena::CreateMessage<Message>(arena_.get()));
            arena_.get()->Reset();
            return ok;
        } else {
            return work(&reused_);
        }
    }

    const Workload& workload_;
    Turn turn_;
    Bytes buffer_;
    RoomyArena source_arena_;
    RoomyArena arena_;
    std::vector<std::unique_ptr<Message>> owned_;
    std::vector<Message*> sources_;
    Message reused_;
};

template <class Message>
void add(const Workload& workload, std::vector<Entry>* entries) {
    entries->push_back({"protobuf heap", std::make_unique<ProtobufCpp<Message, Memory::heap>>(workload)});
    entries->push_back({"protobuf arena", std::make_unique<ProtobufCpp<Message, Memory::arena>>(workload)});
    entries->push_back({"protobuf reused", std::make_unique<ProtobufCpp<Message, Memory::reused>>(workload)});
}

}  // namespace

void add_protobuf_cpp(const Workload& workload, std::vector<Entry>* entries) {
#define VESK_BENCH_ADD(T) \
    if (workload.type->name == #T) return add<protobuf_cpp_peer::T>(workload, entries);
    VESK_BENCH_TYPES(VESK_BENCH_ADD)
#undef VESK_BENCH_ADD
    throw std::runtime_error("protobuf C++ does not know " + workload.type->name);
}

}  // namespace vesk::bench
