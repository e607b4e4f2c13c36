/* What decoding can come to, and what to do then: say it, use nothing of the message, and free it all the same. Prints
 * a line for each result, and that no block is left. */
#include <stdio.h>
#include <stdlib.h>
#include <vesk/client_service.h>

/* A heap with a limit, which also counts the blocks that are out. */
typedef struct {
    uint64_t left;
    long blocks;
} heap;

static void* take(uint64_t size, void* context) {
    heap* const from = context;
    void* const block = size <= from->left ? malloc(size != 0 ? (size_t)size : 1) : NULL;
    if (block == NULL) return NULL; /* decode then ends with VESK_NO_MEMORY */
    from->left -= size;
    ++from->blocks;
    return block;
}

static void give_back(void* block, void* context) {
    --((heap*)context)->blocks;
    free(block);
}

static void read_led(const char* what, const char* input, uint64_t length, uint64_t limit) {
    heap from = {limit, 0};
    vesk_led_data led; /* decode fills in all of it, whatever the result */
    const int32_t code = vesk_led_data_decode_ext(&led, input, length, take, &from, 0);
    if (code == VESK_OK) {
        printf("%s: \"%s\"", what, VESK_HAS(&led, VESK_LED_DATA_F5) ? led.f5 : "");
    } else {
        printf("%s: %s, %s", what, vesk_result_name(code), vesk_result_text(code));
    }
    const long asked = from.blocks;
    vesk_led_data_free_ext(&led, give_back, &from, 0);
    printf("; %ld blocks, %ld left\n", asked, from.blocks);
}

int main(void) {
#define READ(what, input, limit) read_led(what, input, sizeof(input) - 1, limit)
    READ("whole", "\x18\x02\x2A\x05green", 100);
    READ("cut short", "\x18\x02\x2A\x05gre", 100);
    READ("a string twice", "\x2A\x05green\x2A\x03red", 100);
    READ("a group", "\x2A\x05green\x33", 100);
    READ("a text for a number", "\x2A\x05green\x1A\x01\x32", 100);
    READ("no memory", "\x18\x02\x2A\x05green", 5);

    uint8_t buffer[4]; /* encoding cannot fail, but a buffer can be too short */
    vesk_led_data led = {0};
    led.f5 = (char[]){"green"};
    VESK_MARK(&led, VESK_LED_DATA_F5);
    const uint64_t length = vesk_led_data_encode_ext(&led, buffer, sizeof buffer, NULL, NULL, 0);
    if (length > sizeof buffer) printf("encoding: %u bytes of buffer, %u needed\n", 4u, (unsigned)length);
    return EXIT_SUCCESS;
}
