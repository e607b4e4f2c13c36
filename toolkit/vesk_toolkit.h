/* libvesk_toolkit: what callers of the library need around the four functions of a message type: memory with a limit,
 * the cost and the fault of an input before it is decoded, gathering writes, single fields out of encoded bytes,
 * comparison and lint.
 *
 * Plain C99 and C++. It stands beside the library and works on any message type by its facts (vesk_facts.h): nothing in
 * the library needs it. It keeps no state, does no input or output, and allocates only through what the caller hands
 * it. Threads: different messages, reports, arenas and iterators may be worked on by any number of threads at once; one
 * of them by one thread at a time. Callbacks run on the calling thread.
 *
 * Types are found by name (vesk_type_named) or taken one after the other (vesk_all_types); no function here takes a
 * null type. Message pointers are untyped and must be those of the type that is named beside them. Structures that
 * begin with `size` are set up by the function or initialiser that their comment names, so that they can grow: a
 * program compiled against an older header works with a newer library.
 *
 * The entity identifier belongs to another library, which may be replaced. Its structure is fixed, its encoding is not.
 * A library that describes it exports a vesk_type named vesk_drin_eid_st_type, as the stand-in does; with one that does
 * not, options may say how its bytes are to be judged. Otherwise an identifier's bytes are opaque: what depends on them
 * is left out and said to be left out, never guessed. So are messages of any further library in the messages of others.
 *
 * Types need not be those of the library: a table that others have made for their messages does as well, with all that
 * vesk_facts.h describes. What is said below of lists then goes for repeated fields, too. */
#ifndef VESK_TOOLKIT_H
#define VESK_TOOLKIT_H

#include <stddef.h>
#include <vesk/vesk_facts.h>
#include <vesk/vesk_runtime.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The version of the library that a program runs with, "1.0.0": the VESK_VERSION that it was built with, where the macro in a
 * program is that of the headers which the program was built with. All libraries of one installation have one version. Never
 * null, never given back. */
VESK_API const char *vesk_version(void);

/* Results beside those of vesk_result. The values are fixed: one is never renumbered and never reused. */
enum vesk_toolkit_result {
    VESK_ABSENT = -101,        /* the path is good, and there is no such field in the bytes */
    VESK_NO_SUCH_PATH = -102,  /* the type has no such path: a wrong name, or an index where there is no list */
    VESK_PAST_THE_END = -103,  /* the list has fewer elements */
    VESK_TOO_SHORT = -104,     /* a buffer or list of the caller's is too short; what is needed is told */
    VESK_TOO_LONG = -105,      /* a content of 4 GiB or more, whose length the wire cannot carry */
    VESK_OPAQUE = -106,        /* an identifier lies on the way, and nobody says how to read it */
    VESK_STOPPED = -107        /* a callback of the caller's asked to stop */
};

/* The name of a result of the library or of the toolkit, "VESK_ABSENT", and what it means in a few words. Never null.
 * */
static inline const char *vesk_toolkit_result_name(int32_t code) {
    switch (code) {
        case VESK_ABSENT: return "VESK_ABSENT";
        case VESK_NO_SUCH_PATH: return "VESK_NO_SUCH_PATH";
        case VESK_PAST_THE_END: return "VESK_PAST_THE_END";
        case VESK_TOO_SHORT: return "VESK_TOO_SHORT";
        case VESK_TOO_LONG: return "VESK_TOO_LONG";
        case VESK_OPAQUE: return "VESK_OPAQUE";
        case VESK_STOPPED: return "VESK_STOPPED";
        default: return vesk_result_name(code);
    }
}
static inline const char *vesk_toolkit_result_text(int32_t code) {
    switch (code) {
        case VESK_ABSENT: return "the bytes have no such field";
        case VESK_NO_SUCH_PATH: return "the type has no such path";
        case VESK_PAST_THE_END: return "the list has fewer elements";
        case VESK_TOO_SHORT: return "a buffer or list is too short";
        case VESK_TOO_LONG: return "a content of 4 GiB or more cannot be encoded";
        case VESK_OPAQUE: return "an identifier that nobody describes";
        case VESK_STOPPED: return "stopped by the callback";
        default: return vesk_result_text(code);
    }
}

/* ==== Types ==========================================================================================================
 *
 * vesk_type and its fields are read with the functions of vesk_facts.h. */

/* The type of a bare name, "pem_data"; null if there is none, or if `name` is null. "drin_eid_st" and the other types
 * of the identifier's library are found if that library describes itself. Compares at most once with each name. */
VESK_API const vesk_type *vesk_type_named(const char *name);

/* The first of all types of the library, the others following by vesk_type_next: first those of client_service, then
 * those of inventory_db, in the order of the headers. The identifier's are not among them. `*count` becomes their
 * number (95); `count` may be null. */
VESK_API const vesk_type *vesk_all_types(uint32_t *count);

/* ==== Options ========================================================================================================
 *
 * Functions that may have to do with an identifier take options as their last argument; null stands for the defaults.
 * */

/* What a decode asks its allocation callback for. */
typedef struct vesk_cost {
    uint64_t bytes;   /* in all */
    uint64_t blocks;  /* requests, those for 0 bytes included */
    uint64_t largest; /* bytes of the largest request; 0 if there is none */
} vesk_cost;

/* Bits of options' flags. */
enum vesk_option_flag {
    /* vesk_peek, vesk_iterate: the first occurrence counts, and what follows it is not looked at, so that an error
     * there is not seen. What precedes it is stepped over, so that an error inside another field is not seen either. */
    VESK_FIRST_OCCURRENCE = 1
};

/* What a function is to do otherwise than by default; vesk_default_options fills it in. */
typedef struct vesk_options {
    size_t size;    /* sizeof(vesk_options), by vesk_default_options */
    uint32_t flags; /* bits of vesk_option_flag; default: 0 */

    /* vesk_gather: bytes fields of fewer bytes are copied, since a segment each costs more than it saves; default: 1,
     * all that are not empty are listed. */
    uint64_t gather_threshold;

    /* Where the identifier's library does not describe itself: says what its decode function would return for these
     * bytes, and what it would ask for, up to its error if it has one. `bytes` has `length` bytes, good until the call
     * returns; `flags` are the decode's; `cost` begins as zeros. Null, the default: see scratch. */
    int32_t (*check_identifier)(const void *bytes, uint64_t length, uint32_t flags, vesk_cost *cost, void *context);
    void *context; /* passed to check_identifier unchanged; may be null */

    /* Where it does not, and there is no check_identifier: memory of the caller's, aligned as malloc's, in which its
     * decode function is tried. An identifier that needs more is opaque. Null and 0, the default: none. */
    void *scratch;
    uint64_t scratch_size; /* in bytes */
} vesk_options;

/* The options that null stands for. */
static inline vesk_options vesk_default_options(void) {
    vesk_options options = {sizeof(vesk_options), 0, 1, 0, 0, 0, 0};
    return options;
}

/* ==== Arena ==========================================================================================================
 *
 * Memory for messages, given back as a whole, with limits. Two of its functions fit the library's callbacks, with the
 * arena as their context:
 *
 *     vesk_arena arena;
 *     vesk_arena_of_buffer(&arena, memory, sizeof memory);
 *     code = vesk_pem_data_decode_ext(&pem, input, length, vesk_arena_alloc, &arena, 0);
 *     ...
 *     vesk_arena_close(&arena);
 *
 * Freeing a message that was decoded into an arena is optional: closing or resetting gives back every block, also those
 * that a repeated nested message lost, of which no message knows. One thread at a time. */
typedef struct vesk_arena {
    size_t size; /* sizeof(vesk_arena), by the function that sets it up; what follows is the arena's own */
    unsigned char *next;
    unsigned char *end;
    uint64_t bytes_left;
    uint64_t blocks_left;
    uint64_t most_bytes;
    uint64_t most_blocks;
    unsigned char *buffer;
    unsigned char *buffer_end;
    void *first_chunk;
    void *chunk;
    vesk_alloc alloc;
    vesk_release release;
    void *context;
} vesk_arena;

/* An arena over memory of the caller's: `size` bytes of any alignment, which must outlive it; null if `size` is 0. */
VESK_API void vesk_arena_of_buffer(vesk_arena *arena, void *buffer, uint64_t size);

/* An arena over blocks that it asks `alloc` for as it needs them, some KiB at a time, and gives back to `release`; both
 * with `context`, neither of the two null. */
VESK_API void vesk_arena_of_blocks(vesk_arena *arena, vesk_alloc alloc, vesk_release release, void *context);

/* Sets limits, counted from now on and again after each reset: a request that would go above one of them is answered
 * with null, so that a decode ends with VESK_NO_MEMORY and nothing is lost. `bytes` counts the requests, each rounded
 * up to a multiple of malloc's alignment, which is 16 on most machines, and counted as one at the least; UINT64_MAX, as
 * at first, is no limit. */
VESK_API void vesk_arena_limit(vesk_arena *arena, uint64_t bytes, uint64_t blocks);

/* A limit in bytes for the decode of `length` bytes from a stranger: 4 KiB, and 32 bytes of memory for each byte of
 * input. Records of every day take 2 to 6, honest lists of nearly empty records up to 30, and an attacker's list of
 * empty ones as much as 284. UINT64_MAX if that is more than 64 bits can say. */
VESK_API uint64_t vesk_arena_limit_for(uint64_t length);

/* Fit vesk_alloc and vesk_release; `arena` is a vesk_arena. A block is aligned as malloc's, also one of 0 bytes; null
 * at a limit, where the sum would not fit 64 bits, or if there is no memory left. Releasing does nothing. */
VESK_API void *vesk_arena_alloc(uint64_t size, void *arena);
VESK_API void vesk_arena_release(void *block, void *arena);

/* Takes back all blocks and keeps the memory for the next message. What turns out too small for it is then given back:
 * no more is held than twice the largest limit in bytes and some 8 KiB. In a program with AddressSanitizer their bytes
 * may not be touched any more. */
VESK_API void vesk_arena_reset(vesk_arena *arena);

/* Takes back all blocks and gives back all memory; the arena must be set up anew before it is used again. Not to be left
 * out before a buffer is used for something else, be it by leaving the function: AddressSanitizer keeps its bytes. */
VESK_API void vesk_arena_close(vesk_arena *arena);

/* ==== Pre-flight ================================================================================================== */

/* Bytes of a path in a report, the NUL at its end included. */
enum vesk_limit {
    VESK_PATH_SIZE = 256
};

/* What decoding an input would come to. */
typedef struct vesk_report {
    size_t size; /* sizeof(vesk_report), set by the caller before each call */

    /* What decode would return with a callback that always has a block. */
    int32_t code;

    /* Identifiers in what was looked at that nobody could look into; 0 almost everywhere. Their blocks are not in the
     * figures, and one of them may have an error of its own, which would come first. If there is no other error the
     * code is VESK_OPAQUE. */
    uint32_t opaque;

    /* Where code is not 0: the offset in the input of the first byte of the tag that the decoder objects to, and the
     * path of its field, "port_list[1].entity_common.f2": down to the element and member; of an element whose length is
     * cut short or too long "list[i]"; of a list that begins a second time the list; of a tag that is unknown or cut
     * short the message that it stands in, "" at the top. Else the length of the input and "". A longer path loses its
     * end. */
    uint64_t at;
    char path[VESK_PATH_SIZE];

    vesk_cost cost;         /* what decode asks for, up to the error if there is one */
    uint64_t lost_bytes;    /* of these, what no message points to any more: of nested messages that occurred again */
    uint64_t lost_blocks;
    uint64_t unknown_bytes; /* of unknown fields that are skipped, tags included */
    uint64_t arena_size;    /* bytes of a buffer whose arena has room for all of it, whatever its alignment */

    /* 1 if the known fields of every message stand in the order of their declaration and each once, as encode writes
     * them: one pass over the input then sees what decoding would leave. Else 0, also after an error, and if there is an
     * identifier that its library does not describe. */
    uint32_t in_order;
} vesk_report;

/* Says what decoding an input would come to, exactly, without allocating, in time linear in its length.
 *
 *   type     of the message; not null
 *   input    read only; `length` bytes; may be null if that is 0
 *   flags    those of the decode: 0 or VESK_BYTES_BY_REFERENCE
 *   report   out; its `size` is set before; may be null if the code alone is wanted
 *   options  check_identifier and scratch count; may be null
 *
 * Result: the report's code. */
VESK_API int32_t vesk_check(const vesk_type *type, const void *input, uint64_t length, uint32_t flags,
                            vesk_report *report, const vesk_options *options);

/* ---- A message in one block ---- */

/* The memory of a message that was decoded with VESK_DECODE_IN_ONE_BLOCK. */
typedef struct vesk_one_block {
    size_t size; /* sizeof(vesk_one_block), by VESK_DECODE_IN_ONE_BLOCK; what follows is its own */
    void *memory;
    vesk_arena arena;
    int32_t code;
} vesk_one_block;

/* Decodes a message with all that it owns into one block of just the size that this takes: a pre-flight, one request,
 * the decode. `decode` is the type's decode function.
 *
 *     vesk_one_block block;
 *     code = VESK_DECODE_IN_ONE_BLOCK(vesk_pem_data_decode_ext, vesk_type_named("pem_data"), &pem, input, length,
 *                                     flags, alloc, context, &block, NULL);
 *     ...
 *     vesk_one_block_release(&block, release, context);
 *
 * Result: that of decode; VESK_OPAQUE if an identifier cannot be looked into. If the pre-flight ends with an error that
 * is returned at once: no block is asked for, and `message` is not touched. A type whose structure has no pointer may be
 * decoded without a pre-flight. An input that changes between the two ends in VESK_NO_MEMORY or another code, never
 * outside the block. Every argument but `decode`, `message`, `input`, `length`, `flags` and `block` is evaluated once.
 * Release the block in every case; the message itself is not freed. */
#define VESK_DECODE_IN_ONE_BLOCK(decode, type, message, input, length, flags, alloc, context, block, options)         \
    (vesk_one_block_open((block), (type), (input), (length), (flags), (alloc), (context), (options)) != VESK_OK       \
         ? (block)->code                                                                                              \
         : decode((message), (input), (length), vesk_arena_alloc, &(block)->arena, (flags)))

/* The first half of VESK_DECODE_IN_ONE_BLOCK: pre-flight and request. `alloc` is asked at most once. */
VESK_API int32_t vesk_one_block_open(vesk_one_block *block, const vesk_type *type, const void *input, uint64_t length,
                                     uint32_t flags, vesk_alloc alloc, void *context, const vesk_options *options);

/* Gives the block back, if there is one; `release` may be null if there is none. A second call does nothing. */
VESK_API void vesk_one_block_release(vesk_one_block *block, vesk_release release, void *context);

/* ==== Encoding ==================================================================================================== */

/* Encodes a message into a block of just the size that this takes.
 *
 *   type     of the message; not null
 *   message  read only; not null; as for the type's encode function
 *   alloc    asked once, also for 0 bytes; not null
 *   context  passed to alloc unchanged; may be null
 *   bytes    out: the block, which is the caller's; null after an error
 *   length   out: the bytes of the encoding; 0 after an error
 *
 * Result: VESK_OK; VESK_NO_MEMORY; VESK_TOO_LONG if a string, bytes field, nested message or identifier has 4 GiB or
 * more, which the wire cannot carry: no block is asked for, and no data of that length is read. VESK_OPAQUE if a message
 * of others has one in it that belongs to a further library and is not cleared. */
VESK_API int32_t vesk_encode(const vesk_type *type, const void *message, vesk_alloc alloc, void *context, void **bytes,
                             uint64_t *length);

/* Lists the stretches of a message's encoding for a gathering write: put together they are, byte for byte, what a plain
 * encoding gives, for every type. Bytes fields stay where they are and are listed, everything else is in the buffer.
 * <vesk/vesk_gather_posix.h> sends such a list.
 *
 *   type           of the message; not null
 *   message        read only; not null
 *   buffer         out; *length bytes; may be null if that is 0
 *   length         in: bytes that `buffer` can hold; out: bytes of it that the encoding needs. Not null.
 *   segments       out; an array of *segment_count segments; may be null if that is 0
 *   segment_count  in: segments that `segments` can hold; out: segments that the encoding needs. None is empty. Not
 *                  null.
 *   options        gather_threshold counts; may be null
 *
 * Result: VESK_OK; VESK_TOO_SHORT if the buffer or the list is too short, whose needs are told and whose contents are
 * then nothing to rely on; VESK_TOO_LONG and VESK_OPAQUE as for vesk_encode, the first also if there are more segments
 * than 32 bits can count: *length and *segment_count are then 0. A call without buffer and list measures. Data that is listed is never read.
 *
 * Of a buffer that is longer than need be the last bytes are used, and of a list the first segments. Identifiers are
 * measured by their library in each call, and written by it, once, where there is room.
 *
 * Ownership: nothing changes hands. Segments point into `buffer` and at the message's own bytes fields, and are good
 * for as long as those are: keep the buffer, and neither change nor free the message, until all is sent. */
VESK_API int32_t vesk_gather(const vesk_type *type, const void *message, void *buffer, uint64_t *length,
                             vesk_segment *segments, uint32_t *segment_count, const vesk_options *options);

/* ==== Peek ======================================================================================================== */

/* A field as it stands in encoded bytes or in a message. */
typedef struct vesk_value {
    size_t size; /* sizeof(vesk_value), set by the caller before each call */
    const vesk_type *type; /* of a nested message, an element or a list's elements; else null */
    uint16_t kind;         /* a vesk_kind; an element of a list is a VESK_KIND_MESSAGE, of a repeated field what it is
                              without VESK_KIND_REPEATED */
    uint32_t count;        /* elements of a list or repeated field */
    uint64_t number;       /* a scalar; a flag is 0 or 1. Of a kind with a sign its two's complement in 64 bits, of a
                              float or double its bits. */
    const void *data;      /* of a string or bytes field: its bytes, a string's without NUL at the end; of a nested
                              message or element: its encoding; of a list, or of repeated strings or bytes: from the
                              first element's length to the end of the last; of repeated scalars: from the first tag.
                              From encoded bytes it points into these; see vesk_diff for messages. */
    uint64_t length;       /* bytes at `data` */
} vesk_value;

/* Reads one field out of encoded bytes without decoding the message or allocating.
 *
 *   type     of the message; not null
 *   path     "sensor_list[3].entity_common.f3": names as in the schema, an element's index from 0 on. "" is the message
 *            itself.
 *   input    read only; `length` bytes; may be null if that is 0
 *   value    out; its `size` is set before; what decoding would leave, so of a field that occurs again the last;
 *            unchanged unless the result is VESK_OK. Points into the input.
 *   options  flags, check_identifier and scratch count; may be null
 *
 * Result: VESK_OK; VESK_ABSENT; VESK_NO_SUCH_PATH; VESK_PAST_THE_END; VESK_OPAQUE if the way leads into an
 * identifier that nobody describes, or if one cannot be looked into and VESK_FIRST_OCCURRENCE is not given; else the
 * code of the first error anywhere in the input, as decode would return it. A wrong path is answered first. */
VESK_API int32_t vesk_peek(const vesk_type *type, const char *path, const void *input, uint64_t length,
                           vesk_value *value, const vesk_options *options);

/* The elements of a list or repeated field in encoded bytes, one after the other. What follows `size` is the iterator's
 * own; it points into the input. One thread at a time. */
typedef struct vesk_iterator {
    size_t size; /* sizeof(vesk_iterator), by vesk_iterate */
    const vesk_field *field;
    const unsigned char *next;
    const unsigned char *end;
    uint32_t packed_left;
} vesk_iterator;

/* Sets up an iterator over the list or repeated field at `path`; arguments and results as vesk_peek's, and
 * VESK_NO_SUCH_PATH also where the path names no such field. After any other result than VESK_OK the iterator has no
 * element. */
VESK_API int32_t vesk_iterate(vesk_iterator *iterator, const vesk_type *type, const char *path, const void *input,
                              uint64_t length, const vesk_options *options);

/* The next element: 1, and `element`, whose `size` is set before, has its type and the extent of its encoding, or its
 * value; or 0 after the last. To read a field of it, peek with these. */
VESK_API int vesk_next(vesk_iterator *iterator, vesk_value *element);

/* ==== Equal, diff, lint =========================================================================================== */

/* Called for a path at which two messages differ. `path` is good until the call returns; `left` and `right` are the
 * values there, null on the side where there is none; their `data` is the message's own (of a nested message or element
 * the structure, with its size in bytes as length). Anything but 0 ends the comparison. */
typedef int32_t (*vesk_on_difference)(const char *path, const vesk_value *left, const vesk_value *right, void *context);

/* Compares two messages of one type by what they would encode, so that values without their presence bit do not count.
 *
 *   type           of both; not null
 *   left, right    read only; not null
 *   on_difference  called for each path that differs, in declaration order, elements of lists by their index; of a
 *                  nested message or element that one side has and the other has not, once for the whole. A list that
 *                  is not encoded has no elements; a flag is compared by its byte. May be null.
 *   context        passed to it unchanged; may be null
 *   differences    out: the number of paths that differ, so far; may be null
 *   options        scratch counts, for identifiers that nobody describes: their encodings are compared there. May be
 *                  null.
 *
 * Result: VESK_OK; VESK_STOPPED if on_difference ended it; VESK_OPAQUE if identifiers could not be compared, and
 * nothing is said of these. */
VESK_API int32_t vesk_diff(const vesk_type *type, const void *left, const void *right, vesk_on_difference on_difference,
                           void *context, uint64_t *differences, const vesk_options *options);

/* 1 if two messages of one type would encode to the same bytes, 0 if not; VESK_OPAQUE if that depends on identifiers
 * that could not be compared. Arguments as vesk_diff's. */
VESK_API int32_t vesk_equal(const vesk_type *type, const void *left, const void *right, const vesk_options *options);

/* What vesk_lint finds. The values are fixed. */
enum vesk_finding {
    VESK_LINT_NOT_MARKED = 1, /* a scalar other than 0, a string, a length or a count other than 0 without its presence
                                 bit: it is not encoded */
    VESK_LINT_NULL_STRING = 2, /* its bit is set, and it is null: it is not encoded */
    VESK_LINT_EMPTY_LIST = 3,  /* its bit is set, and it has no element: it is not encoded */
    VESK_LINT_NULL_DATA = 4,   /* a null array with a count, null data with a length, with its bit or without:
                                  encoding or duplicating would read through it */
    VESK_LINT_TOO_LONG = 5,    /* a string, bytes field or nested message of 4 GiB or more: the wire cannot carry it */
    VESK_LINT_NOT_UTF8 = 6,    /* a remark: a string that is not UTF-8, which other protobuf parsers may refuse */
    VESK_LINT_OPAQUE = 7       /* a remark: an identifier that nobody describes, not looked into */
};

/* Called for each finding; `path` is good until the call returns. Anything but 0 ends the search. */
typedef int32_t (*vesk_on_finding)(int32_t finding, const char *path, void *context);

/* Looks for what was probably not meant in a message that is about to be encoded.
 *
 *   type        of the message; not null
 *   message     read only; not null
 *   on_finding  may be null
 *   context     passed to it unchanged; may be null
 *   options     may be null; nothing of it counts today
 *
 * A string or list without its bit is not read. Without a finding, a VESK_TOO_LONG of vesk_encode can only come from an
 * identifier that nobody describes.
 *
 * Result: the number of findings up to the end, remarks not counted; 0 for a good message. */
VESK_API uint64_t vesk_lint(const vesk_type *type, const void *message, vesk_on_finding on_finding, void *context,
                            const vesk_options *options);

#ifdef __cplusplus
}
#endif

#endif
