/* clang-tidy finds clang-analyzer-unix.Malloc */
#include <stdlib.h>

int read_after_free(void) {
    int* number = calloc(1, sizeof *number);
    free(number);
    return *number;
}
