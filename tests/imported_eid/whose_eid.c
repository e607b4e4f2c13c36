/* Says whose entity-identifier functions the library calls: `whose_eid recorder` and `whose_eid stand-in` succeed if it
 * is that one. The program itself defines none and names none. */
#include <stdio.h>
#include <string.h>
#include <vesk/inventory_db.h>

static int is_recorder(void) {
    vesk_register_container_eid_data registration = {0};
    vesk_register_container_eid_data copy;
    uint8_t buffer[16];
    /* The recorder writes f1 bytes of 0xE1; the stand-in writes an empty message, for no bit of the EID is set. */
    static const uint8_t recorded[] = {0x12, 3, 0xE1, 0xE1, 0xE1};
    static const uint8_t minus_seven[] = {0x12, 4, 0xF9, 0xFF, 0xFF, 0xFF};
    int recorder_answers = 0;

    registration.eid.f1 = 3;
    VESK_MARK(&registration, VESK_REGISTER_CONTAINER_EID_DATA_EID);
    recorder_answers += vesk_register_container_eid_data_encode_ext(&registration, buffer, sizeof buffer, NULL, NULL,
                                                                    0) == sizeof recorded &&
                        memcmp(buffer, recorded, sizeof recorded) == 0;

    registration.eid.f4 = (uint32_t)-9;
    recorder_answers += vesk_register_container_eid_data_duplicate(&copy, &registration, NULL, NULL) == -9;

    recorder_answers += vesk_register_container_eid_data_decode_ext(&registration, minus_seven, sizeof minus_seven,
                                                                    NULL, NULL, 0) == -7;
    vesk_register_container_eid_data_free_ext(&registration, NULL, NULL, 0);
    if (recorder_answers != 0 && recorder_answers != 3) printf("only %d of 3 answers\n", recorder_answers);
    return recorder_answers == 3;
}

int main(int argc, char** argv) {
    const char* expected = argc > 1 ? argv[1] : "";
    const char* found = is_recorder() ? "recorder" : "stand-in";
    printf("the functions are those of the %s\n", found);
    return strcmp(found, expected) == 0 ? 0 : 1;
}
