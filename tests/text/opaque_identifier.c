/* Where the identifier's library does not describe itself, an identifier is neither printed nor parsed, and all else
 * is. */
#include <stdio.h>
#include <string.h>
#include <vesk/client_service.h>
#include <vesk/vesk_text.h>

static char printed[256];

static int32_t append(const char* text, size_t length, void* context) {
    (void)context;
    strncat(printed, text, length);
    return 0;
}

static int failures;
static vesk_text_report report = {.size = sizeof(vesk_text_report)};

static void expect(const char* what, int32_t code, int32_t expected_code, const char* path, const char* text) {
    if (code != expected_code || strcmp(report.path, path) != 0 || strcmp(printed, text) != 0) {
        printf("%s: %d %s \"%s\"\n", what, (int)code, report.path, printed);
        ++failures;
    }
    printed[0] = '\0';
}

int main(void) {
    const vesk_type* const type = vesk_type_named("event_data");
    vesk_text_options options = vesk_default_text_options();
    options.flags = VESK_TEXT_ONE_LINE;

    vesk_event_data event;
    memset(&event, 0, sizeof event);
    event.f6 = 7;
    VESK_MARK(&event, VESK_EVENT_DATA_F6);
    expect("without identifier", vesk_json_print(type, &event, append, NULL, &report, &options), VESK_OK, "",
           "{\"f6\":\"7\"}");
    event.eid.f1 = 2; /* has content, and so is encoded */
    expect("content", vesk_json_print(type, &event, append, NULL, &report, &options), VESK_OPAQUE, "eid", "{\"eid\":{");
    event.eid.f1 = 0;
    VESK_MARK(&event, VESK_EVENT_DATA_EID);
    expect("bit", vesk_text_print(type, &event, append, NULL, &report, &options), VESK_OPAQUE, "eid", "eid {");

    const uint8_t with[] = {0x0A, 0x01, 0x00, 0x30, 0x07};
    expect("bytes", vesk_json_print_encoded(type, with, sizeof with, append, NULL, &report, &options), VESK_OPAQUE, "",
           "");
    expect("bytes without", vesk_json_print_encoded(type, with + 3, 2, append, NULL, &report, &options), VESK_OK, "",
           "{\"f6\":\"7\"}");

    const char json[] = "{\"f6\":7,\"eid\":{}}";
    expect("parse", vesk_json_parse(type, &event, json, strlen(json), NULL, NULL, &report, NULL), VESK_OPAQUE, "eid",
           "");
    const char null_json[] = "{\"f6\":7,\"eid\":null}";
    expect("parse null", vesk_json_parse(type, &event, null_json, strlen(null_json), NULL, NULL, &report, NULL),
           VESK_OK, "", "");
    const char text[] = "f6: 7 eid {}";
    expect("parse text", vesk_text_parse(type, &event, text, strlen(text), NULL, NULL, &report, NULL), VESK_OPAQUE,
           "eid", "");
    if (vesk_type_named("drin_eid_st") != NULL) {
        puts("the identifier is described: the stand-in has been loaded");
        ++failures;
    }
    return failures != 0;
}
