/* The frames that the inventory service and its clients send each other over a Unix-domain stream socket:
 *
 *     bytes    field     value
 *     0-3      magic     56 53 4B 31 ("VSK1")
 *     4-7      kind      what the body is: enum exchange_kind
 *     8-11     length    bytes of the body, at most EXCHANGE_BODY_LIMIT
 *     12-      body      one encoded message; of a refusal, text
 *
 * Numbers are unsigned and in network byte order, most significant byte first.
 *
 * The client sends requests, one at a time; each gets one answer, or a refusal, after which the service hangs up. */
#ifndef EXCHANGE_H
#define EXCHANGE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>
#include <sys/un.h>
#include <vesk/vesk_gather_posix.h>
#include <vesk/vesk_toolkit.h>

#ifdef __cplusplus
extern "C" {
#endif

enum exchange_kind {
    EXCHANGE_REQ_INV_DATA = 1,
    EXCHANGE_REQ_INV_DATA_BY_TYPE = 2,
    EXCHANGE_REQ_INV_DATA_BY_EID = 3,
    EXCHANGE_RESP_INV_DATA = 4,
    EXCHANGE_RESP_INV_DATA_BY_EID = 5,
    EXCHANGE_REFUSAL = 6 /* the body is one line of text that says why, without a line end */
};

enum {
    EXCHANGE_HEADER_LENGTH = 12,
    EXCHANGE_BODY_LIMIT = 1024 * 1024 /* bytes; a receiver refuses more by the header alone */
};

struct exchange_header {
    uint32_t kind;
    uint32_t length; /* bytes of the body */
};

/* A frame on its way out. It stands in a block of its own, but for the bytes fields of its message: these are sent from
 * where they are, and must live until all of it is sent. */
struct exchange_frame {
    void* block; /* owned */
    vesk_sending sending;
};

/* Make a frame of which nothing is sent yet: of a message that takes at most EXCHANGE_BODY_LIMIT, or of the words of a
 * refusal. False if there is no memory for it. The caller drops it. */
bool exchange_frame_message(enum exchange_kind kind, const vesk_type* type, const void* message,
                            struct exchange_frame* frame);
bool exchange_frame_refusal(const char* words, struct exchange_frame* frame);
void exchange_drop_frame(struct exchange_frame* frame);

/* Sends what is left of a frame, with one sendmsg as long as the socket takes it. Never raises SIGPIPE. 0 when the
 * whole frame is out, else -1 with errno: after EAGAIN call it again once the socket is ready. */
int exchange_send(int socket, struct exchange_frame* frame);

/* Reads a header. Returns null, or words that say why it is not one; the kind is not judged. */
const char* exchange_read_header(const uint8_t bytes[EXCHANGE_HEADER_LENGTH], struct exchange_header* header);

/* Fills in the address of a socket. False if the path is empty or too long for one. */
bool exchange_address(const char* path, struct sockaddr_un* address);

/* What a result of decode says, in words. */
const char* exchange_result_words(int32_t result);

#ifdef __cplusplus
}
#endif

#endif
