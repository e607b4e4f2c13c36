// gcc only, refused: the field list names members out of order
#include "runtime/check_schema.hpp"

struct Record {
    std::uint32_t first;
    std::uint32_t second;
    char* third;
    std::uint8_t present[1];
};

template <>
#ifndef BAD
inline constexpr auto vesk::schema<Record> = vesk::fields(vesk::field<1>(&Record::first),
                                                          vesk::field<2>(&Record::second),
                                                          vesk::field<3>(&Record::third));
#else
inline constexpr auto vesk::schema<Record> = vesk::fields(vesk::field<1>(&Record::second),
                                                          vesk::field<2>(&Record::first),
                                                          vesk::field<3>(&Record::third));
#endif

static_assert(vesk::check_schema<Record>());
