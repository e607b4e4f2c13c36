/* The table of meanings.def as C sees it: the kinds of entity, the rows of the records' members, and a pair of
 * functions for each number of an EID, request or answer. */
#ifndef MEANINGS_H
#define MEANINGS_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <vesk/client_service.h>

#ifdef __cplusplus
extern "C" {
#endif

/* KIND_CHASSIS and so on; 0 is no kind. */
enum entity_kind {
    KIND_ANY = 0,
#define KIND(code, name, NAME, record) KIND_##NAME = (code),
#include "meanings.def"
};

/* chassis_record and so on. What all kinds share is reached through the record that has nothing else. */
typedef vesk_base_data any_record;
#define KIND(code, name, NAME, record) typedef record name##_record;
#include "meanings.def"

/* drin_eid_st_rack(&eid), drin_eid_st_set_rack(&eid, 1) and so on. An absent number reads as 0. */
#define VALUE(message, MESSAGE, meaning, number)                                                       \
    static inline uint32_t message##_##meaning(const vesk_##message* from) { return from->f##number; } \
    static inline void message##_set_##meaning(vesk_##message* to, uint32_t value) {                   \
        to->f##number = value;                                                                         \
        VESK_MARK(to, VESK_##MESSAGE##_F##number);                                                     \
    }
#include "meanings.def"

enum lookup_reason { LOOKUP_NO_SUCH_ENTITY = 1 };

enum meaning_form { FORM_NUMBER, FORM_NUMBER64, FORM_CHOICE, FORM_FLAG, FORM_TEXT };

/* One row for a member of a record. */
struct meaning {
    enum entity_kind kind; /* KIND_ANY: every record has it */
    const char* key;
    enum meaning_form form;
    size_t member;  /* where the member stands in the record */
    size_t present; /* where its presence bits stand */
    unsigned bit;
    uint64_t lowest;
    uint64_t highest;
    const char* text; /* unit, or words with | between them */
    bool column;
};

extern const struct meaning meanings[];
extern const size_t meaning_count;

/* The name of a kind; null if there is no kind of that code. */
const char* kind_name(uint32_t code);

/* The kind with the name of `length` characters; KIND_ANY if there is none. */
enum entity_kind kind_named(const char* name, size_t length);

/* Whether records of this kind have the member. */
bool meaning_applies(const struct meaning* meaning, enum entity_kind kind);

/* The row of a key for records of this kind; null if there is none. */
const struct meaning* meaning_of_key(enum entity_kind kind, const char* key);

/* Whether the member is present in the record. */
bool meaning_has(const struct meaning* meaning, const void* record);

/* Value of a member of any form but FORM_TEXT. */
uint64_t meaning_number(const struct meaning* meaning, const void* record);
void meaning_set_number(const struct meaning* meaning, void* record, uint64_t value);

/* Value of a FORM_TEXT member. It belongs to whoever owns the record; it may be null. */
char* meaning_text(const struct meaning* meaning, const void* record);
void meaning_set_text(const struct meaning* meaning, void* record, char* text);

/* The word of a FORM_CHOICE member for a value, which is not NUL-terminated; null if the value has none. */
const char* meaning_word(const struct meaning* meaning, uint64_t value, size_t* length);

#ifdef __cplusplus
}
#endif

#endif
