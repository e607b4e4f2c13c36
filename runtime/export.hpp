// The four exported functions of a message type, in one line per type:
//
//     VESK_EXPORT(vesk_T)
#pragma once

#include "runtime/check_schema.hpp"
#include "runtime/decode.hpp"
#include "runtime/duplicate.hpp"
#include "runtime/encode.hpp"
#include "runtime/release.hpp"

#define VESK_EXPORT(Message)                                                                                         \
    static_assert(vesk::check_schema<Message>());                                                                    \
    std::uint64_t Message##_encode_ext(const Message* message, void* buffer, std::uint64_t length,                   \
                                       vesk_segment* segments, std::uint32_t* segment_count, std::uint32_t flags) {  \
        return vesk::encode_ext(message, buffer, length, segments, segment_count, flags);                            \
    }                                                                                                                \
    std::int32_t Message##_decode_ext(Message* message, const void* buffer, std::uint64_t length, vesk_alloc alloc,  \
                                      void* context, std::uint32_t flags) {                                          \
        return vesk::decode_ext(message, vesk::decoder_of<Message>, buffer, length, {alloc, context}, flags);        \
    }                                                                                                                \
    std::int32_t Message##_duplicate(Message* destination, const Message* source, vesk_alloc alloc, void* context) { \
        return vesk::duplicate<Message>(destination, source, {alloc, context});                                      \
    }                                                                                                                \
    void Message##_free_ext(Message* message, vesk_release release, void* context, std::uint32_t flags) {            \
        vesk::release<Message>(message, {release, context, flags});                                                  \
    }
