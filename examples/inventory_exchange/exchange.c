#include "exchange.h"

#include <stdlib.h>
#include <string.h>

static const uint8_t magic[4] = {'V', 'S', 'K', '1'};

static void write_number(uint8_t* bytes, uint32_t number) {
    bytes[0] = (uint8_t)(number >> 24);
    bytes[1] = (uint8_t)(number >> 16);
    bytes[2] = (uint8_t)(number >> 8);
    bytes[3] = (uint8_t)number;
}

static uint32_t read_number(const uint8_t* bytes) {
    return (uint32_t)bytes[0] << 24 | (uint32_t)bytes[1] << 16 | (uint32_t)bytes[2] << 8 | bytes[3];
}

/* A block of a list, a header and `length` bytes; the header is the first segment. Null if there is no memory. */
static vesk_segment* make_block(uint32_t segments, uint64_t length) {
    size_t list_size = ((size_t)segments + 1) * sizeof(vesk_segment);
    vesk_segment* list = malloc(list_size + EXCHANGE_HEADER_LENGTH + (size_t)length);
    if (list != NULL) list[0] = (vesk_segment){(uint8_t*)list + list_size, EXCHANGE_HEADER_LENGTH};
    return list;
}

/* Where the bytes after the header stand. */
static uint8_t* bytes_of(const vesk_segment* list) {
    return (uint8_t*)(uintptr_t)list[0].data + EXCHANGE_HEADER_LENGTH;
}

/* `segments` of them follow the header. */
static struct exchange_frame finish_frame(enum exchange_kind kind, vesk_segment* list, uint32_t segments) {
    uint64_t length = 0;
    for (uint32_t i = 1; i <= segments; ++i) length += list[i].length;
    uint8_t* header = bytes_of(list) - EXCHANGE_HEADER_LENGTH;
    memcpy(header, magic, sizeof magic);
    write_number(header + 4, (uint32_t)kind);
    write_number(header + 8, (uint32_t)length);
    return (struct exchange_frame){.block = list, .sending = vesk_begin_sending(list, segments + 1)};
}

bool exchange_frame_message(enum exchange_kind kind, const vesk_type* type, const void* message,
                            struct exchange_frame* frame) {
    uint64_t length = 0;
    uint32_t segments = 0;
    vesk_gather(type, message, NULL, &length, NULL, &segments, NULL); /* says what it needs */
    vesk_segment* list = make_block(segments, length);
    if (list == NULL) return false;
    vesk_gather(type, message, bytes_of(list), &length, list + 1, &segments, NULL);
    *frame = finish_frame(kind, list, segments);
    return true;
}

bool exchange_frame_refusal(const char* words, struct exchange_frame* frame) {
    size_t length = strlen(words);
    vesk_segment* list = make_block(1, length);
    if (list == NULL) return false;
    list[1] = (vesk_segment){memcpy(bytes_of(list), words, length), length};
    *frame = finish_frame(EXCHANGE_REFUSAL, list, 1);
    return true;
}

void exchange_drop_frame(struct exchange_frame* frame) {
    free(frame->block);
    frame->block = NULL;
}

int exchange_send(int socket, struct exchange_frame* frame) {
    return vesk_send_all(socket, &frame->sending, MSG_NOSIGNAL);
}

const char* exchange_read_header(const uint8_t bytes[EXCHANGE_HEADER_LENGTH], struct exchange_header* header) {
    if (memcmp(bytes, magic, sizeof magic) != 0) return "this is not a frame of the inventory exchange";
    header->kind = read_number(bytes + 4);
    header->length = read_number(bytes + 8);
    if (header->length > EXCHANGE_BODY_LIMIT) return "the frame is over the size limit";
    return NULL;
}

bool exchange_address(const char* path, struct sockaddr_un* address) {
    size_t length = strlen(path);
    memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    if (length == 0 || length >= sizeof address->sun_path) return false;
    memcpy(address->sun_path, path, length);
    return true;
}

const char* exchange_result_words(int32_t result) {
    switch (result) {
        case VESK_OK: return "it decodes";
        case VESK_MALFORMED: return "it is truncated or inconsistent";
        case VESK_UNKNOWN_WIRE_TYPE: return "it holds an unknown field that cannot be skipped";
        case VESK_WRONG_WIRE_TYPE: return "one of its fields has the wrong wire type";
        case VESK_NO_MEMORY: return "it asks for more memory than the limit allows";
        default: return "the result code is unknown";
    }
}
