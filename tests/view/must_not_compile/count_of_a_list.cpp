// refused: vesk: this is no field of the message
#include <vesk/vesk.hpp>

#ifndef BAD
bool has(const vesk::message<vesk_resp_inv_data>& response) { return response.has<&vesk_resp_inv_data::idprom_list>(); }
#else
bool has(const vesk::message<vesk_resp_inv_data>& response) {
    return response.has<&vesk_resp_inv_data::idprom_list_count>();
}
#endif
