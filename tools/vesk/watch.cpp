// `vesk watch`: what changes in the chassis that an exchange service tells of.
#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <map>
#include <memory>
#include <tuple>

#include "examples/inventory_exchange/eid_text.h"
#include "examples/inventory_exchange/exchange.h"
#include "examples/inventory_exchange/meanings.h"
#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/pre_flight.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/types.hpp"
#include "tools/vesk/values.hpp"

namespace vesk::tool {
namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t sequence = 1;
constexpr std::chrono::seconds time_limit{5};  // for a connection, its requests and answers

// ---- Waiting ----

struct Interrupted {};

// Ctrl-C and SIGTERM, as something to wait for.
class Interruption {
public:
    Interruption() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        sigprocmask(SIG_BLOCK, &signals, nullptr);
        file_ = signalfd(-1, &signals, SFD_CLOEXEC);
        if (file_ < 0) throw Failure("signals: " + because(errno));
    }
    ~Interruption() { close(file_); }
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    // Until the file descriptor is ready, or with -1 for the whole time; false if the time is over first. Throws
    // Interrupted.
    bool wait(int other, short events, Clock::time_point until) const {
        while (true) {
            pollfd files[] = {{file_, POLLIN, 0}, {other, events, 0}};
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
            const int ready = poll(files, 2, static_cast<int>(std::clamp<std::int64_t>(left, 0, 1 << 30)));
            if (files[0].revents != 0 && ready > 0) throw Interrupted();
            if (ready > 0) return true;
            if (ready == 0 && left <= 0) return false;
            if (ready < 0 && errno != EINTR) throw Failure("poll: " + because(errno));
        }
    }

private:
    int file_;
};

// ---- One question ----

class Service {
public:
    Service(const std::string& path, const Interruption& interruption)
        : name_(quote_name(path)), interruption_(interruption), deadline_(Clock::now() + time_limit) {
        sockaddr_un address;
        if (!exchange_address(path.c_str(), &address))
            throw Failure(quote(path) + ": this cannot be the path of a socket");
        socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (socket_ < 0) throw Failure("a socket: " + because(errno));
        // Nothing tells when a service's queue has room again.
        while (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            const int why = errno;
            if (why == EAGAIN && Clock::now() < deadline_) {
                interruption_.wait(-1, 0, Clock::now() + std::chrono::milliseconds(20));
                continue;
            }
            close(socket_);
            throw Failure("no service at " + name_ + ": " + (why == EAGAIN ? "it is too busy" : because(why)));
        }
    }
    ~Service() { close(socket_); }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // The body of its answer to a request.
    Bytes ask(exchange_kind kind, const char* type, const void* request) {
        send(kind, type, request);
        std::uint8_t bytes[EXCHANGE_HEADER_LENGTH];
        receive(bytes, sizeof bytes, "without an answer");
        exchange_header header;
        if (const char* const fault = exchange_read_header(bytes, &header)) fail(fault);
        Bytes body(header.length);
        receive(body.data(), body.size(), "in the middle of its answer");
        if (header.kind == EXCHANGE_REFUSAL) {
            fail("refuses: " + quote({reinterpret_cast<const char*>(body.data()), body.size()}, 200));
        }
        if (header.kind != EXCHANGE_RESP_INV_DATA) fail("answers with a frame of kind " + std::to_string(header.kind));
        return body;
    }

    [[noreturn]] void fail(const std::string& what) const { throw Failure("the service at " + name_ + ": " + what); }

private:
    void send(exchange_kind kind, const char* type, const void* request) {
        exchange_frame built;
        if (!exchange_frame_message(kind, vesk_type_named(type), request, &built)) throw std::bad_alloc();
        const std::unique_ptr<exchange_frame, void (*)(exchange_frame*)> frame(&built, exchange_drop_frame);
        while (exchange_send(socket_, frame.get()) != 0) {
            if (errno == EPIPE) return;  // why it hung up may stand in a refusal that is there already
            if (errno != EAGAIN) fail("takes no request: " + because(errno));
            wait(POLLOUT);
        }
    }

    void receive(std::uint8_t* bytes, std::size_t length, const char* when) {
        for (std::size_t received = 0; received < length;) {
            wait(POLLIN);
            const ssize_t count = recv(socket_, bytes + received, length - received, 0);
            if (count > 0) {
                received += static_cast<std::size_t>(count);
            } else if (count == 0 || errno == ECONNRESET) {
                fail(std::string("went away ") + (received > 0 ? "in the middle of its answer" : when));
            } else if (errno != EAGAIN && errno != EINTR) {
                fail("cannot be heard: " + because(errno));
            }
        }
    }

    void wait(short events) const {
        if (!interruption_.wait(socket_, events, deadline_)) {
            fail("does not answer within " + std::to_string(time_limit.count()) + " s");
        }
    }

    std::string name_;
    const Interruption& interruption_;
    Clock::time_point deadline_;
    int socket_;
};

// ---- What it answers ----

// The entities of a chassis by kind and identifier, and the messages in which they stand.
struct Entities {
    struct Key {
        std::uint32_t kind;
        std::string eid;
        bool operator<(const Key& other) const { return std::tie(kind, eid) < std::tie(other.kind, other.eid); }
    };
    std::map<Key, const void*> records;
    std::vector<std::unique_ptr<Message>> answers;
};

const char* type_of(std::uint32_t kind) {
    static constexpr const char* types[] = {
        nullptr,
#define KIND(code, name, NAME, record) &#record[sizeof "vesk_" - 1],
#include "examples/inventory_exchange/meanings.def"
    };
    return types[kind];
}

void add_list(std::uint32_t kind, const void* list, std::uint32_t count, std::size_t size, Entities* entities) {
    for (std::uint32_t i = 0; i < count; ++i) {
        const void* const record = static_cast<const std::uint8_t*>(list) + i * size;
        char text[EID_TEXT_SIZE];
        eid_to_text(&static_cast<const any_record*>(record)->entity_common.eid, text);
        // Two of one identifier are told apart by their order, so that none is lost.
        std::string eid = text;
        for (unsigned more = 2; entities->records.contains({kind, eid}); ++more) {
            eid = text + std::string(" (") + std::to_string(more) + ")";
        }
        entities->records[{kind, eid}] = record;
    }
}

void add_answer(const Service& service, const Bytes& body, Entities* entities) {
    const vesk_type* const type = vesk_type_named("resp_inv_data");
    auto answer = std::make_unique<Message>(type);
    vesk_arena_limit(answer->arena(), vesk_arena_limit_for(body.size()), UINT64_MAX);
    const std::int32_t code = answer->decode(body.data(), body.size());
    if (code == VESK_NO_MEMORY) service.fail("its answer asks for more memory than its length warrants");
    if (code != VESK_OK) service.fail("its answer does not decode: " + verdict(check(type, body.data(), body.size())));
    const auto* const message = static_cast<const vesk_resp_inv_data*>(answer->get());
    if (resp_inv_data_sequence(message) != sequence) service.fail("its answer is not to this request");
#define KIND(code, name, NAME, record) \
    add_list(KIND_##NAME, message->name##_list, message->name##_list_count, sizeof(record), entities);
#include "examples/inventory_exchange/meanings.def"
    entities->answers.push_back(std::move(answer));
}

Entities ask(const Request& request, const std::vector<std::uint32_t>& kinds, const Interruption& interruption) {
    Service service(request.socket, interruption);
    Entities entities;
    if (kinds.empty()) {
        vesk_req_inv_data everything{};
        req_inv_data_set_sequence(&everything, sequence);
        add_answer(service, service.ask(EXCHANGE_REQ_INV_DATA, "req_inv_data", &everything), &entities);
    }
    for (const std::uint32_t kind : kinds) {
        vesk_req_inv_data_by_type by_type{};
        req_inv_data_by_type_set_sequence(&by_type, sequence);
        req_inv_data_by_type_set_kind(&by_type, kind);
        add_answer(service, service.ask(EXCHANGE_REQ_INV_DATA_BY_TYPE, "req_inv_data_by_type", &by_type), &entities);
    }
    return entities;
}

// ---- What has changed ----

struct Line {
    Output* output;
    std::string entity;
};

void show_changes(const Entities::Key& key, const void* before, const void* now, Output* output) {
    Line line{output, std::string(::kind_name(key.kind)) + " " + key.eid + ": "};
    if (before == nullptr || now == nullptr) {
        output->write(line.entity + (before == nullptr ? "absent | a message\n" : "a message | absent\n"));
        return;
    }
    vesk_diff(
        vesk_type_named(type_of(key.kind)), before, now,
        [](const char* path, const vesk_value* left, const vesk_value* right, void* context) {
            const auto* const to = static_cast<const Line*>(context);
            const std::string text = to->entity + difference_in_words(*to->output, path, left, right);
            return Output::write_to(text.data(), text.size(), to->output);
        },
        &line, nullptr, nullptr);
    output->rethrow();
}

void show_changes(const Entities& before, const Entities& now, Output* output) {
    const auto find = [](const Entities& in, const Entities::Key& key) {
        const auto found = in.records.find(key);
        return found != in.records.end() ? found->second : nullptr;
    };
    std::map<Entities::Key, const void*> all = before.records;
    all.insert(now.records.begin(), now.records.end());
    for (const auto& [key, record] : all) show_changes(key, find(before, key), find(now, key), output);
}

std::vector<std::uint32_t> find_kinds(const std::vector<std::string>& names) {
    std::vector<std::string> known;
    for (std::uint32_t kind = 1; ::kind_name(kind) != nullptr; ++kind) known.emplace_back(::kind_name(kind));
    std::vector<std::uint32_t> kinds;
    for (const std::string& name : names) {
        const std::uint32_t kind = kind_named(name.c_str(), name.size());
        if (kind == KIND_ANY) {
            throw Failure("no kind is called " + quote(name) + "; the nearest is " + nearest(name, known));
        }
        if (std::ranges::find(kinds, kind) == kinds.end()) kinds.push_back(kind);
    }
    return kinds;
}

}  // namespace

int watch_service(const Request& request) {
    constexpr double most = 86400;
    if (!(request.interval >= 0.01 && request.interval <= most)) {  // which is true of what is no number, too
        throw Failure("--interval takes seconds from 0.01 to 86400", status_usage);
    }
    const std::vector<std::uint32_t> kinds = find_kinds(request.kinds);
    const auto interval = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(request.interval));
    const Interruption interruption;
    Output output;
    try {
        Clock::time_point next = Clock::now() + interval;
        Entities before = ask(request, kinds, interruption);
        output.write(std::to_string(before.records.size()) +
                     (before.records.size() == 1 ? " entity\n" : " entities\n"));
        while (true) {
            output.close();  // what is held is written; the next round writes again
            interruption.wait(-1, 0, next);
            next = std::max(next + interval, Clock::now());
            Entities now = ask(request, kinds, interruption);
            show_changes(before, now, &output);
            before = std::move(now);
        }
    } catch (const Interrupted&) {
        output.close();
        return status_ok;
    }
}

}  // namespace vesk::tool
