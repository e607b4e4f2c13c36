#include "eid_text.h"

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

/* Each of these reads one piece and returns the position behind it, or null. */

static const char* read_number(const char* at, uint32_t* number) {
    uint64_t value = 0;
    if (*at < '0' || *at > '9') return NULL;
    if (at[0] == '0' && at[1] >= '0' && at[1] <= '9') return NULL;
    for (; *at >= '0' && *at <= '9'; ++at) {
        value = value * 10 + (uint64_t)(*at - '0');
        if (value > UINT32_MAX) return NULL;
    }
    *number = (uint32_t)value;
    return at;
}

static const char* read_slash(const char* at) { return at != NULL && *at == '/' ? at + 1 : NULL; }

static const char* read_place(const char* at, uint32_t* number) {
    return at == NULL ? NULL : read_slash(read_number(at, number));
}

static const char* read_kind_and_index(const char* at, uint32_t* kind, uint32_t* index) {
    if (at == NULL) return NULL;
    size_t length = strspn(at, "abcdefghijklmnopqrstuvwxyz_");
    *kind = kind_named(at, length);
    return *kind == KIND_ANY ? NULL : read_number(at + length, index);
}

enum entity_kind eid_from_text(const char* text, vesk_drin_eid_st* eid, vesk_drin_eid_element* elements) {
    uint32_t rack = 0, shelf = 0, slot = 0, kind = 0, index = 0;
    const char* at = read_place(read_place(read_place(text, &rack), &shelf), &slot);
    at = read_kind_and_index(at, &kind, &index);
    if (at == NULL) return KIND_ANY;

    memset(eid, 0, sizeof *eid);
    drin_eid_st_set_rack(eid, rack);
    drin_eid_st_set_shelf(eid, shelf);
    drin_eid_st_set_slot(eid, slot);
    drin_eid_st_set_kind(eid, kind);
    drin_eid_st_set_index(eid, index);
    while (*at != '\0') {
        if (eid->element_list_count == EID_ELEMENT_LIMIT) return KIND_ANY;
        at = read_kind_and_index(read_slash(at), &kind, &index);
        if (at == NULL) return KIND_ANY;
        vesk_drin_eid_element* element = &elements[eid->element_list_count++];
        memset(element, 0, sizeof *element);
        drin_eid_element_set_kind(element, kind);
        drin_eid_element_set_index(element, index);
        eid->element_list = elements;
        VESK_MARK(eid, VESK_DRIN_EID_ST_ELEMENT_LIST);
    }
    return (enum entity_kind)kind;
}

/* These append within EID_TEXT_SIZE, which leaves room for the longest pieces there can be. */

static void append(char* text, const char* piece) {
    size_t length = strlen(text);
    snprintf(text + length, EID_TEXT_SIZE - length, "%s", piece);
}

static void append_kind_and_index(char* text, uint32_t kind, uint32_t index) {
    size_t length = strlen(text);
    const char* name = kind_name(kind);
    if (name != NULL) {
        snprintf(text + length, EID_TEXT_SIZE - length, "/%s%" PRIu32, name, index);
    } else {
        snprintf(text + length, EID_TEXT_SIZE - length, "/?%" PRIu32 ":%" PRIu32, kind, index);
    }
}

void eid_to_text(const vesk_drin_eid_st* eid, char text[EID_TEXT_SIZE]) {
    snprintf(text, EID_TEXT_SIZE, "%" PRIu32 "/%" PRIu32 "/%" PRIu32, drin_eid_st_rack(eid), drin_eid_st_shelf(eid),
             drin_eid_st_slot(eid));
    append_kind_and_index(text, drin_eid_st_kind(eid), drin_eid_st_index(eid));
    for (uint32_t i = 0; i < eid->element_list_count; ++i) {
        if (i == EID_ELEMENT_LIMIT) {
            append(text, "/...");
            break;
        }
        append_kind_and_index(text, drin_eid_element_kind(&eid->element_list[i]),
                              drin_eid_element_index(&eid->element_list[i]));
    }
}
