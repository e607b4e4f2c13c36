// refused: the message type has more fields than a word has presence bits
#include "runtime/check_schema.hpp"

#ifndef BAD
constexpr std::size_t many = 1;
#else
constexpr std::size_t many = 65;
#endif

struct Record {
    std::uint32_t first;
    std::uint8_t present[1];
};

template <std::size_t... Indices>
consteval auto first_member_again_and_again(std::index_sequence<Indices...>) {
    return vesk::fields(vesk::field<1 + Indices>(&Record::first)...);
}

template <>
inline constexpr auto vesk::schema<Record> = first_member_again_and_again(std::make_index_sequence<many>{});

static_assert(vesk::check_schema<Record>());
