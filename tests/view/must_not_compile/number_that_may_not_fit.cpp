// refused: vesk: the field's type does not hold every such number
#include <cstdint>
#include <vesk/vesk.hpp>

#ifndef BAD
void set(vesk::message<vesk_led_data>& led, std::uint16_t value) { led.set<&vesk_led_data::f3>(value); }
#else
void set(vesk::message<vesk_led_data>& led, std::uint64_t value) { led.set<&vesk_led_data::f3>(value); }
#endif
