/* Calls all functions of every type through the installed headers: for an empty message, and for one whose first field
 * is marked. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vesk/client_service.h>

static long blocks = 0; /* that are not given back */
static int failures = 0;

static void* allocate(uint64_t size, void* context) {
    (void)context;
    ++blocks;
    return malloc(size != 0 ? size : 1);
}

static void release(void* block, void* context) {
    (void)context;
    --blocks;
    free(block);
}

static void expect(int condition, const char* type, const char* what) {
    if (condition) return;
    printf("%s: %s\n", type, what);
    ++failures;
}

#define CALL(T)                                                                                         \
    static void call_##T(int marked) {                                                                  \
        T message, decoded, copy;                                                                       \
        uint8_t bytes[64], again[64];                                                                   \
        uint64_t length;                                                                                \
        memset(&message, 0, sizeof message);                                                            \
        if (marked) VESK_MARK(&message, 0);                                                             \
        length = T##_encode_ext(&message, NULL, 0, NULL, NULL, 0);                                      \
        expect(length <= (marked ? sizeof bytes : 0), #T, "is measured");                               \
        expect(T##_encode_ext(&message, bytes, sizeof bytes, NULL, NULL, 0) == length, #T, "encodes");  \
        expect(T##_decode_ext(&decoded, bytes, length, allocate, NULL, 0) == VESK_OK, #T, "decodes");   \
        expect(T##_duplicate(&copy, &decoded, allocate, NULL) == VESK_OK, #T, "is copied");             \
        expect(T##_encode_ext(&copy, again, sizeof again, NULL, NULL, 0) == length, #T, "same length"); \
        expect(memcmp(bytes, again, length) == 0, #T, "same bytes");                                    \
        T##_free_ext(&decoded, release, NULL, 0);                                                       \
        T##_free_ext(&copy, release, NULL, 0);                                                          \
        expect(blocks == 0, #T, "gives back every block");                                              \
    }
#include <all_types.inc>
#undef CALL

int main(void) {
    int types = 0;
#define CALL(T) (call_##T(0), call_##T(1), ++types);
#include <all_types.inc>
    printf("C11: %d functions of %d types called, %d failures\n", 4 * types, types, failures);
    return failures != 0;
}
