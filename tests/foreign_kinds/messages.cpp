#include "tests/foreign_kinds/messages.hpp"

#include <cstddef>

namespace vesk::test {
namespace {

constexpr std::uint32_t highest_number = (1u << 29) - 1;
constexpr int inner = 1;
constexpr int identifier = 2;

std::vector<TypeByHand> make_types() {
    std::vector<FieldByHand> all;
    std::uint32_t number = 0;
#define FOREIGN_FIELD(name, kind, Kind, Member) \
    all.push_back({"one_" #name, ++number, VESK_KIND_##kind, offsetof(foreign_all, one_##name), 0, -1, false});
    FOREIGN_SCALARS(FOREIGN_FIELD)
#undef FOREIGN_FIELD
#define FOREIGN_FIELD(name, kind, Kind, Member)                                                                        \
    all.push_back({"some_" #name, ++number, VESK_KIND_REPEATED + VESK_KIND_##kind, offsetof(foreign_all, some_##name), \
                   offsetof(foreign_all, some_##name##_count), -1, false});
    FOREIGN_SCALARS(FOREIGN_FIELD)
#undef FOREIGN_FIELD
    number = 100;
#define FOREIGN_FIELD(name, kind, Kind, Member)                                         \
    all.push_back({"packed_" #name, number *= 2, VESK_KIND_REPEATED + VESK_KIND_##kind, \
                   offsetof(foreign_all, packed_##name), offsetof(foreign_all, packed_##name##_count), -1, true});
    FOREIGN_SCALARS(FOREIGN_FIELD)
#undef FOREIGN_FIELD
    all.push_back({"text", 40, VESK_KIND_STRING, offsetof(foreign_all, text), 0, -1, false});
    all.push_back(
        {"data", 41, VESK_KIND_BYTES, offsetof(foreign_all, data), offsetof(foreign_all, data_length), -1, false});
    all.push_back({"inner", 42, VESK_KIND_MESSAGE, offsetof(foreign_all, inner), 0, inner, false});
    all.push_back({"inners", highest_number, VESK_KIND_LIST, offsetof(foreign_all, inners),
                   offsetof(foreign_all, inners_count), inner, false});
    all.push_back({"texts", 43, VESK_KIND_REPEATED + VESK_KIND_STRING, offsetof(foreign_all, texts),
                   offsetof(foreign_all, texts_count), -1, false});
    all.push_back({"blobs", 44, VESK_KIND_REPEATED + VESK_KIND_BYTES, offsetof(foreign_all, blobs),
                   offsetof(foreign_all, blobs_count), -1, false});
    all.push_back({"eid", 45, VESK_KIND_MESSAGE, offsetof(foreign_all, eid), 0, identifier, false});

    const std::vector<FieldByHand> inner_fields{
        {"level", 1, VESK_KIND_SINT32, offsetof(foreign_inner, level), 0, -1, false},
        {"note", 2, VESK_KIND_STRING, offsetof(foreign_inner, note), 0, -1, false},
        {"steps", 70000, VESK_KIND_REPEATED + VESK_KIND_INT64, offsetof(foreign_inner, steps),
         offsetof(foreign_inner, steps_count), -1, true},
        {"image", 4, VESK_KIND_BYTES, offsetof(foreign_inner, image), offsetof(foreign_inner, image_length), -1,
         false}};
    return {{"foreign_all", sizeof(foreign_all), alignof(foreign_all), offsetof(foreign_all, present), all},
            {"foreign_inner", sizeof(foreign_inner), alignof(foreign_inner), offsetof(foreign_inner, present),
             inner_fields},
            {"drin_eid_st", sizeof(vesk_drin_eid_st), alignof(vesk_drin_eid_st), 0, {}, true}};
}

}  // namespace

const std::vector<TypeByHand>& foreign_types() {
    static const std::vector<TypeByHand> types = make_types();
    return types;
}

const vesk_type* foreign_facts(std::size_t place) {
    static const FactsByHand facts(foreign_types());
    return facts.type(place);
}

const interpreter::TableType& foreign_table(std::size_t place) {
    static const std::vector<interpreter::TableType> table = table_by_hand(foreign_types());
    return table[place];
}

}  // namespace vesk::test
