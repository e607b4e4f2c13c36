/* A plug-in that needs the library, whose names nobody else sees. */
#include <stddef.h>
#include <vesk/client_service.h>

int plug_in_call(void) {
    vesk_led_data led = {0};
    led.f3 = 2;
    VESK_MARK(&led, VESK_LED_DATA_F3);
    uint8_t bytes[8];
    return vesk_led_data_encode_ext(&led, bytes, sizeof bytes, NULL, NULL, 0) == 2 ? 0 : 1;
}
