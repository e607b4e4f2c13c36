/* The presence macros from C99: each touches one bit, in the byte where the bit lives. */
#include <stdio.h>
#include <vesk/client_service.h>

static int failures = 0;

static void expect(int condition, const char* what) {
    if (condition) return;
    printf("failed: %s\n", what);
    ++failures;
}

int main(void) {
    vesk_sensor_data sensor = {0};
    unsigned bit;
    for (bit = VESK_SENSOR_DATA_ENTITY_COMMON; bit <= VESK_SENSOR_DATA_F18; ++bit) {
        expect(!VESK_HAS(&sensor, bit), "a zero-initialised message has nothing");
    }

    VESK_MARK(&sensor, VESK_SENSOR_DATA_F9);
    VESK_MARK(&sensor, VESK_SENSOR_DATA_F10);
    VESK_MARK(&sensor, VESK_SENSOR_DATA_F18);
    expect(sensor.present[0] == 0x00 && sensor.present[1] == 0x03 && sensor.present[2] == 0x02, "bits 8, 9 and 17");
    expect(VESK_HAS(&sensor, VESK_SENSOR_DATA_F9) == 1, "a marked field is present, and the answer is 1");

    VESK_MARK(&sensor, VESK_SENSOR_DATA_F9);
    expect(sensor.present[1] == 0x03, "marking twice changes nothing");

    VESK_UNMARK(&sensor, VESK_SENSOR_DATA_F9);
    expect(!VESK_HAS(&sensor, VESK_SENSOR_DATA_F9), "an unmarked field is absent");
    expect(sensor.present[1] == 0x02 && sensor.present[2] == 0x02, "its neighbours stay");
    return failures != 0;
}
