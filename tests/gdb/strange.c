/* Messages as a debugger meets them before they are filled, and after somebody has written over them. */
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <vesk/client_service.h>

static vesk_resp_inv_data answer;   /* a list of 2^32 - 1 elements, three of which can be read, and one at no address */
static vesk_idprom_data record;     /* pointers that lead nowhere */
static vesk_scratch_eeprom lengths; /* null strings, and more bytes than there is memory */
static vesk_led_data nothing;       /* no field */
static vesk_led_data marked; /* a nested message that is present and empty, and one with content and without its bit */
static vesk_drin_eid_st identifier;   /* a list without elements */
static vesk_event_context_data noise; /* every byte 0xFF */

static void* nowhere(void) { return (void*)16; }

/* The last bytes of a page after which nothing can be read. */
static void* end_of_page(size_t size) {
    uint8_t* const pages = mmap(NULL, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED || munmap(pages + 4096, 4096) != 0) abort();
    return pages + 4096 - size;
}

static void filled(void) {} /* where the debugger stops */

int main(void) {
    static char colour[] =
        "gr\xFC"
        "n\n";
    answer.pem_list = end_of_page(3 * sizeof *answer.pem_list);
    for (unsigned i = 0; i < 3; ++i) {
        answer.pem_list[i].f3 = 4800 + i;
        VESK_MARK(&answer.pem_list[i], VESK_PEM_DATA_F3);
    }
    answer.pem_list_count = UINT32_MAX;
    VESK_MARK(&answer, VESK_RESP_INV_DATA_PEM_LIST);
    answer.led_list = nowhere();
    answer.led_list_count = 2;
    VESK_MARK(&answer, VESK_RESP_INV_DATA_LED_LIST);

    record.eeprom.f20 = nowhere();
    record.eeprom.f20_length = 3;
    VESK_MARK(&record.eeprom, VESK_EEPROM_DATA_F20);
    record.f4 = nowhere();
    VESK_MARK(&record, VESK_IDPROM_DATA_F4);

    VESK_MARK(&lengths, VESK_SCRATCH_EEPROM_F1);
    lengths.f2 = end_of_page(2);
    memset(lengths.f2, 0x5A, 2);
    lengths.f2_length = UINT64_MAX;
    VESK_MARK(&lengths, VESK_SCRATCH_EEPROM_F2);

    VESK_MARK(&marked, VESK_LED_DATA_ENTITY_COMMON);
    marked.fru_common.f1 = 1;
    VESK_MARK(&marked.fru_common, VESK_FRU_COMMON_ATTRIBUTE_F1);
    marked.f3 = 2; /* without its bit */
    marked.f5 = colour;
    VESK_MARK(&marked, VESK_LED_DATA_F5);

    VESK_MARK(&identifier, VESK_DRIN_EID_ST_ELEMENT_LIST);
    memset(&noise, 0xFF, sizeof noise);
    filled();
    return nothing.f3 != 0;
}
