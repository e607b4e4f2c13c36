/* An entity identifier with an encoding of its own and no description: the first byte says how large a block it takes;
 * 0xFF is refused with a code of its own. */
#include <string.h>
#include <vesk/drin_eid.h>

uint64_t vesk_drin_eid_st_encode_ext(const vesk_drin_eid_st* message, void* buffer, uint64_t length,
                                     vesk_segment* segments, uint32_t* segment_count, uint32_t flags) {
    (void)message, (void)buffer, (void)length, (void)segments, (void)flags;
    if (segment_count != NULL) *segment_count = 0;
    return 0;
}

int32_t vesk_drin_eid_st_decode_ext(vesk_drin_eid_st* message, const void* buffer, uint64_t length, vesk_alloc alloc,
                                    void* context, uint32_t flags) {
    (void)flags;
    memset(message, 0, sizeof *message);
    if (length == 0) return VESK_OK;
    const unsigned char first = *(const unsigned char*)buffer;
    if (first == 0xFF) return -42;
    return alloc(first, context) != NULL ? VESK_OK : VESK_NO_MEMORY;
}

int32_t vesk_drin_eid_st_duplicate(vesk_drin_eid_st* destination, const vesk_drin_eid_st* source, vesk_alloc alloc,
                                   void* context) {
    (void)alloc, (void)context;
    *destination = *source;
    return VESK_OK;
}

void vesk_drin_eid_st_free_ext(vesk_drin_eid_st* message, vesk_release release, void* context, uint32_t flags) {
    (void)message, (void)release, (void)context, (void)flags;
}
