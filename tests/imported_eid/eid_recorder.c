#include "eid_recorder.h"

#include <stdlib.h>
#include <string.h>

static eid_record record;

eid_record* eid_recorder(void) { return &record; }

static void remember(eid_call call) {
    if (record.count == EID_RECORDER_ROOM) abort();
    record.calls[record.count++] = call;
}

uint64_t vesk_drin_eid_st_encode_ext(const vesk_drin_eid_st* message, void* buffer, uint64_t length,
                                     vesk_segment* segments, uint32_t* segment_count, uint32_t flags) {
    eid_call call = {.function = segment_count == NULL ? EID_MEASURE : EID_WRITE,
                     .message = message,
                     .buffer = buffer,
                     .length = length,
                     .segments = segments,
                     .capacity = segment_count == NULL ? 0 : *segment_count,
                     .flags = flags};
    remember(call);
    if (segment_count == NULL) return message->f1;
    const uint64_t written = message->f2 != 0 ? message->f2 : message->f1;
    if (buffer != NULL) memset(buffer, 0xE1, (size_t)(written < length ? written : length));
    *segment_count = message->f3;
    return written;
}

int32_t vesk_drin_eid_st_decode_ext(vesk_drin_eid_st* message, const void* buffer, uint64_t length, vesk_alloc alloc,
                                    void* context, uint32_t flags) {
    eid_call call = {.function = EID_DECODE,
                     .message = message,
                     .found = message->f1,
                     .buffer = buffer,
                     .length = length,
                     .alloc = alloc,
                     .context = context,
                     .flags = flags};
    remember(call);
    memset(message, 0, sizeof *message);
    message->f1 = (uint32_t)length;
    if (length < 4) return 0;
    const uint8_t* code = buffer;
    return (int32_t)((uint32_t)code[0] | (uint32_t)code[1] << 8 | (uint32_t)code[2] << 16 | (uint32_t)code[3] << 24);
}

int32_t vesk_drin_eid_st_duplicate(vesk_drin_eid_st* destination, const vesk_drin_eid_st* source, vesk_alloc alloc,
                                   void* context) {
    eid_call call = {
        .function = EID_DUPLICATE, .message = destination, .source = source, .alloc = alloc, .context = context};
    remember(call);
    *destination = *source;
    return (int32_t)source->f4;
}

void vesk_drin_eid_st_free_ext(vesk_drin_eid_st* message, vesk_release release, void* context, uint32_t flags) {
    eid_call call = {.function = EID_FREE, .message = message, .release = release, .context = context, .flags = flags};
    remember(call);
}
