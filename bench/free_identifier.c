/* An entity identifier that costs next to nothing, with the bytes of any other: its structure points to its finished
 * encoding. Beside the stand-in it shows how much of a message's time goes into the identifier's calls.
 *
 *     element_list   the encoding, which is not copied and must live as long as the identifier
 *     f1             its length in bytes */
#include <string.h>
#include <vesk/drin_eid.h>

uint64_t vesk_drin_eid_st_encode_ext(const vesk_drin_eid_st* message, void* buffer, uint64_t length,
                                     vesk_segment* segments,
                                     /* NOLINTNEXTLINE(readability-non-const-parameter): the contract's */
                                     uint32_t* segment_count, uint32_t flags) {
    (void)segments, (void)segment_count, (void)flags; /* nobody who measures with it asks for a list */
    const uint64_t size = message->f1;
    if (length != 0 && size != 0) memcpy(buffer, message->element_list, size < length ? size : length);
    return size;
}

int32_t vesk_drin_eid_st_decode_ext(vesk_drin_eid_st* message, const void* buffer, uint64_t length, vesk_alloc alloc,
                                    void* context, uint32_t flags) {
    (void)alloc, (void)context, (void)flags;
    *message = (vesk_drin_eid_st){.f1 = (uint32_t)length, .element_list = (vesk_drin_eid_element*)buffer};
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
