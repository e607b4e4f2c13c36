/* The inventory client: asks a service for the inventory of a chassis and prints it. Written in C, and so an example of
 * the library's C interface: gather and send; receive, decode, use and free. */

#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <inttypes.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "deadline.h"
#include "eid_text.h"
#include "exchange.h"
#include "inventory_table.h"
#include "ledger.h"
#include "meanings.h"
#include "private_service.h"

enum { EXIT_USAGE = 2 };

/* One request is enough for one run; the answer must repeat its number. */
enum { SEQUENCE = 1 };

struct options {
    const char* socket_path;
    const char* json;
    const char* eid_text;  /* null: not by EID */
    const char* keep;      /* null: the answer's bytes are not kept */
    enum entity_kind type; /* KIND_ANY: not by type */
    double time_limit;     /* seconds */
    uint64_t memory_limit; /* bytes */
};

/* Something is wrong: one line. Returns false, so that a function can end with it. */
__attribute__((format(printf, 1, 2))) static bool complain(const char* format, ...) {
    va_list values;
    va_start(values, format);
    fputs("inventory_client: ", stderr);
    vfprintf(stderr, format, values);
    fputs("\n", stderr);
    va_end(values);
    return false;
}

/* ---- The connection ---- */

struct connection {
    int socket;
    int64_t deadline; /* for request and answer together */
};

/* What came back. */
struct reply {
    uint32_t kind;
    uint32_t length;
    uint8_t* body; /* owned; null if it is empty */
};

static bool wait_for_service(const struct connection* connection, short events) {
    if (deadline_wait(connection->socket, events, connection->deadline)) return true;
    return complain("the service did not answer within the time limit");
}

static bool connect_to(const char* path, double time_limit, struct connection* connection) {
    struct sockaddr_un address;
    if (!exchange_address(path, &address)) return complain("\"%s\": this cannot be the path of a socket", path);
    connection->deadline = deadline_in(time_limit);
    connection->socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connection->socket < 0) return complain("cannot make a socket: %s", strerror(errno));

    /* While the service's queue is full connect waits, for as long as sending may. */
    struct timeval limit = {(time_t)time_limit, (suseconds_t)((time_limit - (double)(time_t)time_limit) * 1e6)};
    setsockopt(connection->socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (connect(connection->socket, (const struct sockaddr*)&address, sizeof address) != 0) {
        const char* why = errno == EAGAIN ? "the service is too busy" : strerror(errno);
        close(connection->socket);
        return complain("no service at %s: %s", path, why);
    }
    fcntl(connection->socket, F_SETFL, O_NONBLOCK);
    return true;
}

static bool send_frame(const struct connection* connection, struct exchange_frame* frame) {
    while (exchange_send(connection->socket, frame) != 0) {
        if (errno == EPIPE) return true; /* the service hung up, but why may stand in a refusal that is there already */
        if (errno != EAGAIN) return complain("cannot send the request: %s", strerror(errno));
        if (!wait_for_service(connection, POLLOUT)) return false;
    }
    return true;
}

static bool send_request(const struct connection* connection, enum exchange_kind kind, const char* type,
                         const void* request) {
    struct exchange_frame frame;
    if (!exchange_frame_message(kind, vesk_type_named(type), request, &frame)) {
        return complain("no memory for the request");
    }
    bool sent = send_frame(connection, &frame);
    exchange_drop_frame(&frame);
    return sent;
}

static bool receive(const struct connection* connection, uint8_t* bytes, size_t length, const char* when) {
    size_t received = 0;
    while (received < length) {
        if (!wait_for_service(connection, POLLIN)) return false;
        ssize_t count = recv(connection->socket, bytes + received, length - received, 0);
        if (count > 0) {
            received += (size_t)count;
        } else if (count == 0 || errno == ECONNRESET) {
            return complain("the service went away %s", received > 0 ? "in the middle of its answer" : when);
        } else if (errno != EAGAIN && errno != EINTR) {
            return complain("cannot receive the answer: %s", strerror(errno));
        }
    }
    return true;
}

/* On success the caller frees the body. */
static bool receive_reply(const struct connection* connection, struct reply* reply) {
    uint8_t bytes[EXCHANGE_HEADER_LENGTH];
    struct exchange_header header;
    if (!receive(connection, bytes, sizeof bytes, "without an answer")) return false;
    const char* fault = exchange_read_header(bytes, &header);
    if (fault != NULL) return complain("what the service sends cannot be read: %s", fault);
    reply->kind = header.kind;
    reply->length = header.length;
    reply->body = header.length > 0 ? malloc(header.length) : NULL;
    if (header.length > 0 && reply->body == NULL) return complain("no memory for the answer");
    if (receive(connection, reply->body, header.length, "in the middle of its answer")) return true;
    free(reply->body);
    return false;
}

/* ---- The requests ---- */

static bool request_everything(const struct connection* connection) {
    vesk_req_inv_data request = {0};
    req_inv_data_set_sequence(&request, SEQUENCE);
    return send_request(connection, EXCHANGE_REQ_INV_DATA, "req_inv_data", &request);
}

static bool request_by_type(const struct connection* connection, enum entity_kind type) {
    vesk_req_inv_data_by_type request = {0};
    req_inv_data_by_type_set_sequence(&request, SEQUENCE);
    req_inv_data_by_type_set_kind(&request, type);
    return send_request(connection, EXCHANGE_REQ_INV_DATA_BY_TYPE, "req_inv_data_by_type", &request);
}

static bool request_by_eid(const struct connection* connection, const char* eid_text) {
    vesk_drin_eid_element elements[EID_ELEMENT_LIMIT];
    vesk_req_inv_data_by_eid request = {0};
    req_inv_data_by_eid_set_sequence(&request, SEQUENCE);
    eid_from_text(eid_text, &request.eid, elements);
    VESK_MARK(&request, VESK_REQ_INV_DATA_BY_EID_EID);
    return send_request(connection, EXCHANGE_REQ_INV_DATA_BY_EID, "req_inv_data_by_eid", &request);
}

static bool send_wanted_request(const struct connection* connection, const struct options* options) {
    if (options->eid_text != NULL) return request_by_eid(connection, options->eid_text);
    if (options->type != KIND_ANY) return request_by_type(connection, options->type);
    return request_everything(connection);
}

/* ---- The answers: decode, print, free ---- */

static bool check_decoded(int32_t result, uint32_t sequence, const struct ledger* ledger) {
    if (result == VESK_NO_MEMORY) {
        return complain("the answer cannot be used: %s of %" PRIu64 " bytes (code %" PRId32 ")",
                        exchange_result_words(result), ledger->limit, result);
    }
    if (result != VESK_OK) {
        return complain("the answer does not decode: %s (code %" PRId32 ")", exchange_result_words(result), result);
    }
    if (sequence != SEQUENCE) return complain("the answer is not to this request");
    return true;
}

static bool show_inventory(const struct reply* reply, uint64_t memory_limit) {
    struct ledger ledger = {.limit = memory_limit};
    vesk_resp_inv_data answer;
    int32_t result = vesk_resp_inv_data_decode_ext(&answer, reply->body, reply->length, ledger_allocate, &ledger, 0);
    bool good = check_decoded(result, resp_inv_data_sequence(&answer), &ledger);
    if (good) print_inventory(&answer);
    vesk_resp_inv_data_free_ext(&answer, ledger_release, &ledger, 0);
    ledger_release_all(&ledger);
    return good;
}

static bool explain_lookup_error(const vesk_eid_lookup_error_msg* error) {
    char text[EID_TEXT_SIZE];
    eid_to_text(&error->eid, text);
    uint32_t reason = eid_lookup_error_msg_reason(error);
    if (reason == LOOKUP_NO_SUCH_ENTITY) return complain("the chassis has no entity with the EID %s", text);
    return complain("the lookup of %s failed for the unknown reason %" PRIu32, text, reason);
}

static bool show_entity(const struct reply* reply, uint64_t memory_limit) {
    struct ledger ledger = {.limit = memory_limit};
    vesk_resp_inv_data_by_eid answer;
    int32_t result =
        vesk_resp_inv_data_by_eid_decode_ext(&answer, reply->body, reply->length, ledger_allocate, &ledger, 0);
    bool good = check_decoded(result, resp_inv_data_by_eid_sequence(&answer), &ledger);
    if (good && VESK_HAS(&answer, VESK_RESP_INV_DATA_BY_EID_LOOKUP_ERROR)) {
        good = explain_lookup_error(&answer.lookup_error);
    } else if (good && !print_entity(&answer)) {
        good = complain("the answer holds no entity");
    }
    vesk_resp_inv_data_by_eid_free_ext(&answer, ledger_release, &ledger, 0);
    ledger_release_all(&ledger);
    return good;
}

static bool show_refusal(const struct reply* reply) {
    char words[200];
    size_t length = reply->length < sizeof words ? reply->length : sizeof words - 1;
    for (size_t i = 0; i < length; ++i) {
        words[i] = (char)(reply->body[i] >= ' ' && reply->body[i] <= '~' ? reply->body[i] : '.');
    }
    words[length] = '\0';
    return complain("the service refuses the request: %s", words);
}

static bool show(const struct reply* reply, const struct options* options) {
    uint32_t wanted = options->eid_text != NULL ? EXCHANGE_RESP_INV_DATA_BY_EID : EXCHANGE_RESP_INV_DATA;
    if (reply->kind == EXCHANGE_REFUSAL) return show_refusal(reply);
    if (reply->kind != wanted)
        return complain("the service answers with the wrong kind of message (%" PRIu32 ")", reply->kind);
    if (options->eid_text != NULL) return show_entity(reply, options->memory_limit);
    return show_inventory(reply, options->memory_limit);
}

/* ---- One run ---- */

/* Writes the answer's message, without its header, to a file. */
static bool keep(const struct reply* reply, const char* path) {
    FILE* file = fopen(path, "wb");
    bool good = file != NULL && fwrite(reply->body, 1, reply->length, file) == reply->length;
    if (file != NULL && fclose(file) != 0) good = false;
    return good || complain("cannot keep the answer in %s: %s", path, strerror(errno));
}

static bool ask(const char* socket_path, const struct options* options) {
    struct connection connection = {.socket = -1};
    struct reply reply = {0};
    if (!connect_to(socket_path, options->time_limit, &connection)) return false;
    bool answered = send_wanted_request(&connection, options) && receive_reply(&connection, &reply);
    close(connection.socket);
    if (!answered) return false;
    bool good = show(&reply, options);
    if (good && options->keep != NULL) good = keep(&reply, options->keep);
    free(reply.body);
    return good;
}

static bool ask_about_file(const struct options* options) {
    struct private_service service;
    if (!private_service_start(&service, options->json, options->time_limit)) return false;
    bool good = ask(service.socket_path, options);
    private_service_stop(&service, options->time_limit);
    return good;
}

static void print_help(void) {
    printf(
        "Usage: inventory_client --socket PATH [OPTION...]\n"
        "       inventory_client --json FILE [OPTION...]\n"
        "Prints the inventory of a chassis: all of it, one kind of entity, or one entity.\n\n"
        "  --socket PATH          ask the service at this Unix-domain socket\n"
        "  --json FILE            ask about the chassis in this description, with a service of its own\n"
        "  --type KIND            only the entities of this kind\n"
        "  --eid EID              everything about one entity, such as 1/1/3/processor1/sensor2\n"
        "                         (rack/shelf/slot/kind+index, then the parts on the way to it)\n"
        "  --keep FILE            writes the bytes of the answer's message to this file, too\n"
        "  --time-limit SECONDS   for request and answer together; 5 if not given\n"
        "  --memory-limit BYTES   that the decoded answer may take; 8388608 if not given\n"
        "  --help                 this text\n\n"
        "Kinds:");
    for (uint32_t kind = 1; kind_name(kind) != NULL; ++kind) printf(" %s", kind_name(kind));
    printf("\n");
}

static bool read_seconds(const char* text, double* seconds) {
    char* end;
    *seconds = strtod(text, &end);
    if (end != text && *end == '\0' && *seconds >= 0.01 && *seconds <= 3600) return true;
    return complain("--time-limit takes seconds from 0.01 to 3600, not \"%s\"", text);
}

static bool read_bytes(const char* text, uint64_t* bytes) {
    char* end;
    errno = 0;
    *bytes = strtoull(text, &end, 10);
    if (*text >= '0' && *text <= '9' && *end == '\0' && errno == 0) return true;
    return complain("--memory-limit takes a number of bytes, not \"%s\"", text);
}

static bool read_type(const char* text, enum entity_kind* type) {
    *type = kind_named(text, strlen(text));
    if (*type != KIND_ANY) return true;
    return complain("there is no kind \"%s\"; --help lists them", text);
}

static bool read_eid(const char* text, const char** eid_text) {
    vesk_drin_eid_element elements[EID_ELEMENT_LIMIT];
    vesk_drin_eid_st eid;
    *eid_text = text;
    if (eid_from_text(text, &eid, elements) != KIND_ANY) return true;
    return complain("\"%s\" is not an EID, such as 1/1/3/port12", text);
}

static bool read_option(int letter, struct options* options) {
    switch (letter) {
        case 's': options->socket_path = optarg; return true;
        case 'j': options->json = optarg; return true;
        case 't': return read_type(optarg, &options->type);
        case 'e': return read_eid(optarg, &options->eid_text);
        case 'k': options->keep = optarg; return true;
        case 'l': return read_seconds(optarg, &options->time_limit);
        case 'm': return read_bytes(optarg, &options->memory_limit);
        default: return false; /* getopt_long has said what is wrong */
    }
}

static bool check_options(const struct options* options, bool arguments_left) {
    if (arguments_left) return complain("this takes only options; --help lists them");
    if ((options->socket_path == NULL) == (options->json == NULL)) {
        return complain("either --socket or --json must be given; --help says more");
    }
    if (options->type != KIND_ANY && options->eid_text != NULL) {
        return complain("--type and --eid cannot be given together");
    }
    return true;
}

int main(int count, char** arguments) {
    static const struct option known[] = {
        {"socket", required_argument, NULL, 's'},
        {"json", required_argument, NULL, 'j'},
        {"type", required_argument, NULL, 't'},
        {"eid", required_argument, NULL, 'e'},
        {"keep", required_argument, NULL, 'k'},
        {"time-limit", required_argument, NULL, 'l'},
        {"memory-limit", required_argument, NULL, 'm'},
        {"help", no_argument, NULL, 'h'},
        {NULL, 0, NULL, 0},
    };
    struct options options = {.time_limit = 5, .memory_limit = UINT64_C(8) * 1024 * 1024};
    int letter;
    while ((letter = getopt_long(count, arguments, "", known, NULL)) != -1) {
        if (letter == 'h') {
            print_help();
            return EXIT_SUCCESS;
        }
        if (!read_option(letter, &options)) return EXIT_USAGE;
    }
    if (!check_options(&options, optind < count)) return EXIT_USAGE;

    bool good = options.json != NULL ? ask_about_file(&options) : ask(options.socket_path, &options);
    if (fflush(stdout) != 0) good = complain("cannot write the inventory: %s", strerror(errno));
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
