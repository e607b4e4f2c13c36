/* Reads a message from a stranger without giving him all of the memory: what it would cost is known before anything is
 * allocated, and an arena holds the decode to a limit. Prints the cost of an honest message and of a hostile one. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vesk/client_service.h>
#include <vesk/vesk_toolkit.h>

static void* from_heap(uint64_t size, void* context) {
    (void)context;
    return malloc((size_t)size);
}

static void to_heap(void* block, void* context) {
    (void)context;
    free(block);
}

static void read_from_stranger(const void* input, uint64_t length) {
    vesk_report report;
    report.size = sizeof report;
    int32_t code = vesk_check(vesk_type_named("resp_inv_data"), input, length, 0, &report, NULL);
    printf("%llu bytes, decoded %llu in %llu blocks: %s\n", (unsigned long long)length,
           (unsigned long long)report.cost.bytes, (unsigned long long)report.cost.blocks, vesk_result_name(code));

    vesk_arena arena;
    vesk_arena_of_blocks(&arena, from_heap, to_heap, NULL);
    vesk_arena_limit(&arena, vesk_arena_limit_for(length), UINT64_MAX);
    vesk_resp_inv_data answer;
    code = vesk_resp_inv_data_decode_ext(&answer, input, length, vesk_arena_alloc, &arena, 0);
    printf("  within its limit: %s\n", vesk_result_name(code));
    vesk_arena_close(&arena); /* gives back every block, after an error, too; no free is needed */
}

int main(void) {
    vesk_pem_data pem = {0};
    pem.f3 = 4800;
    VESK_MARK(&pem, VESK_PEM_DATA_F3);
    vesk_resp_inv_data answer = {0};
    answer.pem_list = &pem;
    answer.pem_list_count = 1;
    VESK_MARK(&answer, VESK_RESP_INV_DATA_PEM_LIST);
    uint8_t honest[64];
    const uint64_t length = vesk_resp_inv_data_encode_ext(&answer, honest, sizeof honest, NULL, NULL, 0);
    if (length > sizeof honest) return 1;
    read_from_stranger(honest, length);

    static uint8_t hostile[20000]; /* 10,000 empty elements of idprom_list, 568 bytes each */
    for (size_t i = 0; i < sizeof hostile; i += 2) hostile[i] = 7 << 3 | 2;
    read_from_stranger(hostile, sizeof hostile);
    return 0;
}
