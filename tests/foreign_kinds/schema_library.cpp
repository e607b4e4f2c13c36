// A library such as the generator makes one, for the command: foreign_all with its four functions, which are here those
// of the second implementation, and its table, which is written by hand.
#include <vesk/vesk_runtime.h>

#include "tests/foreign_kinds/messages.hpp"

using vesk::test::foreign_table;
using vesk::test::interpreter::TableType;

extern "C" {

#define FOREIGN_FUNCTIONS(Message, place)                                                                              \
    VESK_API std::uint64_t Message##_encode_ext(const Message* message, void* buffer, std::uint64_t length,            \
                                                vesk_segment* segments, std::uint32_t* count, std::uint32_t flags) {   \
        return vesk::test::interpreter::encode(foreign_table(place), message, buffer, length, segments, count, flags); \
    }                                                                                                                  \
    VESK_API std::int32_t Message##_decode_ext(Message* message, const void* buffer, std::uint64_t length,             \
                                               vesk_alloc alloc, void* context, std::uint32_t flags) {                 \
        return vesk::test::interpreter::decode(foreign_table(place), message, buffer, length, alloc, context, flags);  \
    }                                                                                                                  \
    VESK_API std::int32_t Message##_duplicate(Message* destination, const Message* source, vesk_alloc alloc,           \
                                              void* context) {                                                         \
        return vesk::test::interpreter::duplicate(foreign_table(place), destination, source, alloc, context);          \
    }                                                                                                                  \
    VESK_API void Message##_free_ext(Message* message, vesk_release release, void* context, std::uint32_t flags) {     \
        vesk::test::interpreter::release(foreign_table(place), message, release, context, flags);                      \
    }

FOREIGN_FUNCTIONS(foreign_all, 0)
FOREIGN_FUNCTIONS(foreign_inner, 1)

VESK_API const vesk_type* vesk_schema_all_types(std::uint32_t* count) {
    if (count != nullptr) *count = 2;
    return vesk::test::foreign_facts(0);
}
}
