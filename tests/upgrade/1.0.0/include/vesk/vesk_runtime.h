/* The calling contract that every message type shares: result codes, flags, segments, callbacks, presence
 * bits, and what the four functions of a type do.
 *
 * Plain C99 and C++. The library holds no state, does no input or output and allocates nothing itself:
 * every function works only on the structures, buffers and callbacks that it is given. */
#ifndef VESK_RUNTIME_H
#define VESK_RUNTIME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What a library lets out. */
#if defined(__GNUC__)
#define VESK_API __attribute__((visibility("default")))
#else
#define VESK_API
#endif

/* The version of these headers, and the one place where it stands: what is built and installed takes it from here.
 * vesk_version of the toolkit names that of the library that a program runs with. */
#define VESK_VERSION_MAJOR 1
#define VESK_VERSION_MINOR 0
#define VESK_VERSION_PATCH 0
#define VESK_VERSION "1.0.0"

/* Results of decode and duplicate. The values are fixed: a code is never renumbered and never reused. */
enum vesk_result {
    VESK_OK = 0,
    /* The input is truncated or inconsistent: a varint runs past the end, a length reaches past the end of the
     * enclosing message, or a string, bytes or list field occurs a second time. */
    VESK_MALFORMED = -1,
    /* An unknown field has wire type 3, 4, 6 or 7 and cannot be skipped. */
    VESK_UNKNOWN_WIRE_TYPE = -2,
    /* A known field has a wire type that is not that of its kind. */
    VESK_WRONG_WIRE_TYPE = -3,
    /* An allocation callback is needed and was null, or it returned null. */
    VESK_NO_MEMORY = -4
};

/* The name of a result, "VESK_MALFORMED", and what it means in a few words. Never null: of another code they say that it is
 * none of the library's. */
static inline const char *vesk_result_name(int32_t code) {
    switch (code) {
        case VESK_OK: return "VESK_OK";
        case VESK_MALFORMED: return "VESK_MALFORMED";
        case VESK_UNKNOWN_WIRE_TYPE: return "VESK_UNKNOWN_WIRE_TYPE";
        case VESK_WRONG_WIRE_TYPE: return "VESK_WRONG_WIRE_TYPE";
        case VESK_NO_MEMORY: return "VESK_NO_MEMORY";
        default: return "unknown result";
    }
}
static inline const char *vesk_result_text(int32_t code) {
    switch (code) {
        case VESK_OK: return "success";
        case VESK_MALFORMED: return "the input is cut short or inconsistent";
        case VESK_UNKNOWN_WIRE_TYPE: return "an unknown field has a wire type that cannot be skipped";
        case VESK_WRONG_WIRE_TYPE: return "a field has another wire type than its kind's";
        case VESK_NO_MEMORY: return "no memory";
        default: return "not a result of this library";
    }
}

/* Bits of the flags word. It is handed down unchanged to every nested message. Bits 1 to 31 are reserved:
 * they change nothing today, and callers leave them 0. */
enum vesk_flag {
    /* decode: bytes fields point into the input instead of owning a copy.
     * encode: the data of bytes fields is listed as segments instead of being copied into the buffer.
     * free:   bytes fields are left alone.
     * A message decoded with this flag needs its input for as long as it is used, and is freed with it. */
    VESK_BYTES_BY_REFERENCE = 1
};

/* A stretch of the encoder's output. */
typedef struct vesk_segment {
    const void *data; /* its first byte */
    uint64_t length;  /* in bytes */
} vesk_segment;

/* An element of a repeated bytes field, which messages of others may have: as a bytes field, a pointer and a length. */
typedef struct vesk_bytes {
    uint8_t *data;   /* null if there is no content */
    uint64_t length; /* in bytes */
} vesk_bytes;

/* Returns a block of at least `size` bytes, aligned for any C type, or null if there is none. `size` may be 0
 * (an empty bytes field): null then counts as failed, too. */
typedef void *(*vesk_alloc)(uint64_t size, void *context);

/* Takes back a block that vesk_alloc gave. */
typedef void (*vesk_release)(void *block, void *context);

/* Presence bits. Every structure ends in `present`, one bit per field, and every field has an enumerator with the
 * number of its bit:
 *
 *     vesk_T record = {0};               zero-initialised is cleared: nothing present, nothing owned
 *     record.f3 = 4800;
 *     VESK_MARK(&record, VESK_T_F3);     without its bit a value is not encoded
 *     if (VESK_HAS(&record, VESK_T_F3)) ...
 *
 * `message` is evaluated once, `bit` twice. */
#define VESK_HAS(message, bit) ((((message)->present[(bit) / 8] >> ((bit) % 8)) & 1) != 0)
#define VESK_MARK(message, bit) vesk_mark(&(message)->present[(bit) / 8], (unsigned)(bit) % 8)
#define VESK_UNMARK(message, bit) vesk_unmark(&(message)->present[(bit) / 8], (unsigned)(bit) % 8)

/* What VESK_MARK and VESK_UNMARK come to: use those. */
static inline void vesk_mark(uint8_t *byte, unsigned bit) { *byte = (uint8_t)(*byte | 1u << bit); }
static inline void vesk_unmark(uint8_t *byte, unsigned bit) { *byte = (uint8_t)(*byte & ~(1u << bit)); }

/* ==== The four functions of a message type T ========================================================================
 *
 * A message structure is plain data: one member per field in declaration order, then the presence bits. A string is
 * a NUL-terminated `char *` or null; a bytes field is a pointer and a length in bytes; a list is a pointer to an
 * array of structures and a count of elements; a nested message is a structure held by value.
 *
 * Trusted are the structures, callbacks and lengths that a caller passes: message pointers are not tested for null.
 * Never trusted are the bytes of an input.
 *
 * Threads: no function keeps state. Different messages may be worked on by any number of threads at once, and any
 * number of threads may encode or duplicate from one message that nobody writes meanwhile. Callbacks run on the
 * calling thread.
 *
 * Callbacks may call the library for other messages, and may look at the one that is being worked on:
 *   - alloc in decode finds what has been read so far. A pointer is null or a block that alloc gave (of bytes by
 *     reference, one into the input), and all elements of a list are there before the first of them is read, zero until
 *     it is their turn. Presence bits come at the end: those of a message are clear until all of it has been read or an
 *     error has ended that. alloc may also write into the input: what has not been read yet is then read as it is now.
 *   - alloc in duplicate finds raw storage. A pointer in it may be the source's, or be what stood there before.
 *   - release in free finds its block where it was, and what was released before as null. A list has its array and its
 *     count until its array has been released.
 *
 *
 * uint64_t vesk_T_encode_ext(const vesk_T *message, void *buffer, uint64_t length,
 *                            vesk_segment *segments, uint32_t *segment_count, uint32_t flags);
 *
 * Writes a message as bytes, or measures it. Never fails and never allocates.
 *
 *   message         read only; not null. May be read by other threads meanwhile.
 *   buffer          out; `length` bytes. May be null if `length` is 0: the call then measures.
 *   length          bytes that `buffer` can hold.
 *   segments        out; an array of *segment_count segments; null if that is 0 or if no list is wanted.
 *   segment_count   in: segments that `segments` can hold. Out: segments that the encoding needs. Null if no list is
 *                   wanted.
 *   flags           0 or VESK_BYTES_BY_REFERENCE.
 *
 * Result: the bytes that the encoding occupies in a large enough buffer. A result above `length` says that the buffer
 * was too short; it then holds the beginning of the encoding, in which a string or the data of a bytes field stands
 * whole or not at all. Nothing is stored beyond the encoding.
 * Fastest is to encode into the buffer at hand, and to come back with one of the length that the result names if it was
 * too short; measuring first costs about a quarter of an encoding more.
 *
 * What is written, in declaration order: a number, flag, bytes field or list if its presence bit is set; a string if
 * its bit is set and it is not null; a nested message if its bit is set or it encodes to at least one byte.
 * A member of an imported type is measured by its own encode function, as often as need be, and then written by it, once
 * in a call that has a buffer or a count and never in one that has neither.
 *
 * Segments: a list of the stretches that make up the encoding, for a gathering write of a message whose bytes fields
 * stay where they are. A stretch of the buffer ends where a bytes field is listed by reference, and at the end of the
 * message. A count above the capacity says that the list is incomplete. Two things to know: the list of a message that
 * holds nested messages has the nested stretches first and then the enclosing one, which covers the nested bytes
 * again; and a nested message's length on the wire leaves out the data that is listed by reference inside it. So only
 * the list of a message without nested messages can be sent as it stands. With a null buffer the addresses are
 * offsets from null, good for counting only.
 *
 * Lengths on the wire have 32 bits; of a longer field only the low 32 bits of its length are written.
 *
 * Ownership: nothing changes hands. Segments point into `buffer` and at the message's own bytes fields and are good
 * for as long as those are.
 *
 *
 * int32_t vesk_T_decode_ext(vesk_T *message, const void *buffer, uint64_t length,
 *                           vesk_alloc alloc, void *context, uint32_t flags);
 *
 * Reads a message from bytes.
 *
 *   message   out; not null; raw storage. What it held is overwritten, not released.
 *   buffer    read only; `length` bytes; may be null if `length` is 0. Must outlive the message if flags has
 *             VESK_BYTES_BY_REFERENCE, otherwise it is not needed after the call.
 *   length    bytes in `buffer`, which ends at the last address at the latest: more is cut off, and so is what is more
 *             than an object can have (PTRDIFF_MAX).
 *   alloc     asked once per string (characters + 1 bytes), per bytes field (its bytes, also 0; not asked if flags has
 *             VESK_BYTES_BY_REFERENCE) and per list (count * sizeof element). May be null: a field that needs it then
 *             fails with VESK_NO_MEMORY.
 *   context   passed to alloc unchanged; may be null.
 *   flags     0 or VESK_BYTES_BY_REFERENCE.
 *
 * Result: VESK_OK, or the code of the first error in the order of the input; what the decode function of an imported
 * type returned is passed on unchanged. Unknown fields are skipped, and one that is cut short at the very end of the
 * input is no error. A number that occurs again replaces the earlier value. A nested message that occurs again
 * replaces the earlier one as a whole, and the blocks of the earlier one are lost: a caller who cannot trust the
 * sender keeps a ledger of its own, or an arena. The elements of a list must stand in one unbroken run. Strings are
 * copied as they stand: an embedded NUL ends the string for everyone who reads it as C does.
 *
 * Ownership: the message owns every block that it points to, also after an error, when it holds what was read before
 * the error; in either case give it to vesk_T_free_ext with the same flags.
 *
 *
 * int32_t vesk_T_duplicate(vesk_T *destination, const vesk_T *source, vesk_alloc alloc, void *context);
 *
 * Copies a message and everything it owns.
 *
 *   destination   out; not null; raw storage. What it held is overwritten, not released. Presence bits that belong to
 *                 no field are left as they are. It may be the source itself, which then holds the copy: the old blocks
 *                 belong to who has kept their addresses, and of a member of an imported type its own function decides.
 *                 Where the two overlap in part, nothing is defined.
 *   source        read only; not null. May be read by other threads meanwhile. Bytes fields that point into an input
 *                 are copied like any other.
 *   alloc         asked once per string (characters + 1 bytes) and once per non-empty bytes field and list; null
 *                 counts as failed.
 *   context       passed to alloc unchanged; may be null.
 *
 * Result: VESK_OK; VESK_NO_MEMORY if one of the message's own strings, bytes fields or lists could not be had; else the
 * first code other than VESK_OK that a nested message or element came back with, which is VESK_NO_MEMORY or what the
 * duplicate function of an imported type returned. The copy goes on after a failure: fields that could not be copied
 * are empty and their presence bits are clear.
 * Ownership: destination owns its blocks, also after an error; give it to vesk_T_free_ext with flags 0.
 *
 *
 * void vesk_T_free_ext(vesk_T *message, vesk_release release, void *context, uint32_t flags);
 *
 * Gives back every block that a message owns. The message itself is the caller's and is not released.
 *
 *   message   in and out; not null; decoded or duplicated, or zero-initialised.
 *   release   called once per block; not null if the message may own a block.
 *   context   passed to release unchanged; may be null.
 *   flags     those of the decode; 0 after a duplicate. With VESK_BYTES_BY_REFERENCE bytes fields are left alone.
 *
 * Afterwards pointers to released blocks are null and list counts 0; presence bits and the lengths of bytes fields
 * are left as they were. A second call releases nothing. Decode into the message again, or zero it, before it is
 * encoded. */

#ifdef __cplusplus
}
#endif

#endif
