#include "inventory_table.h"

#include <ctype.h>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include "eid_text.h"
#include "meanings.h"

enum {
    CELL_SIZE = 192,  /* bytes of a cell and its NUL */
    COLUMN_LIMIT = 32 /* columns of one table; more than any kind has */
};

/* ---- Cells ---- */

/* Copies text as far as it fits, without anything that a terminal would act on. */
static void copy_printable(char* cell, const char* text) {
    size_t length = 0;
    for (; *text != '\0' && length < CELL_SIZE - 1; ++text) {
        unsigned char byte = (unsigned char)*text;
        unsigned char next = (unsigned char)text[1];
        int control = byte < 0x20 || byte == 0x7f;
        int long_control = byte == 0xc2 && next >= 0x80 && next < 0xa0; /* the C1 set, in UTF-8 */
        if (long_control) ++text;
        cell[length++] = (char)(control || long_control ? '.' : *text);
    }
    /* A character of which only the beginning fitted goes altogether. */
    if (((unsigned char)*text & 0xc0) == 0x80) {
        while (length > 0 && ((unsigned char)cell[--length] & 0xc0) == 0x80) continue;
    }
    cell[length] = '\0';
}

static void write_word(char* cell, const char* word) { snprintf(cell, CELL_SIZE, "%s", word); }

static void write_number(char* cell, const struct meaning* meaning, uint64_t number) {
    const char* gap = strcmp(meaning->text, "") == 0 ? "" : " ";
    snprintf(cell, CELL_SIZE, "%" PRIu64 "%s%s", number, gap, meaning->text);
}

static void write_choice(char* cell, const struct meaning* meaning, uint64_t value) {
    size_t length = 0;
    const char* word = meaning_word(meaning, value, &length);
    if (word != NULL) {
        snprintf(cell, CELL_SIZE, "%.*s", (int)length, word);
    } else {
        snprintf(cell, CELL_SIZE, "?%" PRIu64, value);
    }
}

/* A member as text; empty if it is absent. */
static void write_member(char* cell, const struct meaning* meaning, const void* record) {
    const char* text;
    cell[0] = '\0';
    if (!meaning_has(meaning, record)) return;
    switch (meaning->form) {
        case FORM_NUMBER:
        case FORM_NUMBER64: write_number(cell, meaning, meaning_number(meaning, record)); break;
        case FORM_CHOICE: write_choice(cell, meaning, meaning_number(meaning, record)); break;
        case FORM_FLAG: write_word(cell, meaning_number(meaning, record) != 0 ? "yes" : "no"); break;
        case FORM_TEXT:
            text = meaning_text(meaning, record);
            copy_printable(cell, text != NULL ? text : "");
            break;
    }
}

static void write_label(char* cell, const struct meaning* meaning) {
    write_word(cell, meaning->key);
    for (char* at = cell; *at != '\0'; ++at) {
        if (*at == '_') *at = ' ';
    }
}

static void write_eid(char* cell, const void* record) {
    char text[EID_TEXT_SIZE];
    eid_to_text(&((const any_record*)record)->entity_common.eid, text);
    write_word(cell, text);
}

/* Characters of UTF-8, which is near enough to columns of a terminal. */
static int width_of(const char* cell) {
    int width = 0;
    for (; *cell != '\0'; ++cell) width += ((unsigned char)*cell & 0xc0) != 0x80;
    return width;
}

/* ---- Tables ---- */

struct table {
    enum entity_kind kind;
    const uint8_t* records;
    uint32_t count;
    size_t record_size;
};

struct column {
    const struct meaning* meaning; /* null: the EID */
    int width;
};

static void write_heading(char* cell, const struct column* column) {
    if (column->meaning == NULL) {
        write_word(cell, "eid");
    } else {
        write_label(cell, column->meaning);
    }
    for (char* at = cell; *at != '\0'; ++at) *at = (char)toupper((unsigned char)*at);
}

static void write_cell(char* cell, const struct column* column, const struct table* table, uint32_t row) {
    const void* record = table->records + row * table->record_size;
    if (column->meaning == NULL) {
        write_eid(cell, record);
    } else {
        write_member(cell, column->meaning, record);
    }
}

static int column_width(const struct column* column, const struct table* table) {
    char cell[CELL_SIZE];
    write_heading(cell, column);
    int width = width_of(cell);
    for (uint32_t row = 0; row < table->count; ++row) {
        write_cell(cell, column, table, row);
        if (width_of(cell) > width) width = width_of(cell);
    }
    return width;
}

/* A column that no record fills is left out. */
static bool has_column(const struct meaning* meaning, const struct table* table) {
    if (!meaning->column || !meaning_applies(meaning, table->kind)) return false;
    for (uint32_t row = 0; row < table->count; ++row) {
        if (meaning_has(meaning, table->records + row * table->record_size)) return true;
    }
    return false;
}

static size_t choose_columns(struct column columns[COLUMN_LIMIT], const struct table* table) {
    size_t count = 1;
    columns[0].meaning = NULL;
    for (size_t i = 0; i < meaning_count && count < COLUMN_LIMIT; ++i) {
        if (has_column(&meanings[i], table)) columns[count++].meaning = &meanings[i];
    }
    for (size_t i = 0; i < count; ++i) columns[i].width = column_width(&columns[i], table);
    return count;
}

static bool is_number(const struct column* column) {
    return column->meaning != NULL && (column->meaning->form == FORM_NUMBER || column->meaning->form == FORM_NUMBER64);
}

/* Numbers stand to the right. `gap` is what is still to be left before the next text, so that no line ends in spaces.
 */
static void print_cell(const char* cell, const struct column* column, int* gap) {
    int padding = column->width - width_of(cell);
    *gap += 2;
    if (is_number(column)) *gap += padding;
    if (*cell != '\0') {
        printf("%*s%s", *gap, "", cell);
        *gap = 0;
    }
    if (!is_number(column)) *gap += padding;
}

static void print_row(const struct column* columns, size_t count, const struct table* table, uint32_t row) {
    char cell[CELL_SIZE];
    int gap = 0;
    for (size_t i = 0; i < count; ++i) {
        write_cell(cell, &columns[i], table, row);
        print_cell(cell, &columns[i], &gap);
    }
    printf("\n");
}

static void print_headings(const struct column* columns, size_t count) {
    char cell[CELL_SIZE];
    int gap = 0;
    for (size_t i = 0; i < count; ++i) {
        write_heading(cell, &columns[i]);
        print_cell(cell, &columns[i], &gap);
    }
    printf("\n");
}

static void print_table(const struct table* table) {
    struct column columns[COLUMN_LIMIT];
    size_t count = choose_columns(columns, table);
    printf("\n%s (%" PRIu32 ")\n", kind_name(table->kind), table->count);
    print_headings(columns, count);
    for (uint32_t row = 0; row < table->count; ++row) print_row(columns, count, table, row);
}

/* ---- Answers ---- */

void print_inventory(const vesk_resp_inv_data* answer) {
    const struct table tables[] = {
#define KIND(code, name, NAME, record) \
    {KIND_##NAME, (const uint8_t*)answer->name##_list, answer->name##_list_count, sizeof(record)},
#include "meanings.def"
    };
    const size_t table_count = sizeof tables / sizeof *tables;
    uint64_t shown = 0;
    for (size_t i = 0; i < table_count; ++i) shown += tables[i].count;
    printf("%" PRIu64 " of the %" PRIu32 " entities of the chassis\n", shown, resp_inv_data_total(answer));
    for (size_t i = 0; i < table_count; ++i) {
        if (tables[i].count > 0) print_table(&tables[i]);
    }
}

static const void* find_entity(const vesk_resp_inv_data_by_eid* answer, enum entity_kind* kind) {
#define KIND(code, name, NAME, record)                        \
    if (VESK_HAS(answer, VESK_RESP_INV_DATA_BY_EID_##NAME)) { \
        *kind = KIND_##NAME;                                  \
        return &answer->name;                                 \
    }
#include "meanings.def"
    return NULL;
}

int print_entity(const vesk_resp_inv_data_by_eid* answer) {
    enum { LABEL_WIDTH = 20 };
    char cell[CELL_SIZE];
    enum entity_kind kind = KIND_ANY;
    const void* record = find_entity(answer, &kind);
    if (record == NULL) return 0;
    write_eid(cell, record);
    printf("%s (%s)\n", cell, kind_name(kind));
    for (size_t i = 0; i < meaning_count; ++i) {
        if (!meaning_applies(&meanings[i], kind) || !meaning_has(&meanings[i], record)) continue;
        write_label(cell, &meanings[i]);
        printf("  %-*s", LABEL_WIDTH, cell);
        write_member(cell, &meanings[i], record);
        printf("%s\n", cell);
    }
    return 1;
}
