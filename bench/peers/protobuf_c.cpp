// protobuf-c with malloc and with an arena. It has no operation that duplicates a message.
#include "bench/contestant.hpp"
#include "bench/peers/message_types.hpp"
#include "client_service.pb-c.h"

namespace vesk::bench {
namespace {

const ProtobufCMessageDescriptor* descriptor_of(const std::string& type) {
#define VESK_BENCH_DESCRIPTOR(T) \
    if (type == #T) return &protobuf_c_peer__##T##__descriptor;
    VESK_BENCH_TYPES(VESK_BENCH_DESCRIPTOR)
#undef VESK_BENCH_DESCRIPTOR
    throw std::runtime_error("protobuf-c does not know " + type);
}

void* from_arena(void* arena, std::size_t size) { return static_cast<BumpArena*>(arena)->allocate(size); }
void to_arena(void*, void*) {}

class ProtobufC : public Contestant {
public:
    ProtobufC(const Workload& workload, bool uses_arena)
        : workload_(workload),
          descriptor_(descriptor_of(workload.type->name)),
          turn_(workload.messages.size()),
          buffer_(workload.longest_encoding),
          uses_arena_(uses_arena),
          source_arena_(uses_arena ? arena_capacity(workload, workload.messages.size()) : 0),
          arena_(uses_arena ? arena_capacity(workload) : 0) {
        for (const Bytes& input : workload.encoded) sources_.push_back(unpack(input, &source_allocator_));
    }

    ProtobufC(const ProtobufC&) = delete;
    ProtobufC& operator=(const ProtobufC&) = delete;
    ~ProtobufC() override {
        for (ProtobufCMessage* source : sources_) {
            if (!uses_arena_ && source != nullptr) protobuf_c_message_free_unpacked(source, nullptr);
        }
    }

    bool can(Operation operation) const override { return operation != Operation::duplicate; }

    bool run(Operation operation, std::size_t calls) override {
        switch (operation) {
            case Operation::measure:
                return repeat(calls, &turn_,
                              [&](std::size_t i) { return protobuf_c_message_get_packed_size(sources_[i]) != 0; });
            case Operation::encode: return repeat(calls, &turn_, [&](std::size_t i) { return pack(i) != 0; });
            case Operation::measure_and_encode:
                return repeat(calls, &turn_, [&](std::size_t i) {
                    const std::size_t length = protobuf_c_message_get_packed_size(sources_[i]);
                    return pack(i) == length;
                });
            case Operation::decode:
            case Operation::decode_and_free:
                return repeat(calls, &turn_, [&](std::size_t i) {
                    if (uses_arena_) {
                        arena_.reset();
                        return unpack(workload_.encoded[i], &allocator_) != nullptr;
                    }
                    ProtobufCMessage* message = unpack(workload_.encoded[i], nullptr);
                    if (message == nullptr) return false;
                    protobuf_c_message_free_unpacked(message, nullptr);
                    return true;
                });
            case Operation::duplicate: return false;
        }
        return false;
    }

    Bytes reencoded(std::size_t index) override {
        if (sources_[index] == nullptr) return {};
        Bytes bytes(protobuf_c_message_get_packed_size(sources_[index]));
        protobuf_c_message_pack(sources_[index], bytes.data());
        return bytes;
    }

private:
    std::size_t pack(std::size_t index) { return protobuf_c_message_pack(sources_[index], buffer_.data()); }

    ProtobufCMessage* unpack(const Bytes& input, ProtobufCAllocator* allocator) {
        return protobuf_c_message_unpack(descriptor_, uses_arena_ ? allocator : nullptr, input.size(), input.data());
    }

    const Workload& workload_;
    const ProtobufCMessageDescriptor* descriptor_;
    Turn turn_;
    Bytes buffer_;
    bool uses_arena_;
    BumpArena source_arena_;
    BumpArena arena_;
    ProtobufCAllocator source_allocator_{from_arena, to_arena, &source_arena_};
    ProtobufCAllocator allocator_{from_arena, to_arena, &arena_};
    std::vector<ProtobufCMessage*> sources_;
};

}  // namespace

void add_protobuf_c(const Workload& workload, std::vector<Entry>* entries) {
    entries->push_back({"protobuf-c malloc", std::make_unique<ProtobufC>(workload, false)});
    entries->push_back({"protobuf-c arena", std::make_unique<ProtobufC>(workload, true)});
}

}  // namespace vesk::bench
