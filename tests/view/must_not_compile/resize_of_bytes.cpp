// refused: vesk: the field is no list
#include <vesk/vesk.hpp>

#ifndef BAD
std::error_code grow(vesk::message<vesk_resp_inv_data>& it) { return it.resize<&vesk_resp_inv_data::idprom_list>(7); }
#else
std::error_code grow(vesk::message<vesk_eeprom_data>& it) { return it.resize<&vesk_eeprom_data::f20>(7); }
#endif
