// refused: the field list does not name the structure's members, each once and in order
#include "runtime/check_schema.hpp"

// A message without fields has a byte of presence bits and nothing else.
struct Record {
#ifdef BAD
    std::uint32_t first;
#endif
    std::uint8_t present[1];
};

template <>
inline constexpr auto vesk::schema<Record> = vesk::fields();

static_assert(vesk::check_schema<Record>());
