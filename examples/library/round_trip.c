/* A message with a list, out and back in: encoded into the buffer at hand, which turns out to be too short, decoded
 * into blocks of the heap, and freed. */
#include <stdio.h>
#include <stdlib.h>
#include <vesk/client_service.h>

static void* from_heap(uint64_t size, void* context) {
    (void)context;
    return malloc(size != 0 ? (size_t)size : 1);
}

static void to_heap(void* block, void* context) {
    (void)context;
    free(block);
}

int main(void) {
    char names[2][6] = {"PSU 1", "PSU 2"};
    vesk_pem_data modules[2] = {0}; /* nothing is present */
    for (unsigned i = 0; i < 2; ++i) {
        modules[i].entity_common.f2 = names[i];
        VESK_MARK(&modules[i].entity_common, VESK_ENTITY_COMMON_DATA_F2);
        modules[i].f3 = 4800 + i;
        VESK_MARK(&modules[i], VESK_PEM_DATA_F3);
    }
    vesk_resp_inv_data answer = {0};
    answer.pem_list = modules;
    answer.pem_list_count = 2;
    VESK_MARK(&answer, VESK_RESP_INV_DATA_PEM_LIST);

    uint8_t at_hand[16];
    uint8_t* bytes = at_hand;
    const uint64_t length = vesk_resp_inv_data_encode_ext(&answer, at_hand, sizeof at_hand, NULL, NULL, 0);
    if (length > sizeof at_hand) { /* too short: it holds the beginning alone */
        bytes = malloc((size_t)length);
        if (bytes == NULL) return EXIT_FAILURE;
        vesk_resp_inv_data_encode_ext(&answer, bytes, length, NULL, NULL, 0);
    }
    printf("encoded: %u bytes\n", (unsigned)length);

    vesk_resp_inv_data received;
    const int32_t code = vesk_resp_inv_data_decode_ext(&received, bytes, length, from_heap, NULL, 0);
    if (bytes != at_hand) free(bytes); /* the message has copies of its own */
    if (code != VESK_OK) fprintf(stderr, "round_trip: %s\n", vesk_result_text(code));
    for (uint32_t i = 0; code == VESK_OK && i < received.pem_list_count; ++i) {
        const vesk_pem_data* module = &received.pem_list[i];
        if (VESK_HAS(&module->entity_common, VESK_ENTITY_COMMON_DATA_F2)) printf("%s", module->entity_common.f2);
        if (VESK_HAS(module, VESK_PEM_DATA_F3)) printf(": %u\n", (unsigned)module->f3);
    }
    vesk_resp_inv_data_free_ext(&received, to_heap, NULL, 0); /* after an error, too */
    return code == VESK_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
