// The stand-in's description of itself, for tools that work on any message; vesk_facts.h says in what form.
#include "drin_eid/drin_eid_fields.hpp"
#include "runtime/facts.hpp"

namespace vesk {

#define VESK_NAMES(Message, ...) \
    template <>                  \
    inline constexpr auto names<Message> = make_names(__VA_ARGS__);
#include "drin_eid/drin_eid_names.inc"
#undef VESK_NAMES

}  // namespace vesk

// The first row is that of the type that gives the symbol its name.
extern "C" {
extern VESK_API const decltype(vesk::make_facts_table<vesk::Nothing, vesk_drin_eid_st, vesk_drin_eid_element>())
    vesk_drin_eid_st_type;
constexpr decltype(vesk_drin_eid_st_type) vesk_drin_eid_st_type =
    vesk::make_facts_table<vesk::Nothing, vesk_drin_eid_st, vesk_drin_eid_element>();
}
