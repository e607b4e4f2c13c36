/* Routes the sensors of an answer by their entity's name without decoding any of it, and without a heap: an iterator
 * over the list, and one field of each element. */
#include <stdio.h>
#include <string.h>
#include <vesk/client_service.h>
#include <vesk/vesk_toolkit.h>

static uint64_t make_answer(uint8_t* buffer, uint64_t size) {
    static char names[3][8] = {"fan/1", "psu/0", "fan/2"};
    static vesk_sensor_data sensors[3];
    for (uint32_t i = 0; i < 3; ++i) {
        sensors[i].entity_common.f2 = names[i];
        VESK_MARK(&sensors[i].entity_common, VESK_ENTITY_COMMON_DATA_F2);
        sensors[i].f4 = 20 + i;
        VESK_MARK(&sensors[i], VESK_SENSOR_DATA_F4);
    }
    vesk_resp_inv_data answer = {0};
    answer.sensor_list = sensors;
    answer.sensor_list_count = 3;
    VESK_MARK(&answer, VESK_RESP_INV_DATA_SENSOR_LIST);
    return vesk_resp_inv_data_encode_ext(&answer, buffer, size, NULL, NULL, 0);
}

int main(void) {
    uint8_t buffer[256];
    const uint64_t length = make_answer(buffer, sizeof buffer);
    const vesk_type* type = vesk_type_named("resp_inv_data");

    vesk_iterator sensors;
    vesk_value sensor, value;
    sensor.size = value.size = sizeof value;
    int32_t code = vesk_iterate(&sensors, type, "sensor_list", buffer, length, NULL);
    if (code != VESK_OK) return fprintf(stderr, "%s\n", vesk_toolkit_result_text(code)), 1;
    while (vesk_next(&sensors, &sensor)) {
        if (vesk_peek(sensor.type, "entity_common.f2", sensor.data, sensor.length, &value, NULL) != VESK_OK) continue;
        const int is_fan = value.length >= 4 && memcmp(value.data, "fan/", 4) == 0;
        printf("%.*s: %llu bytes to the %s\n", (int)value.length, (const char*)value.data,
               (unsigned long long)sensor.length, is_fan ? "fan manager" : "power manager");
    }
    code = vesk_peek(type, "sensor_list[1].f4", buffer, length, &value, NULL);
    if (code == VESK_OK) printf("sensor_list[1].f4: %llu\n", (unsigned long long)value.number);
    code = vesk_peek(type, "sensor_list[3]", buffer, length, &value, NULL);
    printf("sensor_list[3]: %s\n", vesk_toolkit_result_name(code));
    return 0;
}
