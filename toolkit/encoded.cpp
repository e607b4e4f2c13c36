#include "toolkit/encoded.hpp"

namespace vesk {
// ---- Elements ------------------------------------------------------------------------------------------------------

bool ScalarRun::take(const std::uint8_t* end, std::uint64_t* number) {
    const std::uint8_t* const after = read_number(kind_of_values(field_), at_, end, number);
    if (after == nullptr) return false;
    at_ = after;
    return true;
}

bool ScalarRun::next(std::uint64_t* number) {
    while (packed_left_ == 0) {
        if (at_ == end_) return false;
        const Varint tag = read_tag(at_, end_);
        const std::uint32_t tag_value = static_cast<std::uint32_t>(tag.value);
        if (tag.at == nullptr || field_number_of_tag(tag_value) != vesk_field_number(field_)) return false;
        if (!takes_tag(field_, tag_value)) return false;
        if (wire_type_of_tag(tag_value) != length_type) {
            at_ = tag.at;
            return take(end_, number);
        }
        const Varint length = read_length(tag.at, end_);
        if (length.at == nullptr) return false;
        at_ = length.at;
        packed_left_ = static_cast<std::uint32_t>(length.value);
    }
    const std::uint8_t* const before = at_;
    if (!take(at_ + packed_left_, number)) return false;
    packed_left_ -= static_cast<std::uint32_t>(at_ - before);
    return true;
}

// ---- Counting ------------------------------------------------------------------------------------------------------

CountedRun count_run(const vesk_field* field, const std::uint8_t* tag, const std::uint8_t* end) {
    using Fault = CountedRun::Fault;
    const std::uint16_t kind = kind_of_values(field);
    const WireType wire_type = wire_type_of_scalar(kind);
    const std::uint8_t* const first = tag;
    std::uint64_t count = 0;
    for (const std::uint8_t* at = tag; at != end; tag = at) {
        const Varint read = read_tag(at, end);
        if (read.at == nullptr) return {count, VESK_MALFORMED, tag, Fault::of_message};
        const std::uint32_t tag_value = static_cast<std::uint32_t>(read.value);
        if (field_number_of_tag(tag_value) != vesk_field_number(field)) break;
        if (!takes_tag(field, tag_value)) return {count, VESK_WRONG_WIRE_TYPE, tag, Fault::of_field};
        bool whole = true;
        if (wire_type_of_tag(tag_value) == length_type) {
            const Varint length = read_length(read.at, end);
            if (length.at == nullptr) return {count, VESK_MALFORMED, tag, Fault::of_element};
            at = length.at + length.value;
            whole = count_packed(&count, wire_type, length.at, at);
        } else {
            at = skip_number(kind, read.at, end);
            whole = at != nullptr;
            count += whole;
        }
        if (!whole) return {count, VESK_MALFORMED, tag, Fault::of_element};
    }
    if (count > UINT32_MAX) return {count, VESK_MALFORMED, first, Fault::of_field};
    return {count, VESK_OK, tag, Fault::of_field};
}

}  // namespace vesk
