/* A program that uses the library and the two beside it, as C and as C++. */
#include <stdio.h>
#include <string.h>
#include <vesk/client_service.h>
#include <vesk/vesk_text.h>
#include <vesk/vesk_toolkit.h>

static int32_t to_stdout(const char* text, size_t length, void* context) {
    (void)context;
    return fwrite(text, 1, length, stdout) == length ? 0 : 1;
}

int main(void) {
    vesk_pem_data pem;
    uint8_t bytes[8];
    uint64_t length;
    vesk_text_options options = vesk_default_text_options();
    const vesk_type* type = vesk_type_named("pem_data");

    memset(&pem, 0, sizeof pem);
    pem.f3 = 4800;
    VESK_MARK(&pem, VESK_PEM_DATA_F3);
    length = vesk_pem_data_encode_ext(&pem, bytes, sizeof bytes, NULL, NULL, 0);

    printf("%s %s ", strcmp(vesk_version(), VESK_VERSION) == 0 ? "one version" : "two versions",
           vesk_type_named("drin_eid_st") != NULL ? "described" : "opaque");
    fflush(stdout);
    options.flags = VESK_TEXT_ONE_LINE;
    return vesk_json_print_encoded(type, bytes, length, to_stdout, NULL, NULL, &options) == VESK_OK ? 0 : 1;
}
