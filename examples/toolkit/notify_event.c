/* A client registers for the events of an entity, the service notifies it of one with the reading of a sensor, and the
 * client acknowledges it. One datagram each; whose turn it is says of what type. Memory is an arena over a buffer each.
 */
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <vesk/client_service.h>
#include <vesk/vesk_toolkit.h>

/* A side of the exchange. What it decoded last is good until it decodes the next message. */
typedef struct {
    int socket;
    vesk_arena arena;
    uint64_t memory[256];
    uint8_t bytes[512];
} side;

static uint64_t receive(side* self) {
    vesk_arena_reset(&self->arena);
    const ssize_t length = recv(self->socket, self->bytes, sizeof self->bytes, 0);
    return length > 0 ? (uint64_t)length : 0; /* no bytes are a message without fields */
}

static int transmit(side* self, uint64_t length) { /* the length is encode's, and may be more than there is room for */
    return length <= sizeof self->bytes && send(self->socket, self->bytes, (size_t)length, MSG_NOSIGNAL) >= 0;
}

#define SEND(T, self, message) transmit(self, T##_encode_ext(message, (self)->bytes, 512, NULL, NULL, 0))
#define RECEIVE(T, self, message) \
    (T##_decode_ext(message, (self)->bytes, receive(self), vesk_arena_alloc, &(self)->arena, 0) == VESK_OK)

int main(void) {
    static side client, service;
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) != 0) return EXIT_FAILURE;
    client.socket = ends[0];
    service.socket = ends[1];
    vesk_arena_of_buffer(&client.arena, client.memory, sizeof client.memory);
    vesk_arena_of_buffer(&service.arena, service.memory, sizeof service.memory);

    vesk_register_eid_event_data wish = {0}, known; /* of the client: entity 3, and its number for the registration */
    wish.eid.f1 = 3;
    wish.f2 = 77;
    VESK_MARK(&wish.eid, VESK_DRIN_EID_ST_F1); /* what nests a present field need not be marked */
    VESK_MARK(&wish, VESK_REGISTER_EID_EVENT_DATA_F2);
    if (!SEND(vesk_register_eid_event_data, &client, &wish)) return EXIT_FAILURE;
    if (!RECEIVE(vesk_register_eid_event_data, &service, &known)) return EXIT_FAILURE;

    vesk_notify_event_data event = {0}, told; /* of the service; the identifier is borrowed from the registration */
    event.eid = known.eid;
    event.f2 = known.f2;
    event.sensor.f4 = 91;
    VESK_MARK(&event, VESK_NOTIFY_EVENT_DATA_F2);
    VESK_MARK(&event.sensor, VESK_SENSOR_DATA_F4);
    if (!SEND(vesk_notify_event_data, &service, &event)) return EXIT_FAILURE;
    if (!RECEIVE(vesk_notify_event_data, &client, &told)) return EXIT_FAILURE;
    printf("event of registration %u: entity %u, sensor at %u\n", told.f2, told.eid.f1, told.sensor.f4);

    vesk_inv_event_ack ack = {.f1 = told.f2}, acknowledged;
    VESK_MARK(&ack, VESK_INV_EVENT_ACK_F1);
    if (!SEND(vesk_inv_event_ack, &client, &ack)) return EXIT_FAILURE;
    if (!RECEIVE(vesk_inv_event_ack, &service, &acknowledged)) return EXIT_FAILURE;
    printf("acknowledged: %u\n", acknowledged.f1);
    return EXIT_SUCCESS;
}
