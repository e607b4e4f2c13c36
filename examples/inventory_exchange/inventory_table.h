/* Prints answers for people. What a service sends is shown but not trusted: control characters become dots, and long
 * texts are cut. */
#ifndef INVENTORY_TABLE_H
#define INVENTORY_TABLE_H

#include <vesk/client_service.h>

/* One table for each kind of entity in the answer. */
void print_inventory(const vesk_resp_inv_data* answer);

/* Everything about the entity in the answer. Prints nothing and returns 0 if the answer holds none. */
int print_entity(const vesk_resp_inv_data_by_eid* answer);

#endif
