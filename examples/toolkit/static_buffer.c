/* A type without strings, bytes, lists and identifiers has a longest encoding, known while compiling: a static buffer
 * of that size is never too short, and nothing is allocated in either direction. */
#include <stdio.h>
#include <vesk/client_service.h>
#include <vesk/vesk_sizes.h>

static uint8_t buffer[VESK_RESP_ADMIN_MEMORY_DATA_LONGEST_ENCODING];

#if VESK_RESP_ADMIN_MEMORY_DATA_MEMORY_PER_BYTE > 0
#error "resp_admin_memory_data owns blocks now: decode it with an allocation callback"
#endif

int main(void) {
    vesk_resp_admin_memory_data memory = {0};
    memory.f1 = UINT32_MAX;
    VESK_MARK(&memory, VESK_RESP_ADMIN_MEMORY_DATA_F1);
    memory.f4 = 7;
    VESK_MARK(&memory, VESK_RESP_ADMIN_MEMORY_DATA_F4);
    const uint64_t length = vesk_resp_admin_memory_data_encode_ext(&memory, buffer, sizeof buffer, NULL, NULL, 0);

    vesk_resp_admin_memory_data again;
    const int32_t code = vesk_resp_admin_memory_data_decode_ext(&again, buffer, length, NULL, NULL, 0);
    printf("%s: %u and %u in %u of %u bytes\n", vesk_result_name(code), (unsigned)again.f1, (unsigned)again.f4,
           (unsigned)length, (unsigned)sizeof buffer);
    return code;
}
