// What a library exports that has the messages: their four functions, made by the runtime's templates of field lists,
// and the table that is made of these.
#pragma once

#include "tests/foreign_kinds/messages.hpp"

extern "C" {
#define FOREIGN_PROTOTYPES(Message)                                                                                  \
    VESK_API std::uint64_t Message##_encode_ext(const Message*, void*, std::uint64_t, vesk_segment*, std::uint32_t*, \
                                                std::uint32_t);                                                      \
    VESK_API std::int32_t Message##_decode_ext(Message*, const void*, std::uint64_t, vesk_alloc, void*,              \
                                               std::uint32_t);                                                       \
    VESK_API std::int32_t Message##_duplicate(Message*, const Message*, vesk_alloc, void*);                          \
    VESK_API void Message##_free_ext(Message*, vesk_release, void*, std::uint32_t);
FOREIGN_PROTOTYPES(foreign_inner)
FOREIGN_PROTOTYPES(foreign_all)
#undef FOREIGN_PROTOTYPES

// The first of foreign_all, foreign_inner.
VESK_API const vesk_type* vesk_schema_all_types(std::uint32_t* count);
}
