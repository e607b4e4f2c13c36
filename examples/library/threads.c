/* Any number of threads work on messages at once, and many may read one that nobody writes: here four encode and copy
 * the same record, each with callbacks and a count of its own. No lock is needed. */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vesk/client_service.h>

enum { thread_count = 4, rounds = 1000 };

static vesk_led_data shared; /* written before the threads begin */

typedef struct {
    unsigned right; /* rounds in which the copy's bytes were the record's */
    long blocks;    /* not given back */
} worker;

static void* take(uint64_t size, void* context) {
    ++((worker*)context)->blocks; /* the context is this thread's alone */
    return malloc(size != 0 ? (size_t)size : 1);
}

static void give_back(void* block, void* context) {
    --((worker*)context)->blocks;
    free(block);
}

static void* work(void* context) {
    worker* const self = context;
    for (int i = 0; i < rounds; ++i) {
        uint8_t bytes[64], again[64];
        const uint64_t length = vesk_led_data_encode_ext(&shared, bytes, sizeof bytes, NULL, NULL, 0);
        vesk_led_data copy;
        const int32_t code = vesk_led_data_duplicate(&copy, &shared, take, self);
        const uint64_t same = vesk_led_data_encode_ext(&copy, again, sizeof again, NULL, NULL, 0);
        if (code == VESK_OK && same == length && memcmp(bytes, again, length) == 0) ++self->right;
        vesk_led_data_free_ext(&copy, give_back, self, 0);
    }
    return NULL;
}

int main(void) {
    static char colour[] = "green";
    shared.f5 = colour;
    VESK_MARK(&shared, VESK_LED_DATA_F5);

    pthread_t threads[thread_count];
    worker workers[thread_count] = {0};
    int started = 0;
    while (started < thread_count && pthread_create(&threads[started], NULL, work, &workers[started]) == 0) ++started;
    for (int i = 0; i < started; ++i) {
        pthread_join(threads[i], NULL);
        printf("thread %d: %u of %d right, %ld blocks left\n", i, workers[i].right, rounds, workers[i].blocks);
    }
    return started == thread_count ? EXIT_SUCCESS : EXIT_FAILURE;
}
