// The four exported functions of a message type, in one line per type:
//
//     VESK_EXPORT(vesk_T)
#pragma once

#include "runtime/check_schema.hpp"
#include "runtime/decode.hpp"
#include "runtime/duplicate.hpp"
#include "runtime/encode.hpp"
#include "runtime/measure.hpp"
#include "runtime/release.hpp"

namespace vesk {

template <class Message>
inline std::uint64_t encode_ext(const Message& message, void* buffer, std::uint64_t length, vesk_segment* segments,
                                std::uint32_t* segment_count, std::uint32_t flags) {
    if (buffer == nullptr && length == 0 && segment_count == nullptr) return measure(message, flags);
    // Without a count nothing can be listed, as with a list that has no room.
    const std::uint32_t capacity = segment_count != nullptr ? *segment_count : 0;
    const Encoded encoded =
        encode(message, {{static_cast<std::uint8_t*>(buffer), length}, {segments, capacity}, flags});
    if (segment_count != nullptr) *segment_count = encoded.segments;
    return encoded.length;
}

template <class Message>
inline std::int32_t decode_ext(Message& message, const void* buffer, std::uint64_t length, vesk_alloc alloc,
                               void* context, std::uint32_t flags) {
    const std::uint8_t* at = static_cast<const std::uint8_t*>(buffer);
    return decode(message, at, at + length, {alloc, context}, flags);
}

}  // namespace vesk

#define VESK_EXPORT(Message)                                                                                         \
    static_assert(vesk::check_schema<Message>());                                                                    \
    std::uint64_t Message##_encode_ext(const Message* message, void* buffer, std::uint64_t length,                   \
                                       vesk_segment* segments, std::uint32_t* segment_count, std::uint32_t flags) {  \
        return vesk::encode_ext(*message, buffer, length, segments, segment_count, flags);                           \
    }                                                                                                                \
    std::int32_t Message##_decode_ext(Message* message, const void* buffer, std::uint64_t length, vesk_alloc alloc,  \
                                      void* context, std::uint32_t flags) {                                          \
        return vesk::decode_ext(*message, buffer, length, alloc, context, flags);                                    \
    }                                                                                                                \
    std::int32_t Message##_duplicate(Message* destination, const Message* source, vesk_alloc alloc, void* context) { \
        return vesk::duplicate(*destination, *source, {alloc, context});                                             \
    }                                                                                                                \
    void Message##_free_ext(Message* message, vesk_release release, void* context, std::uint32_t flags) {            \
        vesk::release(*message, {release, context}, flags);                                                          \
    }
