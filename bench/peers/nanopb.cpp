// nanopb with malloc. It has no operation that duplicates a message.
#include <pb_decode.h>
#include <pb_encode.h>

#include <limits>

#include "bench/contestant.hpp"
#include "bench/peers/message_types.hpp"
#include "client_service.pb.h"

namespace vesk::bench {
namespace {

struct Descriptor {
    const pb_msgdesc_t* fields;
    std::size_t size;
};

Descriptor descriptor_of(const std::string& type) {
#define VESK_BENCH_DESCRIPTOR(T) \
    if (type == #T) return {nanopb_peer_##T##_fields, sizeof(nanopb_peer_##T)};
    VESK_BENCH_TYPES(VESK_BENCH_DESCRIPTOR)
#undef VESK_BENCH_DESCRIPTOR
    throw std::runtime_error("nanopb does not know " + type);
}

class Nanopb : public Contestant {
public:
    explicit Nanopb(const Workload& workload)
        : workload_(workload),
          descriptor_(descriptor_of(workload.type->name)),
          turn_(workload.messages.size()),
          buffer_(workload.longest_encoding),
          target_(new std::uint8_t[descriptor_.size]) {
        for (const Bytes& input : workload.encoded) {
            sources_.emplace_back(new std::uint8_t[descriptor_.size]);
            decode(input, sources_.back().get());
        }
    }

    Nanopb(const Nanopb&) = delete;
    Nanopb& operator=(const Nanopb&) = delete;
    ~Nanopb() override {
        for (const auto& source : sources_) pb_release(descriptor_.fields, source.get());
    }

    bool can(Operation operation) const override { return operation != Operation::duplicate; }

    bool run(Operation operation, std::size_t calls) override {
        switch (operation) {
            case Operation::measure: return repeat(calls, &turn_, [&](std::size_t i) { return measure(i) != 0; });
            case Operation::encode:
                return repeat(calls, &turn_, [&](std::size_t i) { return encode(i, &buffer_) != 0; });
            case Operation::measure_and_encode:
                return repeat(calls, &turn_, [&](std::size_t i) {
                    const std::size_t length = measure(i);
                    return encode(i, &buffer_) == length;
                });
            case Operation::decode:
            case Operation::decode_and_free:
                return repeat(calls, &turn_, [&](std::size_t i) {
                    const bool ok = decode(workload_.encoded[i], target_.get());
                    pb_release(descriptor_.fields, target_.get());
                    return ok;
                });
            case Operation::duplicate: return false;
        }
        return false;
    }

    Bytes reencoded(std::size_t index) override {
        Bytes bytes(measure(index));
        return encode(index, &bytes) == bytes.size() ? bytes : Bytes{};
    }

private:
    std::size_t measure(std::size_t index) {
        std::size_t length = 0;
        return pb_get_encoded_size(&length, descriptor_.fields, sources_[index].get()) ? length : 0;
    }

    std::size_t encode(std::size_t index, Bytes* buffer) {
        pb_ostream_t stream = pb_ostream_from_buffer(buffer->data(), buffer->size());
        return pb_encode(&stream, descriptor_.fields, sources_[index].get()) ? stream.bytes_written : 0;
    }

    bool decode(const Bytes& input, void* message) const {
        pb_istream_t stream = pb_istream_from_buffer(input.data(), input.size());
        return pb_decode(&stream, descriptor_.fields, message);
    }

    const Workload& workload_;
    Descriptor descriptor_;
    Turn turn_;
    Bytes buffer_;
    std::unique_ptr<std::uint8_t[]> target_;
    std::vector<std::unique_ptr<std::uint8_t[]>> sources_;
};

}  // namespace

// Debian's nanopb counts bytes and elements in 16 bits.
void add_nanopb(const Workload& workload, std::vector<Entry>* entries) {
    if (workload.longest_part > std::numeric_limits<pb_size_t>::max()) return;
    entries->push_back({"nanopb malloc", std::make_unique<Nanopb>(workload)});
}

}  // namespace vesk::bench
