/* Waiting that ends: a deadline is a moment on the monotonic clock, in milliseconds. */
#ifndef DEADLINE_H
#define DEADLINE_H

#include <errno.h>
#include <poll.h>
#include <stdbool.h>
#include <stdint.h>
#include <time.h>

static inline int64_t deadline_now(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

static inline int64_t deadline_in(double seconds) { return deadline_now() + (int64_t)(seconds * 1000); }

/* Waits until the file descriptor is ready or has hung up; false if the deadline comes first. */
static inline bool deadline_wait(int file_descriptor, short events, int64_t deadline) {
    struct pollfd wanted = {file_descriptor, events, 0};
    for (;;) {
        int64_t left = deadline - deadline_now();
        int ready = poll(&wanted, 1, left > 0 ? (int)left : 0);
        if (ready > 0) return true;
        if (ready == 0 && left <= 0) return false;
        if (ready < 0 && errno != EINTR) return false;
    }
}

#endif
