/* Sends a record with an EEPROM image of 64 KiB: the image goes from where it is to the socket, and only the few bytes
 * around it are made. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vesk/client_service.h>
#include <vesk/vesk_gather_posix.h>
#include <vesk/vesk_toolkit.h>

static uint8_t image[65536];

static int send_record(int socket, const vesk_idprom_data* record) {
    const vesk_type* type = vesk_type_named("idprom_data");
    uint8_t buffer[256];
    vesk_segment segments[8];
    uint64_t length = sizeof buffer;
    uint32_t count = 8;
    int32_t code = vesk_gather(type, record, buffer, &length, segments, &count, NULL);
    if (code != VESK_OK) return -1; /* VESK_TOO_SHORT: length and count say what it takes */
    printf("%u segments, of which %u bytes were made\n", (unsigned)count, (unsigned)length);
    vesk_sending sending = vesk_begin_sending(segments, count);
    return vesk_send_all(socket, &sending, MSG_NOSIGNAL);
}

/* The other end, which has an ordinary encoding before it. */
static int receive_record(int socket) {
    static uint8_t bytes[sizeof image + 256];
    size_t length = 0;
    ssize_t more;
    while ((more = read(socket, bytes + length, sizeof bytes - length)) > 0) length += (size_t)more;
    vesk_idprom_data record;
    vesk_arena arena; /* for the text; the image stays where it is */
    uint64_t room[8];
    vesk_arena_of_buffer(&arena, room, sizeof room);
    int32_t code =
        vesk_idprom_data_decode_ext(&record, bytes, length, vesk_arena_alloc, &arena, VESK_BYTES_BY_REFERENCE);
    if (code != VESK_OK || record.eeprom.f20_length != sizeof image) return -1;
    return memcmp(record.eeprom.f20, image, sizeof image);
}

int main(void) {
    char name[] = "spare";
    vesk_idprom_data record = {0};
    memset(image, 0x5A, sizeof image);
    record.eeprom.f20 = image;
    record.eeprom.f20_length = sizeof image;
    VESK_MARK(&record.eeprom, VESK_EEPROM_DATA_F20);
    record.f4 = name;
    VESK_MARK(&record, VESK_IDPROM_DATA_F4);

    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0 || send_record(ends[0], &record) != 0) return EXIT_FAILURE;
    close(ends[0]);
    if (receive_record(ends[1]) != 0) return EXIT_FAILURE;
    puts("arrived whole");
    return EXIT_SUCCESS;
}
