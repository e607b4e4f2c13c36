// refused: the presence bytes do not fit the number of fields
#include "runtime/check_schema.hpp"

struct Record {
    std::uint8_t f1, f2, f3, f4, f5, f6, f7, f8, f9;
#ifndef BAD
    std::uint8_t present[2];
#else
    std::uint8_t present[1];
#endif
};

template <>
#ifndef BAD
inline constexpr auto vesk::schema<Record> = vesk::fields(vesk::field<1>(&Record::f1), vesk::field<2>(&Record::f2),
                                                          vesk::field<3>(&Record::f3), vesk::field<4>(&Record::f4),
                                                          vesk::field<5>(&Record::f5), vesk::field<6>(&Record::f6),
                                                          vesk::field<7>(&Record::f7), vesk::field<8>(&Record::f8),
                                                          vesk::field<9>(&Record::f9));
#else
inline constexpr auto vesk::schema<Record> = vesk::fields(vesk::field<1>(&Record::f1), vesk::field<2>(&Record::f2),
                                                          vesk::field<3>(&Record::f3), vesk::field<4>(&Record::f4),
                                                          vesk::field<5>(&Record::f5), vesk::field<6>(&Record::f6),
                                                          vesk::field<7>(&Record::f7), vesk::field<8>(&Record::f8),
                                                          vesk::field<9>(&Record::f9));
#endif

static_assert(vesk::check_schema<Record>());
