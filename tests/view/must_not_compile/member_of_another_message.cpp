// refused: vesk: this is no field of the message
#include <vesk/vesk.hpp>

#ifndef BAD
void set(vesk::message<vesk_led_data>& led) { led.set<&vesk_led_data::f3>(7u); }
#else
void set(vesk::message<vesk_led_data>& led) { led.set<&vesk_pem_data::f3>(7u); }
#endif
