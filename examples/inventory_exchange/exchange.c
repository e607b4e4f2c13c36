#include "exchange.h"

#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <vesk/vesk_runtime.h>

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

struct exchange_frame exchange_make_frame(enum exchange_kind kind, const void* body, size_t length) {
    static const uint8_t nothing[1] = {0};
    struct exchange_frame frame = {.body = length > 0 ? body : nothing, .length = length};
    memcpy(frame.header, magic, sizeof magic);
    write_number(frame.header + 4, (uint32_t)kind);
    write_number(frame.header + 8, (uint32_t)length);
    return frame;
}

bool exchange_all_sent(const struct exchange_frame* frame) {
    return frame->sent == EXCHANGE_HEADER_LENGTH + frame->length;
}

int exchange_send(int socket, struct exchange_frame* frame) {
    size_t header_sent = frame->sent < EXCHANGE_HEADER_LENGTH ? frame->sent : EXCHANGE_HEADER_LENGTH;
    size_t body_sent = frame->sent - header_sent;
    /* sendmsg only reads what the vector points at; its type cannot say so. */
    struct iovec rest[2] = {{frame->header + header_sent, EXCHANGE_HEADER_LENGTH - header_sent},
                            {(void*)(uintptr_t)(frame->body + body_sent), frame->length - body_sent}};
    struct msghdr message = {.msg_iov = rest, .msg_iovlen = 2};
    ssize_t count = sendmsg(socket, &message, MSG_NOSIGNAL);
    if (count < 0) return -1;
    frame->sent += (size_t)count;
    return 0;
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
