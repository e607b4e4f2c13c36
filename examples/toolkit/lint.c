/* Finds the commonest mistake there is, a value without its presence bit, before it is sent as nothing. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <vesk/client_service.h>
#include <vesk/vesk_toolkit.h>

static const char* words_for(int32_t finding) {
    switch (finding) {
        case VESK_LINT_NOT_MARKED: return "set without its presence bit";
        case VESK_LINT_NULL_STRING: return "marked, but null";
        case VESK_LINT_EMPTY_LIST: return "marked, but has no element";
        case VESK_LINT_NULL_DATA: return "null with a length or count";
        case VESK_LINT_TOO_LONG: return "4 GiB or more";
        case VESK_LINT_NOT_UTF8: return "not UTF-8 (a remark)";
        default: return "not looked into (a remark)";
    }
}

static int32_t print_finding(int32_t finding, const char* path, void* type) {
    printf("%s.%s: %s\n", (const char*)type, path, words_for(finding));
    return 0; /* go on */
}

/* A debug build may call this for each message that it is about to send. */
static uint64_t lint(const char* name, const void* message) {
    char type[64];
    snprintf(type, sizeof type, "%s", name);
    return vesk_lint(vesk_type_named(type), message, print_finding, type, NULL);
}

int main(void) {
    char colour[] = "gr\xFCn"; /* in Latin 1 */
    vesk_led_data led = {0};
    led.entity_common.f4 = 7;
    led.f3 = 2;
    led.f5 = colour;
    VESK_MARK(&led, VESK_LED_DATA_F5);
    printf("%" PRIu64 " findings\n", lint("led_data", &led));

    VESK_MARK(&led.entity_common, VESK_ENTITY_COMMON_DATA_F4);
    VESK_MARK(&led, VESK_LED_DATA_F3);
    led.f5 = (char[]){"green"};
    printf("%" PRIu64 " findings\n", lint("led_data", &led));
    return EXIT_SUCCESS;
}
