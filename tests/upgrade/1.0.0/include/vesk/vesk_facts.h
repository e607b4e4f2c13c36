/* What a message type is, as constant data: the names, numbers, kinds and places of its fields. For tools that work on
 * any message, such as libvesk_toolkit; who calls the four functions of a type needs none of it.
 *
 * Plain C99 and C++. The data needs no relocation: where a row names something else, it says how many bytes away from
 * the row itself that lies. All of it is constant and lives as long as the library that has it; any number of threads
 * may read it. Rows may grow at their end in later versions, so they are reached through the functions below, never by
 * arithmetic of your own. No function here checks its argument for null. */
#ifndef VESK_FACTS_H
#define VESK_FACTS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What a field is. The values are fixed: a kind is never renumbered. */
enum vesk_kind {
    VESK_KIND_UINT32 = 1, /* uint32_t */
    VESK_KIND_UINT64 = 2, /* uint64_t */
    VESK_KIND_BOOL = 3,   /* uint8_t */
    VESK_KIND_STRING = 4, /* char *, NUL-terminated, or null */
    VESK_KIND_BYTES = 5,  /* uint8_t *, then its length in bytes as a uint64_t */
    VESK_KIND_MESSAGE = 6, /* a structure held by value */
    VESK_KIND_LIST = 7,   /* a pointer to an array of structures, then their number as a uint32_t */
    /* What follows is for the messages of others; the library's own have none of it. */
    VESK_KIND_SINT32 = 8,    /* int32_t, on the wire 0, -1, 1, -2 as 0, 1, 2, 3 */
    VESK_KIND_SINT64 = 9,    /* int64_t, the same */
    VESK_KIND_INT32 = 10,    /* int32_t, on the wire its 64-bit value: ten bytes if it is below 0 */
    VESK_KIND_INT64 = 11,    /* int64_t */
    VESK_KIND_FIXED32 = 12,  /* uint32_t, four bytes on the wire */
    VESK_KIND_FIXED64 = 13,  /* uint64_t, eight bytes */
    VESK_KIND_SFIXED32 = 14, /* int32_t, four bytes */
    VESK_KIND_SFIXED64 = 15, /* int64_t, eight bytes */
    VESK_KIND_FLOAT = 16,    /* float, four bytes */
    VESK_KIND_DOUBLE = 17,   /* double, eight bytes */
    VESK_KIND_ENUM = 18,     /* int32_t, on the wire as VESK_KIND_INT32; any value */
    /* Added to a scalar kind, to VESK_KIND_STRING or VESK_KIND_BYTES: a pointer to an array of what the kind itself says
     * (uint8_t for a bool, char * for a string, vesk_bytes for bytes), then their number as a uint32_t. The field's tag
     * says how scalars are written: packed if its wire type is 2, one by one if it is the kind's own. Both are read. */
    VESK_KIND_REPEATED = 64
};

/* Bits of a type's flags. */
enum vesk_type_flag {
    /* The type belongs to another library, and this row says its name and the size of its structure, but not its
     * fields. */
    VESK_TYPE_ELSEWHERE = 1,
    /* It has field numbers that by_number_at does not cover. */
    VESK_TYPE_SPARSE = 2,
    /* It has fields of kinds after VESK_KIND_LIST. */
    VESK_TYPE_OTHER_KINDS = 4
};

/* A message type. Offsets count bytes from the row's own address. */
typedef struct vesk_type {
    uint32_t size;            /* of this row, in bytes */
    int32_t name_at;          /* its bare name, "pem_data", NUL-terminated */
    int32_t unit_at;          /* the unit that defines it, "client_service" */
    int32_t next_at;          /* the next type that the same library describes; 0 if this is the last */
    int32_t fields_at;        /* its fields, in the order of their declaration */
    int32_t by_number_at;     /* for each field number below number_count, in 16 bits: the field's place from 1 on, or 0
                                 */
    uint32_t structure_size;  /* of the message's structure, in bytes */
    uint32_t presence_offset; /* of the presence bits in it */
    uint16_t alignment;       /* of the structure, in bytes */
    uint16_t flags;           /* bits of vesk_type_flag */
    uint16_t field_count;     /* of rows at fields_at */
    uint16_t field_size;      /* of a field's row, in bytes */
    uint32_t number_count;    /* one more than the highest field number that by_number_at covers */
} vesk_type;

/* A field. Offsets named _at count bytes from the row's own address. */
typedef struct vesk_field {
    int32_t name_at;      /* "f3", NUL-terminated */
    int32_t nested_at;    /* the type of a nested message or of a list's elements; 0 for any other kind */
    uint32_t tag;         /* on the wire: the field number times 8, and the wire type */
    uint32_t offset;      /* of the member in the structure; of a pointer with a length or number, the pointer's */
    uint32_t size_offset; /* of a bytes field's length or of the number of a list's or repeated field's elements; else 0 */
    uint16_t presence_bit; /* its number */
    uint16_t kind;         /* a vesk_kind, with VESK_KIND_REPEATED added or not */
} vesk_field;

/* The bare name of a type, "pem_data". */
static inline const char *vesk_type_name(const vesk_type *type) { return (const char *)type + type->name_at; }

/* The unit that defines a type, "client_service". */
static inline const char *vesk_type_unit(const vesk_type *type) { return (const char *)type + type->unit_at; }

/* The next type that the same library describes; null after the last. */
static inline const vesk_type *vesk_type_next(const vesk_type *type) {
    return type->next_at != 0 ? (const vesk_type *)(const void *)((const char *)type + type->next_at) : 0;
}

/* The field at a place in the order of the declaration, from 0 to field_count - 1. */
static inline const vesk_field *vesk_type_field(const vesk_type *type, uint32_t place) {
    const char *fields = (const char *)type + type->fields_at;
    return (const vesk_field *)(const void *)(fields + (uint64_t)place * type->field_size);
}

/* The field of this number on the wire; null if the type has none. */
static inline const vesk_field *vesk_type_field_numbered(const vesk_type *type, uint32_t number) {
    uint32_t place = 0;
    if (number < type->number_count) {
        const uint16_t *by_number = (const uint16_t *)(const void *)((const char *)type + type->by_number_at);
        place = by_number[number];
        return place != 0 ? vesk_type_field(type, place - 1) : 0;
    }
    if ((type->flags & VESK_TYPE_SPARSE) == 0) return 0;
    for (; place < type->field_count; ++place) {
        if (vesk_type_field(type, place)->tag >> 3 == number) return vesk_type_field(type, place);
    }
    return 0;
}

/* The number of a field on the wire. */
static inline uint32_t vesk_field_number(const vesk_field *field) { return field->tag >> 3; }

/* The name of a field, "f3". */
static inline const char *vesk_field_name(const vesk_field *field) { return (const char *)field + field->name_at; }

/* The type of a nested message or of a list's elements; null for any other kind. */
static inline const vesk_type *vesk_field_nested(const vesk_field *field) {
    return field->nested_at != 0 ? (const vesk_type *)(const void *)((const char *)field + field->nested_at) : 0;
}

#ifdef __cplusplus
}
#endif

#endif
