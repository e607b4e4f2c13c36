/* print_json TYPE: reads an encoded message from standard input and prints it as JSON; says where it is wrong, if it
 * is.
 *
 *     print_json led_data <message.bin */
#include <stdio.h>
#include <vesk/vesk_text.h>

static int32_t to_stdout(const char* text, size_t length, void* context) {
    (void)context;
    return fwrite(text, 1, length, stdout) == length ? 0 : 1;
}

int main(int argc, char** argv) {
    static uint8_t input[1 << 20];
    const vesk_type* const type = argc == 2 ? vesk_type_named(argv[1]) : NULL;
    if (type == NULL) {
        fprintf(stderr, "usage: print_json TYPE, and these are the types:\n");
        for (const vesk_type* each = vesk_all_types(NULL); each != NULL; each = vesk_type_next(each)) {
            fprintf(stderr, "  %s\n", vesk_type_name(each));
        }
        return 2;
    }
    const size_t length = fread(input, 1, sizeof input, stdin);
    if (length == sizeof input) {
        fprintf(stderr, "print_json: more than %zu bytes\n", sizeof input - 1);
        return 2;
    }

    vesk_text_report report;
    report.size = sizeof report;
    vesk_text_options options = vesk_default_text_options();
    options.flags = VESK_TEXT_LOSSLESS; /* whatever somebody has sent is to be seen */
    if (vesk_json_print_encoded(type, input, length, to_stdout, NULL, &report, &options) == VESK_OK) return 0;

    fflush(stdout);
    fprintf(stderr, "print_json: %s: %s%s%s\n", vesk_text_result_name(report.code), report.path,
            report.path[0] != '\0' ? ": " : "", report.reason);
    return 1;
}
