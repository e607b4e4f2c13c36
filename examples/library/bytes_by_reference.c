/* A raw block of 64 KiB that is never copied: encoding lists it where it is, for one gathering write, and decoding
 * points into the input. For messages that nest none; examples/toolkit has vesk_gather for the others. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vesk/client_service.h>

static uint8_t block[65536];

/* To a file: a socket may take less than all of it, for which there is vesk_send_all. */
static int write_record(int file, const vesk_scratch_eeprom* record) {
    uint8_t buffer[64];
    vesk_segment segments[4];
    struct iovec vectors[4];
    uint32_t count = 4;
    const uint64_t made =
        vesk_scratch_eeprom_encode_ext(record, buffer, sizeof buffer, segments, &count, VESK_BYTES_BY_REFERENCE);
    if (made > sizeof buffer || count > 4) return -1;
    size_t total = 0;
    for (uint32_t i = 0; i < count; ++i) {
        vectors[i].iov_base = (void*)segments[i].data;
        vectors[i].iov_len = (size_t)segments[i].length;
        total += vectors[i].iov_len;
    }
    printf("written: %zu bytes in %u segments, %u of them made\n", total, (unsigned)count, (unsigned)made);
    return writev(file, vectors, (int)count) == (ssize_t)total ? 0 : -1;
}

int main(void) {
    memset(block, 0x5A, sizeof block);
    vesk_scratch_eeprom record = {0};
    record.f2 = block;
    record.f2_length = sizeof block;
    record.f3 = 7;
    VESK_MARK(&record, VESK_SCRATCH_EEPROM_F2);
    VESK_MARK(&record, VESK_SCRATCH_EEPROM_F3);

    FILE* file = tmpfile();
    static uint8_t input[sizeof block + 64];
    if (file == NULL || write_record(fileno(file), &record) != 0) return EXIT_FAILURE;
    rewind(file);
    const size_t length = fread(input, 1, sizeof input, file);
    fclose(file);

    vesk_scratch_eeprom received; /* good for as long as the input; without strings it needs no memory at all */
    const int32_t code = vesk_scratch_eeprom_decode_ext(&received, input, length, NULL, NULL, VESK_BYTES_BY_REFERENCE);
    if (code != VESK_OK) return fprintf(stderr, "bytes_by_reference: %s\n", vesk_result_text(code)), EXIT_FAILURE;
    if (!VESK_HAS(&received, VESK_SCRATCH_EEPROM_F2)) return EXIT_FAILURE;
    printf("read: %u bytes, which begin at byte %u of the input\n", (unsigned)received.f2_length,
           (unsigned)(received.f2 - input));
    const int is_whole = received.f2_length == sizeof block && memcmp(received.f2, block, sizeof block) == 0;
    vesk_scratch_eeprom_free_ext(&received, NULL, NULL, VESK_BYTES_BY_REFERENCE); /* the decode's flags */
    return is_whole ? EXIT_SUCCESS : EXIT_FAILURE;
}
