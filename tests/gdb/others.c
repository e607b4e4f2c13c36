/* A message of others, with a field of each form that the library's own have none of. */
#include <vesk/vesk_runtime.h>

typedef struct book_Page {
    double width;
    uint8_t present[1];
} book_Page;

typedef struct book_Book {
    int32_t level;
    float weight;
    int64_t* steps;
    uint32_t steps_count;
    uint8_t* flags;
    uint32_t flags_count;
    uint8_t* image;
    uint64_t image_length;
    char** names;
    uint32_t names_count;
    vesk_bytes* blobs;
    uint32_t blobs_count;
    book_Page* pages;
    uint32_t pages_count;
    book_Page cover;
    uint32_t* empty;
    uint32_t empty_count;
    double* astray;
    uint32_t astray_count;
    uint8_t present[2];
} book_Book;

/* None: it has a member of the same name, but no bit for each field. */
typedef struct attendance {
    int32_t first;
    uint8_t present[4];
} attendance;

void look(const book_Book* book, const attendance* list);
__attribute__((noinline)) void look(const book_Book* book, const attendance* list) {
    __asm__ volatile("" : : "r"(book), "r"(list) : "memory");
}

int main(void) {
    int64_t steps[] = {-1, 2, 3};
    uint8_t flags[] = {1, 0};
    uint8_t image[] = {0xCA, 0xFE};
    char one[] = "one", two[] = "two";
    char* names[] = {one, two};
    vesk_bytes blobs[] = {{image, 2}, {0, 0}};
    book_Page pages[] = {{1.5, {1}}, {2, {0}}};
    book_Book book = {-7,    0.5f, steps, 3, flags,      2, image, 2,          names, 2,
                      blobs, 2,    pages, 2, {2.5, {1}}, 0, 0,     (double*)8, 3,     {0xFF, 0x07}};
    attendance list = {5, {1, 2, 3, 4}};
    look(&book, &list);
    return 0;
}
