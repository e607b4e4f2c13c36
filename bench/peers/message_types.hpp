// The message types of the workloads, as the peers' generators spell them.
#pragma once

#define VESK_BENCH_TYPES(X)   \
    X(req_inv_data)           \
    X(sensor_data)            \
    X(notify_event_data)      \
    X(resp_inv_data)          \
    X(resp_clients_hdl_data)  \
    X(scratch_eeprom)         \
    X(idprom_data)            \
    X(resp_admin_memory_data) \
    X(inv_db_base_entity_data)
