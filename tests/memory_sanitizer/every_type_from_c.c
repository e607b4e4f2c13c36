/* Every type in C: the message of tests/golden/T/full.hex is decoded, encoded, copied and freed, whole, cut short at
 * every byte, into buffers and segment lists that are too short, and with every allocation failing in turn. Structures
 * and blocks are raw memory, so that the memory sanitizer sees a member that nobody has written. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vesk/client_service.h>

#include "all_types.hpp"

enum { longest_message = 8192, most_segments = 64 };

/* A type, its structure forgotten. */
typedef struct {
    const char* name; /* "vesk_pem_data" */
    size_t size;
    uint64_t (*encode)(const void*, void*, uint64_t, vesk_segment*, uint32_t*, uint32_t);
    int32_t (*decode)(void*, const void*, uint64_t, vesk_alloc, void*, uint32_t);
    int32_t (*duplicate)(void*, const void*, vesk_alloc, void*);
    void (*release)(void*, vesk_release, void*, uint32_t);
} type_functions;

#define WRAP(T)                                                                                                        \
    static uint64_t T##_encode_any(const void* message, void* buffer, uint64_t length, vesk_segment* segments,         \
                                   uint32_t* count, uint32_t flags) {                                                  \
        return T##_encode_ext(message, buffer, length, segments, count, flags);                                        \
    }                                                                                                                  \
    static int32_t T##_decode_any(void* message, const void* buffer, uint64_t length, vesk_alloc alloc, void* context, \
                                  uint32_t flags) {                                                                    \
        return T##_decode_ext(message, buffer, length, alloc, context, flags);                                         \
    }                                                                                                                  \
    static int32_t T##_duplicate_any(void* copy, const void* message, vesk_alloc alloc, void* context) {               \
        return T##_duplicate(copy, message, alloc, context);                                                           \
    }                                                                                                                  \
    static void T##_release_any(void* message, vesk_release release, void* context, uint32_t flags) {                  \
        T##_free_ext(message, release, context, flags);                                                                \
    }
VESK_TEST_TYPES(WRAP)

#define ROW(T) {#T, sizeof(T), T##_encode_any, T##_decode_any, T##_duplicate_any, T##_release_any},
static const type_functions types[] = {VESK_TEST_TYPES(ROW)};
enum { type_count = sizeof types / sizeof types[0] };

/* ---- Blocks ------------------------------------------------------------------------------------------------------ */

typedef struct {
    long asked;   /* requests so far */
    long failing; /* this one gets nothing; 0: none */
    long out;     /* blocks that are not given back */
} ledger;

static void* take(uint64_t size, void* context) {
    ledger* blocks = context;
    void* block = ++blocks->asked == blocks->failing ? NULL : malloc(size != 0 ? (size_t)size : 1);
    if (block != NULL) ++blocks->out;
    return block;
}

static void give_back(void* block, void* context) {
    --((ledger*)context)->out;
    free(block);
}

/* ---- Checks ------------------------------------------------------------------------------------------------------ */

static const type_functions* current;

static void expect(int holds, const char* what) {
    if (holds) return;
    fprintf(stderr, "%s: %s\n", current->name, what);
    exit(1);
}

/* Storage as the heap leaves it. */
static void* raw(size_t size) {
    void* memory = malloc(size != 0 ? size : 1);
    expect(memory != NULL, "the machine is out of memory");
    return memory;
}

/* The encoding of a message goes into a buffer of `room` bytes; returns its whole length. */
static uint64_t encode_into(const void* message, uint64_t room, uint32_t capacity, uint32_t flags) {
    uint8_t* buffer = raw((size_t)room);
    vesk_segment segments[most_segments];
    uint32_t count = capacity;
    uint64_t length = current->encode(message, buffer, room, segments, &count, flags);
    expect(current->encode(message, NULL, 0, NULL, NULL, flags) == length, "is measured as long as it is written");
    free(buffer);
    return length;
}

/* True if the message encodes to these bytes. */
static int encodes_to(const void* message, const uint8_t* bytes, uint64_t length) {
    uint8_t* buffer = raw((size_t)length);
    int same = current->encode(message, buffer, length, NULL, NULL, 0) == length &&
               (length == 0 || memcmp(buffer, bytes, (size_t)length) == 0);
    free(buffer);
    return same;
}

static void check_copy(const void* message, const uint8_t* bytes, uint64_t length) {
    long failing = 0;
    long asked;
    do {
        ledger blocks = {0, failing, 0};
        void* copy = raw(current->size);
        int32_t code = current->duplicate(copy, message, take, &blocks);
        asked = blocks.asked;
        expect(code == (failing == 0 ? VESK_OK : VESK_NO_MEMORY), "is copied, or says that a block is missing");
        if (failing == 0) expect(encodes_to(copy, bytes, length), "the copy is written as the message is");
        if (failing != 0) encode_into(copy, length, most_segments, 0);
        current->release(copy, give_back, &blocks, 0);
        expect(blocks.out == 0, "the copy gives back every block");
        free(copy);
    } while (++failing <= asked);
}

static void check_whole(const uint8_t* bytes, uint64_t length) {
    ledger blocks = {0, 0, 0};
    void* message = raw(current->size);
    expect(current->decode(message, bytes, length, take, &blocks, 0) == VESK_OK, "is decoded");
    expect(encodes_to(message, bytes, length), "is written as it was read");
    for (uint64_t room = 0; room < length; room += 1 + length / 100) {
        encode_into(message, room, (uint32_t)(room % most_segments), (uint32_t)(room % 2));
    }
    check_copy(message, bytes, length);
    current->release(message, give_back, &blocks, 0);
    expect(blocks.out == 0, "gives back every block");
    free(message);
}

static void check_refused_memory(const uint8_t* bytes, uint64_t length) {
    long failing = 1;
    int32_t code;
    do {
        ledger blocks = {0, failing, 0};
        void* message = raw(current->size);
        code = current->decode(message, bytes, length, take, &blocks, 0);
        current->release(message, give_back, &blocks, 0);
        expect(blocks.out == 0, "gives back every block if one could not be had");
        expect(code == (failing <= blocks.asked ? VESK_NO_MEMORY : VESK_OK), "says whether memory was short");
        free(message);
        ++failing;
    } while (code != VESK_OK);
}

static void check_cut(const uint8_t* bytes, uint64_t length, uint32_t flags) {
    ledger blocks = {0, 0, 0};
    void* message = raw(current->size);
    uint8_t* input = raw((size_t)length);
    memcpy(input, bytes, (size_t)length);
    int32_t code = current->decode(message, input, length, take, &blocks, flags);
    expect(code == VESK_OK || code == VESK_MALFORMED, "is a shorter message or malformed");
    encode_into(message, length, most_segments, flags);
    current->release(message, give_back, &blocks, flags);
    expect(blocks.out == 0, "gives back every block of a message that was cut short");
    free(input);
    free(message);
}

/* ---- Inputs ------------------------------------------------------------------------------------------------------ */

/* Reads the bytes of a golden file: hexadecimal, a '#' begins a comment. */
static uint64_t read_full_message(const char* folder, uint8_t* bytes) {
    char path[4096];
    char line[1024];
    uint64_t length = 0;
    snprintf(path, sizeof path, "%s/%s/full.hex", folder, current->name + strlen("vesk_"));
    FILE* file = fopen(path, "r");
    expect(file != NULL, "its golden file full.hex cannot be opened");
    while (fgets(line, sizeof line, file) != NULL) {
        const char* at = line;
        char* end;
        for (;;) {
            unsigned long byte = *at == '#' ? 0 : strtoul(at, &end, 16);
            if (*at == '#' || end == at) break;
            expect(byte <= 0xFF && length < longest_message, "its golden file is hexadecimal and not too long");
            bytes[length++] = (uint8_t)byte;
            at = end;
        }
    }
    fclose(file);
    return length;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: every_type_from_c GOLDEN_FOLDER\n");
        return 2;
    }
    static uint8_t bytes[longest_message];
    for (int i = 0; i < type_count; ++i) {
        current = &types[i];
        uint64_t length = read_full_message(argv[1], bytes);
        expect(length != 0, "its golden file has bytes");
        check_whole(bytes, length);
        check_refused_memory(bytes, length);
        for (uint64_t cut = 0; cut < length; cut += 1 + length / 1000) {
            check_cut(bytes, cut, 0);
            check_cut(bytes, cut, VESK_BYTES_BY_REFERENCE);
        }
    }
    printf("%d functions of %d types called\n", 4 * type_count, type_count);
    return 0;
}
