/* A library of the entity identifier that does not describe itself: an identifier is encoded as f1 zeros. */
#include <string.h>
#include <vesk/drin_eid.h>

uint64_t vesk_drin_eid_st_encode_ext(const vesk_drin_eid_st* message, void* buffer, uint64_t length,
                                     vesk_segment* segments, uint32_t* segment_count, uint32_t flags) {
    (void)segments, (void)flags;
    if (segment_count != NULL) *segment_count = 0;
    const uint64_t stored = message->f1 < length ? message->f1 : length;
    if (stored != 0) memset(buffer, 0, stored);
    return message->f1;
}

int32_t vesk_drin_eid_st_decode_ext(vesk_drin_eid_st* message, const void* buffer, uint64_t length, vesk_alloc alloc,
                                    void* context, uint32_t flags) {
    (void)buffer, (void)alloc, (void)context, (void)flags;
    memset(message, 0, sizeof *message);
    message->f1 = (uint32_t)length;
    return VESK_OK;
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
