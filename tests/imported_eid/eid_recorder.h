/* An entity-identifier library that answers as it is told and remembers every call: the four vesk_drin_eid_st functions
 * and the record of what they were asked. Plain C, so that it can stand in a program or be a shared library.
 *
 * The structure itself says what is answered, by its members:
 *
 *   encode     a measuring call (no segment count) gets f1 as its length; a writing call gets f2, or f1 if f2 is 0,
 *              fills the buffer with that many bytes 0xE1 as far as it goes, and returns f3 through the count.
 *   decode     clears the structure and sets f1 to the length of the input. The code is the first four bytes of the
 *              input, least significant first, or 0 if there are fewer.
 *   duplicate  copies the structure; the code is f4. No block is asked for.
 *   free       only remembers. */
#ifndef EID_RECORDER_H
#define EID_RECORDER_H

#include <stddef.h>
#include <vesk/drin_eid.h>

#ifdef __cplusplus
extern "C" {
#endif

enum eid_function { EID_MEASURE, EID_WRITE, EID_DECODE, EID_DUPLICATE, EID_FREE };

/* One call with all its arguments; those that the function does not have are null or 0. */
typedef struct eid_call {
    enum eid_function function;
    const void* message;
    const void* source;
    uint32_t found; /* f1 of the message as decode found it */
    const void* buffer;
    uint64_t length;
    const vesk_segment* segments;
    uint32_t capacity; /* what the segment count said on entry */
    vesk_alloc alloc;
    vesk_release release;
    void* context;
    uint32_t flags;
} eid_call;

enum { EID_RECORDER_ROOM = 1 << 16 };

typedef struct eid_record {
    size_t count;
    eid_call calls[EID_RECORDER_ROOM]; /* a call too many ends the program */
} eid_record;

/* The record since the program began, or since its count was set to 0. */
VESK_API eid_record* eid_recorder(void);

#ifdef __cplusplus
}
#endif

#endif
