#include "meanings.h"

#include <string.h>

/* The rows give offsets from the beginning of a record, and those of the shared head must be good in every kind. */
#define KIND(code, name, NAME, record)                                                                              \
    _Static_assert(offsetof(record, entity_common) == offsetof(any_record, entity_common), "the head comes first"); \
    _Static_assert(offsetof(record, fru_common) == offsetof(any_record, fru_common), "the head comes first");
#include "meanings.def"

/* A row whose form does not fit its member does not compile. */
#define TYPE_OF_NUMBER uint32_t
#define TYPE_OF_NUMBER64 uint64_t
#define TYPE_OF_CHOICE uint32_t
#define TYPE_OF_FLAG uint8_t
#define TYPE_OF_TEXT char*
#define MEMBER(kind, key, block, BLOCK, number, form, show, lowest, highest, text) \
    _Static_assert(_Generic(((kind##_record*)0)->block f##number, TYPE_OF_##form : 1, default : 0), #key);
#include "meanings.def"

/* In the rows a kind stands by its small name. */
enum small_kind_names {
    kind_code_any = KIND_ANY,
#define KIND(code, name, NAME, record) kind_code_##name = KIND_##NAME,
#include "meanings.def"
};

enum { SHOW_DETAIL = 0, SHOW_COLUMN = 1 };

const struct meaning meanings[] = {
#define MEMBER(kind, key, block, BLOCK, number, form, show, lowest, highest, text) \
    {(enum entity_kind)kind_code_##kind,                                           \
     #key,                                                                         \
     FORM_##form,                                                                  \
     offsetof(kind##_record, block f##number),                                     \
     offsetof(kind##_record, block present),                                       \
     VESK_##BLOCK##_F##number,                                                     \
     lowest,                                                                       \
     highest,                                                                      \
     text,                                                                         \
     SHOW_##show},
#include "meanings.def"
};

const size_t meaning_count = sizeof meanings / sizeof *meanings;

static const char* const kind_names[] = {
#define KIND(code, name, NAME, record) [KIND_##NAME] = #name,
#include "meanings.def"
};

const char* kind_name(uint32_t code) { return code < sizeof kind_names / sizeof *kind_names ? kind_names[code] : NULL; }

enum entity_kind kind_named(const char* name, size_t length) {
    for (uint32_t code = 1; kind_name(code) != NULL; ++code) {
        if (strlen(kind_name(code)) == length && memcmp(name, kind_name(code), length) == 0) {
            return (enum entity_kind)code;
        }
    }
    return KIND_ANY;
}

bool meaning_applies(const struct meaning* meaning, enum entity_kind kind) {
    return meaning->kind == KIND_ANY || meaning->kind == kind;
}

const struct meaning* meaning_of_key(enum entity_kind kind, const char* key) {
    for (size_t i = 0; i < meaning_count; ++i) {
        if (meaning_applies(&meanings[i], kind) && strcmp(meanings[i].key, key) == 0) return &meanings[i];
    }
    return NULL;
}

/* Members are copied in and out as bytes, which is good for every type that a row can have. */
static const void* member_of(const struct meaning* meaning, const void* record) {
    return (const uint8_t*)record + meaning->member;
}

static void store(const struct meaning* meaning, void* record, const void* value, size_t size) {
    uint8_t* bytes = record;
    memcpy(bytes + meaning->member, value, size);
    vesk_mark(bytes + meaning->present + meaning->bit / 8, meaning->bit % 8);
}

bool meaning_has(const struct meaning* meaning, const void* record) {
    const uint8_t* present = (const uint8_t*)record + meaning->present;
    return (present[meaning->bit / 8] >> (meaning->bit % 8) & 1) != 0;
}

uint64_t meaning_number(const struct meaning* meaning, const void* record) {
    uint32_t number = 0;
    uint64_t number64 = 0;
    switch (meaning->form) {
        case FORM_FLAG: return *(const uint8_t*)member_of(meaning, record);
        case FORM_NUMBER64: memcpy(&number64, member_of(meaning, record), sizeof number64); return number64;
        default: memcpy(&number, member_of(meaning, record), sizeof number); return number;
    }
}

void meaning_set_number(const struct meaning* meaning, void* record, uint64_t value) {
    uint32_t number = (uint32_t)value;
    uint8_t flag = value != 0;
    switch (meaning->form) {
        case FORM_FLAG: store(meaning, record, &flag, sizeof flag); break;
        case FORM_NUMBER64: store(meaning, record, &value, sizeof value); break;
        default: store(meaning, record, &number, sizeof number); break;
    }
}

char* meaning_text(const struct meaning* meaning, const void* record) {
    char* text = NULL;
    memcpy(&text, member_of(meaning, record), sizeof text);
    return text;
}

void meaning_set_text(const struct meaning* meaning, void* record, char* text) {
    store(meaning, record, &text, sizeof text);
}

const char* meaning_word(const struct meaning* meaning, uint64_t value, size_t* length) {
    const char* word = meaning->text;
    for (; value > 0; --value) {
        word = strchr(word, '|');
        if (word == NULL) return NULL;
        ++word;
    }
    *length = strcspn(word, "|");
    return word;
}
