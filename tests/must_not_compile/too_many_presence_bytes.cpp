// refused: the presence bytes do not fit the number of fields
#include "runtime/check_schema.hpp"

struct Record {
    std::uint32_t first;
#ifndef BAD
    std::uint8_t present[1];
#else
    std::uint8_t present[2];
#endif
};

template <>
#ifndef BAD
inline constexpr auto vesk::schema<Record> = vesk::fields(vesk::field<1>(&Record::first));
#else
inline constexpr auto vesk::schema<Record> = vesk::fields(vesk::field<1>(&Record::first));
#endif

static_assert(vesk::check_schema<Record>());
