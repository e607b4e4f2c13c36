// refused: vesk: the field is no number
#include <vesk/vesk.hpp>

#ifndef BAD
void set(vesk::message<vesk_led_data>& led) { led.set<&vesk_led_data::f3>(7u); }
#else
void set(vesk::message<vesk_led_data>& led) { led.set<&vesk_led_data::f5>(7u); }
#endif
