// Messages with every kind that a field can be: each scalar by itself, repeated and packed, strings, bytes, messages
// and lists, the identifier, and numbers up to the highest that there is.
#pragma once

#include <vesk/drin_eid.h>
#include <vesk/vesk_runtime.h>

#include <cstdint>

#include "tests/foreign_kinds/facts_by_hand.hpp"

// X(name, kind, what a field list calls it, member's type), the first 14 kinds.
#define FOREIGN_SCALARS(X)                        \
    X(uint32, UINT32, Uint32, std::uint32_t)      \
    X(uint64, UINT64, Uint64, std::uint64_t)      \
    X(boolean, BOOL, Bool, std::uint8_t)          \
    X(sint32, SINT32, Sint32, std::int32_t)       \
    X(sint64, SINT64, Sint64, std::int64_t)       \
    X(int32, INT32, Int32, std::int32_t)          \
    X(int64, INT64, Int64, std::int64_t)          \
    X(fixed32, FIXED32, Fixed32, std::uint32_t)   \
    X(fixed64, FIXED64, Fixed64, std::uint64_t)   \
    X(sfixed32, SFIXED32, Sfixed32, std::int32_t) \
    X(sfixed64, SFIXED64, Sfixed64, std::int64_t) \
    X(float_value, FLOAT, Float, float)           \
    X(double_value, DOUBLE, Double, double)       \
    X(enumeration, ENUM, Enum, std::int32_t)

struct foreign_inner {
    std::int32_t level;   // 1, sint32
    char* note;           // 2
    std::int64_t* steps;  // 70000, int64, packed
    std::uint32_t steps_count;
    std::uint8_t* image;  // 4
    std::uint64_t image_length;
    std::uint8_t present[1];
};

struct foreign_all {
#define FOREIGN_MEMBER(name, kind, Kind, Member) Member one_##name;
    FOREIGN_SCALARS(FOREIGN_MEMBER)
#undef FOREIGN_MEMBER
#define FOREIGN_MEMBER(name, kind, Kind, Member) \
    Member* some_##name;                         \
    std::uint32_t some_##name##_count;
    FOREIGN_SCALARS(FOREIGN_MEMBER)
#undef FOREIGN_MEMBER
#define FOREIGN_MEMBER(name, kind, Kind, Member) \
    Member* packed_##name;                       \
    std::uint32_t packed_##name##_count;
    FOREIGN_SCALARS(FOREIGN_MEMBER)
#undef FOREIGN_MEMBER
    char* text;
    std::uint8_t* data;
    std::uint64_t data_length;
    foreign_inner inner;
    foreign_inner* inners;
    std::uint32_t inners_count;
    char** texts;
    std::uint32_t texts_count;
    vesk_bytes* blobs;
    std::uint32_t blobs_count;
    vesk_drin_eid_st eid;
    std::uint8_t present[7];
};

namespace vesk::test {

// foreign_all, foreign_inner, then the identifier, which is another library's.
const std::vector<TypeByHand>& foreign_types();

// Their rows and the rows of the second implementation.
const vesk_type* foreign_facts(std::size_t place);
const interpreter::TableType& foreign_table(std::size_t place);

}  // namespace vesk::test
