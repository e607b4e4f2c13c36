/* gcc-analyzer finds -Werror=analyzer-double-free */
#include <stdlib.h>

void free_twice(void* block) {
    free(block);
    free(block);
}
