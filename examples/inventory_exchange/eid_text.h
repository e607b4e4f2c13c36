/* Entity identifiers as people write them:
 *
 *     rack/shelf/slot/kind+index[/kind+index...]
 *
 *     1/1/0/chassis1                 the chassis of shelf 1 in rack 1
 *     1/1/3/port12                   port 12 of the card in slot 3
 *     1/1/3/processor1/sensor2       sensor 2 of processor 1 on that card
 *
 * Every entity has one such text and every text one entity: numbers have no leading zeros. */
#ifndef EID_TEXT_H
#define EID_TEXT_H

#include <stdbool.h>
#include <stddef.h>

#include "meanings.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    EID_ELEMENT_LIMIT = 4, /* elements of an EID that can be written as text */
    EID_TEXT_SIZE = 160    /* enough for every such text and its NUL */
};

/* Reads an EID. Its elements are stored in `elements`, an array of EID_ELEMENT_LIMIT that must live as long as the
 * EID. Returns the kind of the entity, which is the last one in the text, or KIND_ANY if the text is not an EID. */
enum entity_kind eid_from_text(const char* text, vesk_drin_eid_st* eid, vesk_drin_eid_element* elements);

/* Writes an EID, of whatever origin, as text. An unknown kind appears as ?CODE:, and further elements than can be
 * written as ... ; neither is ever the text of an entity. */
void eid_to_text(const vesk_drin_eid_st* eid, char text[EID_TEXT_SIZE]);

#ifdef __cplusplus
}
#endif

#endif
