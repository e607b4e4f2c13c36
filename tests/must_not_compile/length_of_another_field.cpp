// gcc only, refused: the field list names members out of order
#include "runtime/check_schema.hpp"

struct Record {
    std::uint64_t number;
    std::uint8_t* data;
    std::uint64_t data_length;
    std::uint8_t present[1];
};

template <>
#ifndef BAD
inline constexpr auto vesk::schema<Record> = vesk::fields(vesk::field<1>(&Record::number),
                                                          vesk::bytes<2>(&Record::data, &Record::data_length));
#else
inline constexpr auto vesk::schema<Record> = vesk::fields(vesk::field<1>(&Record::number),
                                                          vesk::bytes<2>(&Record::data, &Record::number));
#endif

static_assert(vesk::check_schema<Record>());
