/* libvesk_text: messages as JSON and in protobuf's text format, for people, tools and services; both directions, every
 * type.
 *
 * Plain C99 and C++. It stands beside the library and works on any message type by its facts (vesk_facts.h). It keeps
 * no state and does no input or output: what is printed goes to a callback, what is parsed takes its blocks from the
 * caller's allocator. Threads: different calls may run on any number of threads at once, also on one message that
 * nobody writes meanwhile. Callbacks run on the calling thread.
 *
 * JSON is the protobuf mapping: names as in the schema, numbers of 64 bits as strings, bytes as base64. Both formats
 * say what encoding the message would say, in the order of the declaration: a present field is printed, also if it is
 * 0, false, "" or empty; a null string, a list without elements and a nested message without its presence bit and
 * without content are not.
 *
 * Of messages of others, which their own table describes: float and double are printed with the fewest digits that are
 * read back as the same value, those that are no number or not finite as the mapping says, "NaN", and as the text
 * format does, nan; an enum is a number in both directions, since a table has no names of its values; a repeated field
 * is an array, or a line for each element.
 *
 * An entity identifier is printed and parsed by the description that its library has of itself, as the stand-in's; see
 * vesk_toolkit.h. Where there is none, an identifier that would be printed, or that a text names, ends a call with
 * VESK_OPAQUE; in encoded bytes any identifier does, and the report has no path then.
 *
 * docs/text.md shows both formats and every function by example. */
#ifndef VESK_TEXT_H
#define VESK_TEXT_H

#include <stddef.h>
#include <vesk/vesk_facts.h>
#include <vesk/vesk_runtime.h>
#include <vesk/vesk_toolkit.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Results beside those of vesk_result and vesk_toolkit_result. The values are fixed: one is never renumbered and never
 * reused. */
enum vesk_text_result {
    VESK_TEXT_SYNTAX = -201,       /* the text is not JSON, or not the text format */
    VESK_TEXT_UNKNOWN_NAME = -202, /* the message type has no such field */
    VESK_TEXT_REPEATED = -203,     /* a field stands in a message a second time; in JSON also in its other spelling */
    VESK_TEXT_WRONG_KIND = -204,   /* a value of another kind than the field's: a string for a flag, say */
    VESK_TEXT_OUT_OF_RANGE = -205, /* a number below 0, too large for its field, or no whole number, where the field
                                      takes no such number */
    VESK_TEXT_TOO_DEEP = -206,     /* more than VESK_TEXT_MOST_LEVELS messages inside one another */
    VESK_TEXT_NOT_UTF8 = -207,     /* a string, or a JSON text, that is not UTF-8; half of a surrogate pair */
    VESK_TEXT_NOT_BASE64 = -208,   /* of a bytes field in JSON */
    VESK_TEXT_NUL = -209           /* a text has a NUL inside a string, which a structure cannot hold */
};

/* The name of a result of this library, the toolkit or the library itself, "VESK_TEXT_SYNTAX", and what it means in a
 * few words. Never null. */
static inline const char* vesk_text_result_name(int32_t code) {
    switch (code) {
        case VESK_TEXT_SYNTAX: return "VESK_TEXT_SYNTAX";
        case VESK_TEXT_UNKNOWN_NAME: return "VESK_TEXT_UNKNOWN_NAME";
        case VESK_TEXT_REPEATED: return "VESK_TEXT_REPEATED";
        case VESK_TEXT_WRONG_KIND: return "VESK_TEXT_WRONG_KIND";
        case VESK_TEXT_OUT_OF_RANGE: return "VESK_TEXT_OUT_OF_RANGE";
        case VESK_TEXT_TOO_DEEP: return "VESK_TEXT_TOO_DEEP";
        case VESK_TEXT_NOT_UTF8: return "VESK_TEXT_NOT_UTF8";
        case VESK_TEXT_NOT_BASE64: return "VESK_TEXT_NOT_BASE64";
        case VESK_TEXT_NUL: return "VESK_TEXT_NUL";
        default: return vesk_toolkit_result_name(code);
    }
}
static inline const char* vesk_text_result_text(int32_t code) {
    switch (code) {
        case VESK_TEXT_SYNTAX: return "the text breaks the rules of its format";
        case VESK_TEXT_UNKNOWN_NAME: return "the message type has no field of this name";
        case VESK_TEXT_REPEATED: return "the field occurs a second time";
        case VESK_TEXT_WRONG_KIND: return "the value is of another kind than the field";
        case VESK_TEXT_OUT_OF_RANGE: return "the number does not fit the field";
        case VESK_TEXT_TOO_DEEP: return "too many messages inside one another";
        case VESK_TEXT_NOT_UTF8: return "a string is not UTF-8";
        case VESK_TEXT_NOT_BASE64: return "a bytes field is not base64";
        case VESK_TEXT_NUL: return "a string has a NUL inside";
        default: return vesk_toolkit_result_text(code);
    }
}

/* Limits of the library's own. */
enum vesk_text_limit {
    /* Messages inside one another that are printed or parsed. No message of the library needs a quarter of it. */
    VESK_TEXT_MOST_LEVELS = 32,
    VESK_TEXT_REASON_SIZE = 128 /* bytes of a report's reason */
};

/* ==== Options ========================================================================================================
 *
 * Every function takes options as its last argument; null stands for the defaults. */

/* Bits of options' flags. */
enum vesk_text_flag {
    /* Printing: all in one line without a line feed, instead of a line for each field, indented by 2 blanks a level. */
    VESK_TEXT_ONE_LINE = 1,
    /* JSON: a byte of a string that is not UTF-8 is printed as \udc80 to \udcff, half of a surrogate pair, and such a
     * half is parsed as that byte. Without it both are VESK_TEXT_NOT_UTF8. The text format needs no such flag: its
     * escapes say any byte. */
    VESK_TEXT_LOSSLESS = 2
};

/* How a text is printed or parsed; vesk_default_text_options fills it in. */
typedef struct vesk_text_options {
    size_t size;    /* sizeof(vesk_text_options), by vesk_default_text_options */
    uint32_t flags; /* bits of vesk_text_flag; default: 0 */

    /* Parsing: the memory that the parser itself needs until the call returns, and a limit for it in bytes. It comes
     * from `alloc` and goes back to `release`, both with `context`; default: malloc and free. Printing needs none.
     * The parser asks for the length of the text and, as it goes, for more: it holds 3 to 7 bytes a character for texts
     * of every day, 49 and 2 KiB at the most. Default of the limit: UINT64_MAX, none but this. */
    vesk_alloc alloc;
    vesk_release release;
    void* context;
    uint64_t memory_limit;
} vesk_text_options;

/* The options that null stands for. */
static inline vesk_text_options vesk_default_text_options(void) {
    vesk_text_options options = {sizeof(vesk_text_options), 0, 0, 0, 0, UINT64_MAX};
    return options;
}

/* ==== Report =========================================================================================================
 */

/* What a call came to. Filled in every case. */
typedef struct vesk_text_report {
    size_t size; /* sizeof(vesk_text_report), set by the caller before each call */

    int32_t code; /* the call's result */

    /* Parsing: where the text is wrong, from 1 on; a column is a byte of the line. 0 if the code is VESK_OK, if the
     * error is none of the text's, and when printing. */
    uint64_t line;
    uint64_t column;

    /* The field that the error belongs to, "port_list[1].entity_common.f2"; of an unknown name or an error between two
     * fields the message that it stands in, "" at the top. A longer path loses its end. */
    char path[VESK_PATH_SIZE];

    char reason[VESK_TEXT_REASON_SIZE]; /* what is wrong, in one line; "" if the code is VESK_OK */
} vesk_text_report;

/* ==== Printing ======================================================================================================
 */

/* Takes the next stretch of a text: `length` bytes, never 0, no NUL after them, good until the call returns. Anything
 * but 0 ends the printing; there is no further call then. */
typedef int32_t (*vesk_text_write)(const char* text, size_t length, void* context);

/* Prints a message as JSON or in the text format.
 *
 *   type     of the message; not null
 *   message  read only; not null; as for the type's encode function
 *   write    not null; called with stretches of some KiB; what it got before an error is the beginning of the text
 *   context  passed to write unchanged; may be null
 *   report   out; its `size` is set before; may be null
 *   options  flags count; may be null
 *
 * Result: VESK_OK; VESK_STOPPED if write ended it; VESK_TEXT_NOT_UTF8 (JSON alone, see VESK_TEXT_LOSSLESS);
 * VESK_OPAQUE; VESK_TEXT_TOO_DEEP. Nothing is allocated. */
VESK_API int32_t vesk_json_print(const vesk_type* type, const void* message, vesk_text_write write, void* context,
                                 vesk_text_report* report, const vesk_text_options* options);
VESK_API int32_t vesk_text_print(const vesk_type* type, const void* message, vesk_text_write write, void* context,
                                 vesk_text_report* report, const vesk_text_options* options);

/* Prints encoded bytes as decoding and then printing would, without decoding: of a field that occurs again the last
 * one, a nested message as a whole. A NUL inside a string, at which a decoded one ends for who reads it as C does, is
 * printed as \u0000 or \000, and what follows it, too.
 *
 *   input    read only; `length` bytes; may be null if that is 0. Nobody may write to it meanwhile.
 *   The other arguments are those above.
 *
 * Result: as above; else the code with which decoding would end, as vesk_check finds it: nothing is printed then.
 * Nothing is allocated, and the stack that it takes depends on how deep messages are nested, not on the input's
 * length. */
VESK_API int32_t vesk_json_print_encoded(const vesk_type* type, const void* input, uint64_t length,
                                         vesk_text_write write, void* context, vesk_text_report* report,
                                         const vesk_text_options* options);
VESK_API int32_t vesk_text_print_encoded(const vesk_type* type, const void* input, uint64_t length,
                                         vesk_text_write write, void* context, vesk_text_report* report,
                                         const vesk_text_options* options);

/* ==== Parsing =======================================================================================================
 */

/* Parses a text into a message.
 *
 *   type     of the message; not null
 *   message  out; not null; raw storage of the type's structure_size. What it held is overwritten, not released.
 *   text     read only; `length` bytes, no NUL needed after them; may be null if that is 0
 *   alloc    asked for what decoding the message would ask for: once per string (characters + 1 bytes), per bytes field
 *            (its bytes, also 0) and per list (count * sizeof element). Not asked before the text is known to be good.
 *            May be null: a field that needs it then fails with VESK_NO_MEMORY.
 *   context  passed to alloc unchanged; may be null
 *   report   out; its `size` is set before; may be null
 *   options  all count; may be null
 *
 * JSON: a field may be named as in the schema ("entity_common") or in the mapping's way ("entityCommon"). A number may
 * be written as 300, 3e2, 300.0 or as a string of these; base64 in the characters of both its alphabets, with or
 * without padding. null and a list without elements stand for an absent field. A byte order mark is no JSON.
 * Text format: as protobuf's parser reads it; a field of the same name may stand in one message again if it is a list,
 * wherever.
 *
 * Result: VESK_OK; VESK_NO_MEMORY if alloc had no block, or options' alloc and limit none for the parser itself;
 * VESK_TOO_LONG if the text has 4 GiB or more; VESK_OPAQUE; else one of vesk_text_result. Presence bits are set for
 * what the text names.
 *
 * Ownership: the message owns every block that it points to, also after VESK_NO_MEMORY; after every other error it is
 * cleared and owns none. In each case it may be given to vesk_T_free_ext with flags 0. */
VESK_API int32_t vesk_json_parse(const vesk_type* type, void* message, const char* text, uint64_t length,
                                 vesk_alloc alloc, void* context, vesk_text_report* report,
                                 const vesk_text_options* options);
VESK_API int32_t vesk_text_parse(const vesk_type* type, void* message, const char* text, uint64_t length,
                                 vesk_alloc alloc, void* context, vesk_text_report* report,
                                 const vesk_text_options* options);

#ifdef __cplusplus
}
#endif

#endif
