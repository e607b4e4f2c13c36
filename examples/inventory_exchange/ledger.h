/* Memory for one decoded message: counts it, limits it, and knows every block, so that nothing is lost when a hostile
 * answer repeats a nested message and decode overwrites what the earlier one owned. */
#ifndef LEDGER_H
#define LEDGER_H

#include <stdint.h>

struct ledger_block;

struct ledger {
    struct ledger_block* first; /* of the blocks that are out */
    uint64_t used;              /* bytes in them */
    uint64_t limit;
};

/* The callbacks for decode and free; the context is a struct ledger. */
void* ledger_allocate(uint64_t size, void* context);
void ledger_release(void* memory, void* context);

/* Takes back every block that is still out. */
void ledger_release_all(struct ledger* ledger);

#endif
