// Each access twice: by the view, and as a C program writes it. check_accessors compares what the compiler makes of
// them.
#include <vesk/vesk.hpp>

#define PAIR(Result, name, Type, by_view, in_c)                    \
    extern "C" Result name##_by_view(Type* m, unsigned value) {    \
        [[maybe_unused]] const vesk::editor<Type> message(*m, {}); \
        (void)value;                                               \
        by_view;                                                   \
    }                                                              \
    extern "C" Result name##_in_c(Type* m, unsigned value) {       \
        (void)value;                                               \
        in_c;                                                      \
    }

PAIR(void, set_number, vesk_led_data, message.set<&vesk_led_data::f3>(value), {
    m->f3 = value;
    VESK_MARK(m, VESK_LED_DATA_F3);
})
PAIR(void, set_constant, vesk_led_data, message.set<&vesk_led_data::f3>(7u), {
    m->f3 = 7;
    VESK_MARK(m, VESK_LED_DATA_F3);
})
PAIR(void, set_long_number, vesk_entity_common_data, message.set<&vesk_entity_common_data::f20>(value), {
    m->f20 = value;
    VESK_MARK(m, VESK_ENTITY_COMMON_DATA_F20);
})
PAIR(void, set_nested_number, vesk_led_data,
     message.edit<&vesk_led_data::entity_common>().set<&vesk_entity_common_data::f20>(value), {
         VESK_MARK(m, VESK_LED_DATA_ENTITY_COMMON);
         m->entity_common.f20 = value;
         VESK_MARK(&m->entity_common, VESK_ENTITY_COMMON_DATA_F20);
     })
PAIR(void, set_flag, vesk_entity_common_data, message.set<&vesk_entity_common_data::f6>(value != 0), {
    m->f6 = value != 0;
    VESK_MARK(m, VESK_ENTITY_COMMON_DATA_F6);
})
PAIR(bool, has, vesk_led_data, return message.has<&vesk_led_data::f5>(), return VESK_HAS(m, VESK_LED_DATA_F5))
PAIR(std::uint32_t, get_number, vesk_led_data, return message.get<&vesk_led_data::f3>().value_or(0),
     return VESK_HAS(m, VESK_LED_DATA_F3) ? m->f3 : 0)
PAIR(std::uint64_t, get_long_number, vesk_entity_common_data,
     return message.get<&vesk_entity_common_data::f20>().value_or(value),
     return VESK_HAS(m, VESK_ENTITY_COMMON_DATA_F20) ? m->f20 : value)
PAIR(
    std::size_t, get_count, vesk_resp_inv_data,
    {
        const auto list = message.get<&vesk_resp_inv_data::idprom_list>();
        return list ? list->size() : 0;
    },
    return VESK_HAS(m, VESK_RESP_INV_DATA_IDPROM_LIST) ? std::size_t{m->idprom_list_count} : 0)
