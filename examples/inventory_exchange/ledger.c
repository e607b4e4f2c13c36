#include "ledger.h"

#include <stddef.h>
#include <stdlib.h>

/* Stands before each block. Aligned so that what follows it is, too. */
struct ledger_block {
    _Alignas(max_align_t) struct ledger_block* previous;
    struct ledger_block* next;
    uint64_t size;
};

void* ledger_allocate(uint64_t size, void* context) {
    struct ledger* ledger = context;
    if (size > ledger->limit - ledger->used) return NULL;
    if (size > SIZE_MAX - sizeof(struct ledger_block)) return NULL;
    struct ledger_block* block = malloc(sizeof *block + (size_t)size);
    if (block == NULL) return NULL;
    block->previous = NULL;
    block->next = ledger->first;
    block->size = size;
    if (block->next != NULL) block->next->previous = block;
    ledger->first = block;
    ledger->used += size;
    return block + 1;
}

void ledger_release(void* memory, void* context) {
    struct ledger* ledger = context;
    struct ledger_block* block = (struct ledger_block*)memory - 1;
    if (block->previous != NULL) {
        block->previous->next = block->next;
    } else {
        ledger->first = block->next;
    }
    if (block->next != NULL) block->next->previous = block->previous;
    ledger->used -= block->size;
    free(block);
}

void ledger_release_all(struct ledger* ledger) {
    struct ledger_block* block = ledger->first;
    while (block != NULL) {
        struct ledger_block* next = block->next;
        free(block);
        block = next;
    }
    ledger->first = NULL;
    ledger->used = 0;
}
