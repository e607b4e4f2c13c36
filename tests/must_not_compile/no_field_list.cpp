// refused: the message type has no field list
#include "runtime/check_schema.hpp"

struct Record {
    std::uint32_t first;
    std::uint8_t present[1];
};

#ifndef BAD
template <>
inline constexpr auto vesk::schema<Record> = vesk::fields(vesk::field<1>(&Record::first));
#endif

static_assert(vesk::check_schema<Record>());
