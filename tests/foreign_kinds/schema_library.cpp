// A library such as the generator makes one: the messages' field lists, their four functions, and the table of facts
// that is made of the lists.
#include "tests/foreign_kinds/schema_library.hpp"

#include "inventory_db/inventory_db_fields.hpp"
#include "runtime/export.hpp"
#include "runtime/facts.hpp"

namespace vesk {
namespace {

template <std::uint32_t Number, class Kind, class Member>
consteval auto one(Member foreign_all::*member) {
    if constexpr (std::is_same_v<Kind, Uint32> || std::is_same_v<Kind, Uint64> || std::is_same_v<Kind, Bool>) {
        return field<Number>(member);
    } else {
        return scalar<Number, Kind>(member);
    }
}

enum Place : std::uint32_t {
#define FOREIGN_PLACE(name, kind, Kind, Member) place_of_##name,
    FOREIGN_SCALARS(FOREIGN_PLACE)
#undef FOREIGN_PLACE
};

}  // namespace

template <>
inline constexpr auto schema<foreign_inner> = fields(scalar<1, Sint32>(&foreign_inner::level),
                                                     field<2>(&foreign_inner::note),
                                                     packed<70000, Int64>(&foreign_inner::steps,
                                                                          &foreign_inner::steps_count),
                                                     bytes<4>(&foreign_inner::image, &foreign_inner::image_length));

template <>
inline constexpr auto schema<foreign_all> = fields(
#define FOREIGN_ONE(name, kind, Kind, Member) one<1 + place_of_##name, Kind>(&foreign_all::one_##name),
    FOREIGN_SCALARS(FOREIGN_ONE)
#undef FOREIGN_ONE
#define FOREIGN_SOME(name, kind, Kind, Member) \
    repeated<15 + place_of_##name, Kind>(&foreign_all::some_##name, &foreign_all::some_##name##_count),
        FOREIGN_SCALARS(FOREIGN_SOME)
#undef FOREIGN_SOME
#define FOREIGN_PACKED(name, kind, Kind, Member) \
    packed<(200u << place_of_##name), Kind>(&foreign_all::packed_##name, &foreign_all::packed_##name##_count),
            FOREIGN_SCALARS(FOREIGN_PACKED)
#undef FOREIGN_PACKED
                field<40>(&foreign_all::text),
    bytes<41>(&foreign_all::data, &foreign_all::data_length), field<42>(&foreign_all::inner),
    list<(1u << 29) - 1>(&foreign_all::inners, &foreign_all::inners_count),
    strings<43>(&foreign_all::texts, &foreign_all::texts_count),
    blobs<44>(&foreign_all::blobs, &foreign_all::blobs_count), field<45>(&foreign_all::eid));

#define FOREIGN_NAME_ONE(name, kind, Kind, Member) "one_" #name,
#define FOREIGN_NAME_SOME(name, kind, Kind, Member) "some_" #name,
#define FOREIGN_NAME_PACKED(name, kind, Kind, Member) "packed_" #name,
template <>
inline constexpr auto names<foreign_all> = make_names("by_hand", "foreign_all",
                                                      FOREIGN_SCALARS(FOREIGN_NAME_ONE)
                                                          FOREIGN_SCALARS(FOREIGN_NAME_SOME)
                                                              FOREIGN_SCALARS(FOREIGN_NAME_PACKED) "text",
                                                      "data", "inner", "inners", "texts", "blobs", "eid");
template <>
inline constexpr auto names<foreign_inner> = make_names("by_hand", "foreign_inner", "level", "note", "steps", "image");
template <>
inline constexpr auto names<vesk_drin_eid_st> = make_names("by_hand", "drin_eid_st");

namespace {
constexpr auto table = make_facts_table<Nothing, foreign_all, foreign_inner, vesk_drin_eid_st>();
}  // namespace

}  // namespace vesk

VESK_EXPORT(foreign_inner)
VESK_EXPORT(foreign_all)

const vesk_type* vesk_schema_all_types(std::uint32_t* count) {
    if (count != nullptr) *count = 2;
    return vesk::table.types;
}
