/* Sending what vesk_gather lists, on POSIX systems: all of it, in as many calls of writev or sendmsg as that takes.
 *
 *     vesk_sending sending = vesk_begin_sending(segments, segment_count);
 *     if (vesk_send_all(socket, &sending, MSG_NOSIGNAL) != 0) perror("send");
 *
 * Plain C99 and C++, all of it inline: it needs <vesk/vesk_runtime.h> alone, and no library. Of a list of any origin,
 * too, such as one with a header of the caller's in front. Threads: a list by any number of threads at once, a
 * vesk_sending by one at a time. */
#ifndef VESK_GATHER_POSIX_H
#define VESK_GATHER_POSIX_H

#include <errno.h>
#include <limits.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <vesk/vesk_runtime.h>

#ifdef __cplusplus
extern "C" {
#endif

/* How many vectors one call gets: 4 KiB of stack on most machines, and no more than the system takes (IOV_MAX). A
 * longer list goes out in turns. */
#if defined(IOV_MAX) && IOV_MAX < 256
enum { VESK_VECTORS_AT_ONCE = IOV_MAX };
#else
enum { VESK_VECTORS_AT_ONCE = 256 };
#endif

/* What one call gets at most, in bytes: no system refuses as much, or counts it wrong. */
enum { VESK_BYTES_AT_ONCE = 1 << 30 };

/* What is still to be sent of a list. The list and what it points at must live until all of it is out. */
typedef struct vesk_sending {
    const vesk_segment *next; /* the first segment of which something is left */
    uint32_t left;            /* segments from there on; 0 when all is out */
    uint64_t next_sent;       /* bytes of the first one that are out already */
    uint64_t sent;            /* bytes in all that are out already */
} vesk_sending;

/* Counts bytes as sent: for who calls sendmsg or the like with vectors of vesk_next_vectors. `bytes` is at most what is
 * left. */
static inline void vesk_count_sent(vesk_sending *sending, uint64_t bytes) {
    sending->sent += bytes;
    sending->next_sent += bytes;
    while (sending->left != 0 && sending->next_sent >= sending->next->length) {
        sending->next_sent -= sending->next->length;
        ++sending->next;
        --sending->left;
    }
}

/* A list of which nothing is sent yet. `segments` may be null if `count` is 0. */
static inline vesk_sending vesk_begin_sending(const vesk_segment *segments, uint32_t count) {
    vesk_sending sending;
    sending.next = segments;
    sending.left = count;
    sending.next_sent = 0;
    sending.sent = 0;
    vesk_count_sent(&sending, 0); /* an empty segment in front is out at once */
    return sending;
}

/* Turns what is left into vectors for one call.
 *
 *   sending   read only; not null
 *   vectors   out; an array of `capacity`
 *   capacity  vectors that it can hold, above 0
 *
 * Result: the vectors that were filled; 0 if nothing is left. None is empty, and together they have at most
 * VESK_BYTES_AT_ONCE bytes. */
static inline int vesk_next_vectors(const vesk_sending *sending, struct iovec *vectors, int capacity) {
    uint64_t room = VESK_BYTES_AT_ONCE;
    uint64_t skipped = sending->next_sent;
    uint32_t i;
    int count = 0;
    for (i = 0; i < sending->left && count < capacity && room != 0; ++i) {
        uint64_t length = sending->next[i].length - skipped;
        if (length > room) length = room;
        if (length != 0) {
            /* A vector's type cannot say that what it points at is only read. */
            vectors[count].iov_base = (void *)((uintptr_t)sending->next[i].data + (uintptr_t)skipped);
            vectors[count].iov_len = (size_t)length;
            ++count;
        }
        room -= length;
        skipped = 0;
    }
    return count;
}

/* Counts what a call of the system says. 0 if it is to be called again, else -1 with errno. */
static inline int vesk_count_result(vesk_sending *sending, ssize_t result) {
    if (result > 0) {
        vesk_count_sent(sending, (uint64_t)result);
        return 0;
    }
    if (result == 0) errno = EIO; /* or it would be called for ever */
    return errno == EINTR ? 0 : -1;
}

/* Sends what is left with writev: to a file, a pipe, a stream socket.
 *
 *   file     the descriptor
 *   sending  in and out; not null; tells afterwards what is out, also after an error
 *
 * Goes on after a short write and after EINTR. Result: 0 when all is out; else -1 with errno as writev sets it, or EIO
 * if writev took nothing and named no error. After EAGAIN wait for the descriptor (poll) and call again: nothing is
 * lost, nothing is sent twice. A pipe or socket whose other end is closed raises SIGPIPE; see vesk_send_all. */
static inline int vesk_write_all(int file, vesk_sending *sending) {
    struct iovec vectors[VESK_VECTORS_AT_ONCE];
    while (sending->left != 0) {
        int count = vesk_next_vectors(sending, vectors, VESK_VECTORS_AT_ONCE);
        if (vesk_count_result(sending, writev(file, vectors, count)) != 0) return -1;
    }
    return 0;
}

/* The same with sendmsg, on a stream socket. `flags` are sendmsg's: MSG_NOSIGNAL has EPIPE as the answer instead of a
 * signal, MSG_DONTWAIT has EAGAIN. Of a datagram socket each call sends one datagram, so that it is only fit for lists
 * of at most VESK_VECTORS_AT_ONCE segments. */
static inline int vesk_send_all(int socket, vesk_sending *sending, int flags) {
    struct iovec vectors[VESK_VECTORS_AT_ONCE];
    struct msghdr message;
    memset(&message, 0, sizeof message);
    message.msg_iov = vectors;
    while (sending->left != 0) {
        message.msg_iovlen = (size_t)vesk_next_vectors(sending, vectors, VESK_VECTORS_AT_ONCE);
        if (vesk_count_result(sending, sendmsg(socket, &message, flags)) != 0) return -1;
    }
    return 0;
}

#ifdef __cplusplus
}
#endif

#endif
