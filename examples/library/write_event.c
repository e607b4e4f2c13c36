/* Writes the notification of an event to standard output. docs/debugging.md looks at it with GDB, at its bytes with
 * Python and at a capture of it with tshark. */
#include <stdio.h>
#include <stdlib.h>
#include <vesk/client_service.h>

int main(void) {
    static uint8_t image[] = {0x0A, 0x00, 0xFF};
    char name[] = "Fan tray 1";
    vesk_drin_eid_element place[2] = {{.f1 = 1}, {.f1 = 4}};
    for (int i = 0; i < 2; ++i) VESK_MARK(&place[i], VESK_DRIN_EID_ELEMENT_F1);

    vesk_notify_event_data event = {0};
    event.eid.element_list = place;
    event.eid.element_list_count = 2;
    VESK_MARK(&event.eid, VESK_DRIN_EID_ST_ELEMENT_LIST);
    event.f2 = 77;
    VESK_MARK(&event, VESK_NOTIFY_EVENT_DATA_F2);
    event.sensor.entity_common.f2 = name;
    VESK_MARK(&event.sensor.entity_common, VESK_ENTITY_COMMON_DATA_F2);
    event.sensor.f4 = 91;
    VESK_MARK(&event.sensor, VESK_SENSOR_DATA_F4);
    event.sensor.f15 = 1;
    VESK_MARK(&event.sensor, VESK_SENSOR_DATA_F15);
    event.idprom.eeprom.f20 = image;
    event.idprom.eeprom.f20_length = sizeof image;
    VESK_MARK(&event.idprom.eeprom, VESK_EEPROM_DATA_F20);

    uint8_t bytes[128];
    const uint64_t length = vesk_notify_event_data_encode_ext(&event, bytes, sizeof bytes, NULL, NULL, 0);
    if (length > sizeof bytes || fwrite(bytes, 1, (size_t)length, stdout) != length || fflush(stdout) != 0) {
        fprintf(stderr, "write_event: %u bytes could not be written\n", (unsigned)length);
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
