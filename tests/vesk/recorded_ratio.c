/* What recording costs: each function through its name, as programs call it and as `vesk record` stands in front of it,
 * and straight in the library, by turns in one run. Prints how many times as long the former takes.
 *
 *     vesk record OUT --limit 1G -- recorded_ratio CHASSIS
 *
 * CHASSIS is an encoded resp_inv_data. Medians of the rounds, since another process may come in between. */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <vesk/client_service.h>

enum { ROUNDS = 101, MOST = 1 << 20 };

static unsigned char* next_block;
static void* from_arena(uint64_t size, void* context) {
    (void)context;
    void* block = next_block;
    next_block += (size + 15) / 16 * 16;
    return block;
}

typedef uint64_t encode_function(const void*, void*, uint64_t, vesk_segment*, uint32_t*, uint32_t);
typedef int32_t decode_function(void*, const void*, uint64_t, vesk_alloc, void*, uint32_t);
typedef int32_t duplicate_function(void*, const void*, vesk_alloc, void*);

/* The functions of a type: as the loader bound them, and those of the library itself. */
struct functions {
    encode_function* encode;
    decode_function* decode;
    duplicate_function* duplicate;
};

static void find(void* library, const char* type, struct functions* functions) {
    char name[100];
    void** const places[] = {(void**)&functions->encode, (void**)&functions->decode, (void**)&functions->duplicate};
    const char* const suffixes[] = {"_encode_ext", "_decode_ext", "_duplicate"};
    for (int i = 0; i < 3; ++i) {
        snprintf(name, sizeof name, "vesk_%s%s", type, suffixes[i]);
        *places[i] = dlsym(library, name);
        if (*places[i] == NULL) exit(2);
    }
}

struct work {
    const char* type;
    int repeats; /* in a round */
    uint8_t* input;
    uint64_t length;
    uint8_t* output;
    void* message;
    void* copy;
    unsigned char* arena;
};

static void encode(const struct functions* functions, const struct work* work) {
    functions->encode(work->message, work->output, MOST, NULL, NULL, 0);
}
static void decode(const struct functions* functions, const struct work* work) {
    next_block = work->arena;
    functions->decode(work->copy, work->input, work->length, from_arena, NULL, 0);
}
static void duplicate(const struct functions* functions, const struct work* work) {
    next_block = work->arena;
    functions->duplicate(work->copy, work->message, from_arena, NULL);
}

typedef void operation(const struct functions*, const struct work*);

static double measure(operation* make_call, const struct functions* functions, const struct work* work) {
    struct timespec from, to;
    clock_gettime(CLOCK_MONOTONIC, &from);
    for (int i = 0; i < work->repeats; ++i) make_call(functions, work);
    clock_gettime(CLOCK_MONOTONIC, &to);
    return (double)(to.tv_sec - from.tv_sec) * 1e9 + (double)(to.tv_nsec - from.tv_nsec);
}

static int compare(const void* one, const void* other) {
    double left = *(const double*)one, right = *(const double*)other;
    return (left > right) - (left < right);
}

static void print_ratio(const char* name, operation* make_call, const struct functions* named,
                        const struct functions* own, const struct work* work) {
    double ratios[ROUNDS];
    for (int i = 0; i < ROUNDS; ++i) {
        double with = measure(make_call, named, work);
        ratios[i] = with / measure(make_call, own, work);
    }
    qsort(ratios, ROUNDS, sizeof *ratios, compare);
    printf("%s of %s, %llu bytes: %.1f times as long\n", name, work->type, (unsigned long long)work->length,
           ratios[ROUNDS / 2]);
}

static void compare_type(void* library, struct work work) {
    struct functions named, own;
    find(RTLD_DEFAULT, work.type, &named);
    find(library, work.type, &own);
    work.output = malloc(MOST);
    work.message = calloc(1, 1 << 16);
    work.copy = calloc(1, 1 << 16);
    work.arena = malloc((size_t)8 * MOST);
    next_block = malloc((size_t)8 * MOST);
    if (!work.output || !work.message || !work.copy || !work.arena || !next_block) exit(3);
    if (own.decode(work.message, work.input, work.length, from_arena, NULL, 0) != VESK_OK) exit(3);
    memset(work.arena, 1, (size_t)8 * MOST);
    memset(work.output, 1, MOST);
    print_ratio("encode", encode, &named, &own, &work);
    print_ratio("decode", decode, &named, &own, &work);
    print_ratio("duplicate", duplicate, &named, &own, &work);
}

int main(int count, char** words) {
    static uint8_t chassis[MOST];
    static uint8_t led[] = {0x18, 0x02, 0x2a, 0x05, 'g', 'r', 'e', 'e', 'n'};
    void* library = dlopen(VESK_INVENTORY_SONAME, RTLD_LAZY | RTLD_NOLOAD);
    FILE* file = count == 2 ? fopen(words[1], "rb") : NULL;
    uint64_t length = file != NULL ? fread(chassis, 1, MOST, file) : 0;
    if (file != NULL) fclose(file);
    if (library == NULL || length == 0) return 1;
    compare_type(library, (struct work){.type = "led_data", .repeats = 500, .input = led, .length = sizeof led});
    compare_type(library, (struct work){.type = "resp_inv_data", .repeats = 20, .input = chassis, .length = length});
    return 0;
}
