/* A message in a single block of just its size: one request, one release. */
#include <stdio.h>
#include <stdlib.h>
#include <vesk/client_service.h>
#include <vesk/vesk_toolkit.h>

static void* from_heap(uint64_t size, void* context) {
    (void)context;
    printf("one block of %llu bytes\n", (unsigned long long)size);
    return malloc((size_t)size);
}

static void to_heap(void* block, void* context) {
    (void)context;
    free(block);
}

int main(void) {
    static const uint8_t bytes[] = {0x0A, 0x08, 0x12, 0x06, 'p', 's', 'u', '/', '0', '0', 0x18, 0xC0, 0x25};
    const uint64_t length = sizeof bytes;
    vesk_pem_data pem = {0};
    vesk_one_block block;
    int32_t code = VESK_DECODE_IN_ONE_BLOCK(vesk_pem_data_decode_ext, vesk_type_named("pem_data"), &pem, bytes, length,
                                            0, from_heap, NULL, &block, NULL);
    if (code == VESK_OK) printf("%s: %u\n", pem.entity_common.f2, (unsigned)pem.f3);
    vesk_one_block_release(&block, to_heap, NULL);
    return code;
}
