/* Preloaded: the first read of a program comes after CHANGED_FILE has got another size, CHANGED_SIZE. */
#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

ssize_t read(int fd, void* buf, size_t nbytes) {
    static int is_changed;
    const char* const name = getenv("CHANGED_FILE");
    const char* const size = getenv("CHANGED_SIZE");
    if (!is_changed && name != NULL && size != NULL) {
        is_changed = 1;
        if (truncate(name, strtol(size, NULL, 10)) != 0) abort();
    }
    ssize_t (*real)(int, void*, size_t);
    void* const found = dlsym(RTLD_NEXT, "read");
    memcpy(&real, &found, sizeof real);
    return real(fd, buf, nbytes);
}
