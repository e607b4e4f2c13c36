/* A program to record: recorded_calls WHAT, which prints nothing but what a test asks for.
 *
 *   each            one call of each kind that a recording can hold; the test knows them in this order
 *   some COUNT      COUNT decodes of a message that is "message NUMBER"
 *   threads N COUNT the same on each of N threads
 *   fork            a call, one in a child, one in a program that the child becomes, and one afterwards
 *   abort           a call, and then the program ends itself
 *   abort-within    a decode whose allocation callback ends the program
 *   leave           leaves a child behind, which makes calls for a second
 *   plug-in FILE    a call of a plug-in, which alone needs the library
 *   signal NUMBER   ends by this signal
 *   wait            says "ready" and waits for SIGTERM, at which it ends with 5
 *   environment NAME  prints this variable
 *   exit NUMBER */
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vesk/client_service.h>

#ifdef WITHOUT_CALLS /* the main program of a plug-in */
static void decode(const char* text) { (void)text; }
static void each(void) {}
static int abort_within(void) { return 1; }
#else

static void* from_heap(uint64_t size, void* context) {
    (void)context;
    return malloc(size != 0 ? size : 1);
}
static void to_heap(void* block, void* context) {
    (void)context;
    free(block);
}

/* Refuses the request that brings the count down to 0. */
static void* refuse_one(uint64_t size, void* count) { return --*(int*)count == 0 ? NULL : from_heap(size, NULL); }
static void* end_program(uint64_t size, void* context) {
    (void)size;
    (void)context;
    abort();
}

/* A call of the library's within another: a program's own, and noted as such. */
static void* call_within(uint64_t size, void* context) {
    (void)context;
    vesk_led_data led = {0};
    if (vesk_led_data_encode_ext(&led, NULL, 0, NULL, NULL, 0) != 0) abort();
    return from_heap(size, NULL);
}

static vesk_scratch_eeprom make_record(char* text) {
    static uint8_t block[] = {1, 2, 3, 4, 5};
    vesk_scratch_eeprom record = {0};
    record.f1 = text;
    record.f2 = block;
    record.f2_length = sizeof block;
    record.f3 = 4800;
    record.f4 = text;
    VESK_MARK(&record, VESK_SCRATCH_EEPROM_F1);
    VESK_MARK(&record, VESK_SCRATCH_EEPROM_F2);
    VESK_MARK(&record, VESK_SCRATCH_EEPROM_F3);
    VESK_MARK(&record, VESK_SCRATCH_EEPROM_F4);
    return record;
}

static void check(int is_good) {
    if (!is_good) exit(99);
}

/* A scratch_eeprom with a string. */
static uint64_t write_input(const char* text, uint8_t* bytes) {
    bytes[0] = 0x0a;
    bytes[1] = (uint8_t)strlen(text);
    memcpy(bytes + 2, text, strlen(text) + 1);
    return strlen(text) + 2;
}

static void decode(const char* text) {
    uint8_t bytes[64];
    uint64_t length = write_input(text, bytes);
    vesk_scratch_eeprom record;
    check(vesk_scratch_eeprom_decode_ext(&record, bytes, length, from_heap, NULL, 0) == VESK_OK);
    check(strcmp(record.f1, text) == 0);
    vesk_scratch_eeprom_free_ext(&record, to_heap, NULL, 0);
}

static int abort_within(void) {
    uint8_t bytes[64];
    uint64_t length = write_input("the last one", bytes);
    vesk_scratch_eeprom record;
    return vesk_scratch_eeprom_decode_ext(&record, bytes, length, end_program, NULL, 0);
}

static void each(void) {
    char text[] = "north";
    uint8_t bytes[64];
    vesk_segment segments[8];
    uint32_t count = 8;
    int left = 3;
    vesk_scratch_eeprom record = make_record(text);
    vesk_scratch_eeprom copy;

    uint64_t whole = vesk_scratch_eeprom_encode_ext(&record, NULL, 0, NULL, NULL, 0);
    check(vesk_scratch_eeprom_encode_ext(&record, bytes, whole - 1, NULL, NULL, 0) == whole);
    check(vesk_scratch_eeprom_encode_ext(&record, bytes, sizeof bytes, segments, &count, VESK_BYTES_BY_REFERENCE) ==
          whole - sizeof(uint8_t[5]));
    check(vesk_scratch_eeprom_encode_ext(&record, bytes, sizeof bytes, NULL, NULL, 0) == whole);

    check(vesk_scratch_eeprom_duplicate(&copy, &record, from_heap, NULL) == VESK_OK);
    vesk_scratch_eeprom_free_ext(&copy, to_heap, NULL, 0);
    check(vesk_scratch_eeprom_duplicate(&copy, &record, refuse_one, &left) == VESK_NO_MEMORY);
    vesk_scratch_eeprom_free_ext(&copy, to_heap, NULL, 0);

    check(vesk_scratch_eeprom_decode_ext(&copy, bytes, whole, from_heap, NULL, 0) == VESK_OK);
    vesk_scratch_eeprom_free_ext(&copy, to_heap, NULL, 0);
    check(vesk_scratch_eeprom_decode_ext(&copy, bytes, whole, from_heap, NULL, VESK_BYTES_BY_REFERENCE) == VESK_OK);
    vesk_scratch_eeprom_free_ext(&copy, to_heap, NULL, VESK_BYTES_BY_REFERENCE);
    left = 2;
    check(vesk_scratch_eeprom_decode_ext(&copy, bytes, whole, refuse_one, &left, 0) == VESK_NO_MEMORY);
    vesk_scratch_eeprom_free_ext(&copy, to_heap, NULL, 0);
    check(vesk_scratch_eeprom_decode_ext(&copy, bytes, whole, NULL, NULL, 0) == VESK_NO_MEMORY);
    check(vesk_scratch_eeprom_decode_ext(&copy, bytes, whole - 1, from_heap, NULL, 0) == VESK_MALFORMED);
    vesk_scratch_eeprom_free_ext(&copy, to_heap, NULL, 0);
    check(vesk_scratch_eeprom_decode_ext(&copy, NULL, 0, NULL, NULL, 0) == VESK_OK);
    check(vesk_scratch_eeprom_decode_ext(&copy, bytes, 7, call_within, NULL, 0) == VESK_OK);
    vesk_scratch_eeprom_free_ext(&copy, to_heap, NULL, 0);
}
#endif

static void decode_some(int count) {
    for (int i = 0; i < count; ++i) {
        char text[32];
        snprintf(text, sizeof text, "message %d", i);
        decode(text);
    }
}

static void* decode_on_thread(void* count) {
    decode_some(*(int*)count);
    return NULL;
}

static int on_threads(int threads, int count) {
    pthread_t started[64];
    for (int i = 0; i < threads; ++i) {
        if (pthread_create(&started[i], NULL, decode_on_thread, &count) != 0) return 1;
    }
    for (int i = 0; i < threads; ++i) pthread_join(started[i], NULL);
    return 0;
}

static int in_children(char* program) {
    decode("parent");
    pid_t child = fork();
    if (child == 0) {
        decode("child");
        char* const words[] = {program, (char*)"some", (char*)"1", NULL};
        execv(program, words);
        _exit(98);
    }
    int status = 0;
    waitpid(child, &status, 0);
    decode("parent again");
    return status;
}

static int leave_a_child(void) {
    if (fork() != 0) return 0;
    for (int i = 0; i < 50; ++i) {
        decode("left behind");
        nanosleep(&(struct timespec){.tv_nsec = 20000000}, NULL);
    }
    return 0;
}

static int call_plug_in(const char* file) {
    void* plug_in = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    int (*call)(void) = NULL;
    if (plug_in != NULL) *(void**)&call = dlsym(plug_in, "plug_in_call");
    const int result = call != NULL ? call() : 97;
    if (plug_in != NULL) dlclose(plug_in);
    return result;
}

static void end_with_5(int number) { _exit(number == SIGTERM ? 5 : 96); }

static int wait_for_a_signal(void) {
    signal(SIGTERM, end_with_5);
    puts("ready");
    fflush(stdout);
    while (pause() < 0 && errno == EINTR) continue;
    return 94;
}

static int is(const char* what, char** words, int count, int wanted) {
    return count == wanted + 2 && strcmp(words[1], what) == 0;
}

static int number(const char* word) { return (int)strtol(word, NULL, 10); }

int main(int count, char** words) {
    if (is("each", words, count, 0)) return each(), 0;
    if (is("some", words, count, 1)) return decode_some(number(words[2])), 0;
    if (is("threads", words, count, 2)) return on_threads(number(words[2]), number(words[3]));
    if (is("fork", words, count, 0)) return in_children(words[0]);
    if (is("abort", words, count, 0)) decode("before the end"), abort();
    if (is("abort-within", words, count, 0)) return abort_within();
    if (is("leave", words, count, 0)) return leave_a_child();
    if (is("plug-in", words, count, 1)) return call_plug_in(words[2]);
    if (is("signal", words, count, 1)) return raise(number(words[2]));
    if (is("wait", words, count, 0)) return wait_for_a_signal();
    if (is("environment", words, count, 1)) return puts(getenv(words[2])) < 0;
    if (is("exit", words, count, 1)) return number(words[2]);
    fprintf(stderr, "recorded_calls: see its source for what it can do\n");
    return 95;
}
