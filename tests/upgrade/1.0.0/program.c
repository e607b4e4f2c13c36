/* A program as somebody wrote it for 1.0.0: it calls every function that the three libraries had, in earnest. It is
 * built against the headers and the symbols of 1.0.0 and run with the libraries of today. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vesk/client_service.h>
#include <vesk/vesk_text.h>
#include <vesk/vesk_toolkit.h>

static long blocks = 0; /* that are not given back */
static int functions = 0;
static int failures = 0;

static void* allocate(uint64_t size, void* context) {
    (void)context;
    ++blocks;
    return malloc(size != 0 ? (size_t)size : 1);
}

static void release(void* block, void* context) {
    (void)context;
    --blocks;
    free(block);
}

static void expect(int condition, const char* subject, const char* what) {
    if (condition) return;
    printf("%s %s\n", subject, what);
    ++failures;
}

/* ---- Room after a structure, in which nobody may write ---- */

enum { ROOM = 1024 };

static void mark_room(unsigned char* room) { memset(room, 0xA5, ROOM); }

static int is_room_marked(const unsigned char* room) {
    int i;
    for (i = 0; i < ROOM; ++i) {
        if (room[i] != 0xA5) return 0;
    }
    return 1;
}

/* A structure S named `name` with room after it. */
#define WITH_ROOM(S, name)               \
    struct {                             \
        S it;                            \
        unsigned char room[ROOM];        \
    } name;                              \
    memset(&name.it, 0, sizeof name.it); \
    mark_room(name.room)

/* ---- The library: every type with every field ---- */

static uint32_t put_varint(uint8_t* bytes, uint32_t at, uint32_t value) {
    for (; value >= 128; value >>= 7) bytes[at++] = (uint8_t)(value | 128);
    bytes[at++] = (uint8_t)value;
    return at;
}

/* A message with each field of its type: 1 in a scalar, "a" in a string or bytes, nothing in a message or element. */
static uint32_t put_every_field(const vesk_type* type, uint8_t* bytes) {
    uint32_t at = 0, place;
    for (place = 0; place < type->field_count; ++place) {
        const vesk_field* field = vesk_type_field(type, place);
        at = put_varint(bytes, at, field->tag);
        bytes[at++] = field->kind == VESK_KIND_MESSAGE || field->kind == VESK_KIND_LIST ? 0 : 1;
        if (field->kind == VESK_KIND_STRING || field->kind == VESK_KIND_BYTES) bytes[at++] = 'a';
    }
    return at;
}

#define CALL(T)                                                                                                 \
    static void call_##T(void) {                                                                                \
        const vesk_type* type = vesk_type_named(&#T[sizeof "vesk_" - 1]);                                       \
        uint8_t bytes[512], again[512];                                                                         \
        uint32_t length, place;                                                                                 \
        WITH_ROOM(T, decoded);                                                                                  \
        WITH_ROOM(T, copy);                                                                                     \
        functions += 4;                                                                                         \
        expect(type != NULL, #T, "is not known any more");                                                      \
        if (type == NULL) return;                                                                               \
        expect(type->structure_size == sizeof(T), #T, "has another size");                                      \
        expect(type->presence_offset == offsetof(T, present), #T, "has its presence bits elsewhere");           \
        expect(T##_encode_ext(&copy.it, NULL, 0, NULL, NULL, 0) == 0, #T, "has content when it is cleared");    \
        length = put_every_field(type, bytes);                                                                  \
        expect(T##_decode_ext(&decoded.it, bytes, length, allocate, NULL, 0) == VESK_OK, #T, "is not decoded"); \
        expect(is_room_marked(decoded.room), #T, "is decoded past its end");                                    \
        for (place = 0; place < type->field_count; ++place) {                                                   \
            expect(VESK_HAS(&decoded.it, vesk_type_field(type, place)->presence_bit), #T, "misses a field");    \
        }                                                                                                       \
        if (is_room_marked(decoded.room)) {                                                                     \
            expect(T##_duplicate(&copy.it, &decoded.it, allocate, NULL) == VESK_OK, #T, "is not duplicated");   \
            expect(is_room_marked(copy.room), #T, "is duplicated past its end");                                \
            expect(T##_encode_ext(&copy.it, again, sizeof again, NULL, NULL, 0) == length &&                    \
                       memcmp(bytes, again, length) == 0,                                                       \
                   #T, "encodes to other bytes");                                                               \
            T##_free_ext(&copy.it, release, NULL, 0);                                                           \
            T##_free_ext(&decoded.it, release, NULL, 0);                                                        \
        }                                                                                                       \
        expect(blocks == 0, #T, "keeps blocks");                                                                \
        blocks = 0;                                                                                             \
    }
#include "all_types.inc"
#undef CALL

/* ---- The toolkit ---- */

#define TRY(name, condition) (++functions, expect(condition, name, "does not do what it did"))

static int32_t on_difference(const char* path, const vesk_value* left, const vesk_value* right, void* context) {
    int* seen = (int*)context;
    if (strcmp(path, "f3") == 0 && left != NULL && left->number == 2 && right == NULL) ++*seen;
    return 0;
}

static int32_t on_finding(int32_t finding, const char* path, void* context) {
    int* seen = (int*)context;
    if (finding == VESK_LINT_NOT_MARKED && strcmp(path, "f3") == 0) ++*seen;
    return 0;
}

static void call_toolkit(void) {
    static const uint8_t list[] = {0x0A, 0x02, 0x18, 0x01, 0x0A, 0x00}; /* two elements under field 1 */
    static unsigned char memory[4096];
    char colour[] = "green";
    const vesk_type* type = vesk_type_named("led_data");
    const vesk_type* with_list = vesk_type_named("resp_container_eid_nodeid");
    vesk_options options = vesk_default_options();
    uint8_t bytes[64], gathered[64];
    void* encoded = NULL;
    uint64_t length = 0, differences = 0;
    uint32_t count = 0, segment_count = 4;
    vesk_segment segments[4];
    int seen = 0;
    WITH_ROOM(vesk_arena, arena);
    WITH_ROOM(vesk_report, report);
    WITH_ROOM(vesk_one_block, block);
    WITH_ROOM(vesk_value, value);
    WITH_ROOM(vesk_iterator, iterator);
    WITH_ROOM(vesk_led_data, led);
    WITH_ROOM(vesk_led_data, other);

    TRY("vesk_version", strncmp(vesk_version(), "1.", 2) == 0);
    TRY("vesk_type_named", type != NULL && strcmp(vesk_type_name(type), "led_data") == 0 && with_list != NULL);
    TRY("vesk_all_types", vesk_all_types(&count) != NULL && count >= 95);
    led.it.f3 = 2;
    led.it.f5 = colour;
    VESK_MARK(&led.it, VESK_LED_DATA_F3);
    VESK_MARK(&led.it, VESK_LED_DATA_F5);

    TRY("vesk_encode", vesk_encode(type, &led.it, allocate, NULL, &encoded, &length) == VESK_OK && length == 9);
    memcpy(bytes, encoded, (size_t)length);
    release(encoded, NULL);
    count = sizeof gathered;
    differences = sizeof gathered;
    TRY("vesk_gather",
        vesk_gather(type, &led.it, gathered, &differences, segments, &segment_count, &options) == VESK_OK &&
            differences == 9 && segment_count == 1 && memcmp(segments[0].data, bytes, 9) == 0);

    report.it.size = sizeof report.it;
    TRY("vesk_check", vesk_check(type, bytes, length, 0, &report.it, &options) == VESK_OK &&
                          report.it.cost.blocks == 1 && report.it.cost.bytes == 6 && report.it.at == 9);

    vesk_arena_of_buffer(&arena.it, memory, sizeof memory);
    vesk_arena_limit(&arena.it, 16, 1);
    TRY("vesk_arena_limit", vesk_arena_alloc(17, &arena.it) == NULL);
    TRY("vesk_arena_of_buffer",
        vesk_led_data_decode_ext(&other.it, bytes, length, vesk_arena_alloc, &arena.it, 0) == VESK_OK);
    TRY("vesk_arena_alloc",
        (unsigned char*)other.it.f5 >= memory && (unsigned char*)other.it.f5 < memory + sizeof memory);
    vesk_led_data_free_ext(&other.it, vesk_arena_release, &arena.it, 0);
    TRY("vesk_arena_release", other.it.f5 == NULL);
    vesk_arena_reset(&arena.it);
    TRY("vesk_arena_reset", vesk_arena_alloc(16, &arena.it) != NULL);
    vesk_arena_close(&arena.it);
    vesk_arena_of_blocks(&arena.it, allocate, release, NULL);
    TRY("vesk_arena_of_blocks", vesk_arena_alloc(100, &arena.it) != NULL && blocks == 1);
    vesk_arena_close(&arena.it);
    TRY("vesk_arena_close", blocks == 0);
    TRY("vesk_arena_limit_for", vesk_arena_limit_for(100) == 4096 + 3200);

    TRY("vesk_one_block_open", VESK_DECODE_IN_ONE_BLOCK(vesk_led_data_decode_ext, type, &other.it, bytes, length, 0,
                                                        allocate, NULL, &block.it, NULL) == VESK_OK &&
                                   blocks == 1 && strcmp(other.it.f5, "green") == 0);
    TRY("vesk_equal", vesk_equal(type, &led.it, &other.it, NULL) == 1);
    VESK_UNMARK(&other.it, VESK_LED_DATA_F3);
    TRY("vesk_diff", vesk_diff(type, &led.it, &other.it, on_difference, &seen, &differences, &options) == VESK_OK &&
                         differences == 1 && seen == 1);
    TRY("vesk_lint", vesk_lint(type, &other.it, on_finding, &seen, &options) == 1 && seen == 2);
    vesk_one_block_release(&block.it, release, NULL);
    TRY("vesk_one_block_release", blocks == 0);

    value.it.size = sizeof value.it;
    TRY("vesk_peek", vesk_peek(type, "f5", bytes, length, &value.it, &options) == VESK_OK && value.it.length == 5 &&
                         memcmp(value.it.data, "green", 5) == 0);
    TRY("vesk_iterate",
        vesk_iterate(&iterator.it, with_list, "container_eid_nodeid_list", list, sizeof list, &options) == VESK_OK);
    TRY("vesk_next", vesk_next(&iterator.it, &value.it) == 1 && value.it.length == 2 &&
                         vesk_next(&iterator.it, &value.it) == 1 && value.it.length == 0 &&
                         vesk_next(&iterator.it, &value.it) == 0);
    expect(is_room_marked(arena.room) && is_room_marked(report.room) && is_room_marked(block.room) &&
               is_room_marked(value.room) && is_room_marked(iterator.room) && is_room_marked(led.room) &&
               is_room_marked(other.room),
           "the toolkit", "writes past a structure");
}

/* ---- Texts ---- */

typedef struct written {
    char text[256];
    size_t length;
} written;

static int32_t append(const char* text, size_t length, void* context) {
    written* all = (written*)context;
    if (length >= sizeof all->text - all->length) return 1;
    memcpy(all->text + all->length, text, length);
    all->length += length;
    all->text[all->length] = '\0';
    return 0;
}

static int is_text(const written* all, const char* expected) { return strcmp(all->text, expected) == 0; }

static void call_text(void) {
    static const char json[] = "{\"f3\":2,\"f5\":\"green\"}", text[] = "f3: 2 f5: \"green\"";
    const vesk_type* type = vesk_type_named("led_data");
    uint8_t bytes[64];
    uint64_t length;
    vesk_text_options options = vesk_default_text_options();
    written out[4];
    WITH_ROOM(vesk_text_report, report);
    WITH_ROOM(vesk_led_data, led);
    WITH_ROOM(vesk_led_data, other);
    memset(out, 0, sizeof out);
    options.flags = VESK_TEXT_ONE_LINE;
    report.it.size = sizeof report.it;

    TRY("vesk_json_parse",
        vesk_json_parse(type, &led.it, json, sizeof json - 1, allocate, NULL, &report.it, &options) == VESK_OK &&
            report.it.code == VESK_OK && led.it.f3 == 2);
    TRY("vesk_text_parse",
        vesk_text_parse(type, &other.it, text, sizeof text - 1, allocate, NULL, &report.it, &options) == VESK_OK &&
            strcmp(other.it.f5, "green") == 0);
    length = vesk_led_data_encode_ext(&led.it, bytes, sizeof bytes, NULL, NULL, 0);
    TRY("vesk_json_print",
        vesk_json_print(type, &other.it, append, &out[0], &report.it, &options) == VESK_OK && is_text(&out[0], json));
    TRY("vesk_text_print",
        vesk_text_print(type, &led.it, append, &out[1], &report.it, &options) == VESK_OK && is_text(&out[1], text));
    TRY("vesk_json_print_encoded",
        vesk_json_print_encoded(type, bytes, length, append, &out[2], &report.it, &options) == VESK_OK &&
            is_text(&out[2], json));
    TRY("vesk_text_print_encoded",
        vesk_text_print_encoded(type, bytes, length, append, &out[3], &report.it, &options) == VESK_OK &&
            is_text(&out[3], text));
    vesk_led_data_free_ext(&led.it, release, NULL, 0);
    vesk_led_data_free_ext(&other.it, release, NULL, 0);
    expect(blocks == 0, "libvesk_text", "keeps blocks");
    expect(is_room_marked(report.room) && is_room_marked(led.room) && is_room_marked(other.room), "libvesk_text",
           "writes past a structure");
}

int main(void) {
    setvbuf(stdout, NULL, _IONBF, 0); /* what was found is said, whatever happens next */
#define CALL(T) call_##T();
#include "all_types.inc"
    call_toolkit();
    call_text();
    printf("%d functions called, %d failures\n", functions, failures);
    return failures != 0;
}
