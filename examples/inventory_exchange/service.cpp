// The inventory service: answers requests about one chassis over a Unix-domain socket until SIGTERM or SIGINT.
//
// One thread and a poll loop. Sockets never block and every client has a deadline for each request and each answer, so
// that none of them, slow, silent or hostile, can hold up the others or the service.

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>
#include <vesk/vesk.hpp>

#include "chassis.hpp"
#include "exchange.h"
#include "listening_socket.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t client_limit = 64;  // further clients wait until one of these is done
constexpr std::chrono::milliseconds accept_pause{100};

void log(const std::string& line) { std::fprintf(stderr, "inventory_service: %s\n", line.c_str()); }

// ---- Requests and answers ----

// What is wrong with a request, in words for the client that sent it.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The memory that a request may take, which is dropped as a whole: nothing is lost when a hostile request repeats a
// nested message and decode overwrites the earlier one.
class RequestMemory {
public:
    RequestMemory() { vesk_arena_of_buffer(&arena_, block_.data(), block_.size()); }
    ~RequestMemory() { vesk_arena_close(&arena_); }
    RequestMemory(const RequestMemory&) = delete;
    RequestMemory& operator=(const RequestMemory&) = delete;
    vesk::memory get() { return vesk::memory_of(arena_); }

private:
    std::array<std::uint8_t, std::size_t{64} * 1024> block_;
    vesk_arena arena_;
};

template <vesk::message_structure Structure>
class Request {
public:
    explicit Request(const Bytes& body) {
        const std::error_code error = message_.decode(std::as_bytes(std::span(body)));
        if (error) throw Refusal(std::string("the request does not decode: ") + exchange_result_words(error.value()));
    }
    const Structure* get() const { return &message_.c(); }

private:
    RequestMemory memory_;
    vesk::message<Structure> message_{memory_.get()};
};

// A frame on its way out, which drops itself.
class OutgoingFrame {
public:
    OutgoingFrame(exchange_kind kind, const char* type, const void* answer) {
        if (!exchange_frame_message(kind, vesk_type_named(type), answer, &frame_)) throw std::bad_alloc();
    }
    explicit OutgoingFrame(const std::string& refusal) {
        if (!exchange_frame_refusal(refusal.c_str(), &frame_)) throw std::bad_alloc();
    }

    OutgoingFrame(const OutgoingFrame&) = delete;
    OutgoingFrame& operator=(const OutgoingFrame&) = delete;
    OutgoingFrame(OutgoingFrame&& other) noexcept : frame_(std::exchange(other.frame_, {})) {}
    OutgoingFrame& operator=(OutgoingFrame&& other) noexcept {
        std::swap(frame_, other.frame_);
        return *this;
    }
    ~OutgoingFrame() { exchange_drop_frame(&frame_); }

    exchange_frame* frame() { return &frame_; }

private:
    exchange_frame frame_;
};

OutgoingFrame frame_list(vesk_resp_inv_data answer, std::uint32_t sequence) {
    resp_inv_data_set_sequence(&answer, sequence);
    return {EXCHANGE_RESP_INV_DATA, "resp_inv_data", &answer};
}

OutgoingFrame answer_everything(const Chassis& chassis, const Bytes& body) {
    const Request<vesk_req_inv_data> request(body);
    return frame_list(chassis.everything(), req_inv_data_sequence(request.get()));
}

OutgoingFrame answer_by_type(const Chassis& chassis, const Bytes& body) {
    const Request<vesk_req_inv_data_by_type> request(body);
    std::uint32_t kind = req_inv_data_by_type_kind(request.get());
    if (kind_name(kind) == nullptr) throw Refusal("there is no kind of entity with the code " + std::to_string(kind));
    return frame_list(chassis.all_of(static_cast<entity_kind>(kind)), req_inv_data_by_type_sequence(request.get()));
}

OutgoingFrame answer_by_eid(const Chassis& chassis, const Bytes& body) {
    const Request<vesk_req_inv_data_by_eid> request(body);
    auto answer = chassis.find(request.get()->eid);
    resp_inv_data_by_eid_set_sequence(&answer, req_inv_data_by_eid_sequence(request.get()));
    return {EXCHANGE_RESP_INV_DATA_BY_EID, "resp_inv_data_by_eid", &answer};
}

using Answerer = OutgoingFrame (*)(const Chassis&, const Bytes&);

// Who answers requests of a kind; null for a kind that is no request.
Answerer answerer(std::uint32_t kind) {
    switch (kind) {
        case EXCHANGE_REQ_INV_DATA: return answer_everything;
        case EXCHANGE_REQ_INV_DATA_BY_TYPE: return answer_by_type;
        case EXCHANGE_REQ_INV_DATA_BY_EID: return answer_by_eid;
        default: return nullptr;
    }
}

// A chassis that does not fit into one frame could be loaded but never be told.
void check_size(const Chassis& chassis, const std::string& path) {
    auto everything = chassis.everything();
    resp_inv_data_set_sequence(&everything, UINT32_MAX);
    const std::uint64_t length = vesk::view(everything).encoded_size();
    if (length > EXCHANGE_BODY_LIMIT) {
        throw ChassisError(path + ": the chassis takes " + std::to_string(length) + " bytes, and a frame holds " +
                           std::to_string(EXCHANGE_BODY_LIMIT));
    }
}

// ---- One client ----

class Connection {
public:
    Connection(FileDescriptor socket, unsigned number, const Chassis& chassis, std::chrono::milliseconds limit)
        : socket_(std::move(socket)), number_(number), chassis_(&chassis), limit_(limit) {
        await_request();
    }

    pollfd what_to_poll() const { return {socket_.get(), static_cast<short>(answer_ ? POLLOUT : POLLIN), 0}; }
    Clock::time_point deadline() const { return deadline_; }
    bool finished() const { return finished_; }

    // The socket is ready: goes on with whatever is going on.
    void proceed() {
        if (answer_) {
            send_answer();
        } else {
            receive_request();
        }
    }

    void check_deadline(Clock::time_point now) {
        if (finished_ || now < deadline_) return;
        if (answer_) {
            note("does not take its answer; hung up");
            finished_ = true;
        } else if (received_.empty()) {
            finished_ = true;  // nothing was begun, so there is nothing to complain about
        } else {
            refuse("the frame was not complete within the time limit");
        }
    }

private:
    void note(const std::string& what) const { log("client " + std::to_string(number_) + ": " + what); }

    void await_request() {
        received_.clear();
        answer_.reset();
        deadline_ = Clock::now() + limit_;
    }

    bool has_header() const { return received_.size() >= EXCHANGE_HEADER_LENGTH; }

    // How far the frame goes, as far as is known.
    std::size_t frame_length() const { return EXCHANGE_HEADER_LENGTH + (has_header() ? header_.length : 0); }

    // Takes what is there, but nothing beyond the frame: the next one waits in the socket until this one is answered.
    void receive_request() {
        std::array<std::uint8_t, 16384> chunk;
        std::size_t wanted = std::min(frame_length() - received_.size(), chunk.size());
        ssize_t count = recv(socket_.get(), chunk.data(), wanted, 0);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (count <= 0) {
            if (!received_.empty()) note("went away in the middle of a frame");
            finished_ = true;
            return;
        }
        bool had_header = has_header();
        received_.insert(received_.end(), chunk.begin(), chunk.begin() + count);
        try {
            if (!had_header && has_header()) judge_header();
            if (has_header() && received_.size() == frame_length()) answer_request();
        } catch (const Refusal& refusal) {
            refuse(refusal.what());
        }
    }

    // The header alone is enough to refuse a frame: its body is then never received.
    void judge_header() {
        const char* fault = exchange_read_header(received_.data(), &header_);
        if (fault != nullptr) throw Refusal(fault);
        if (!answerer(header_.kind)) throw Refusal("unknown message kind " + std::to_string(header_.kind));
    }

    void answer_request() {
        Bytes body(received_.begin() + EXCHANGE_HEADER_LENGTH, received_.end());
        start(answerer(header_.kind)(*chassis_, body));
    }

    void refuse(const std::string& words) {
        note("refused: " + words);
        hang_up_after_answer_ = true;
        start(OutgoingFrame(words));
    }

    void start(OutgoingFrame answer) {
        answer_ = std::move(answer);
        deadline_ = Clock::now() + limit_;
        send_answer();
    }

    void send_answer() {
        if (exchange_send(socket_.get(), answer_->frame()) != 0) {
            if (errno == EAGAIN) return;
            note(std::string("went away before its answer: ") + std::strerror(errno));
            finished_ = true;
        } else {
            finished_ = hang_up_after_answer_;
            await_request();
        }
    }

    FileDescriptor socket_;
    unsigned number_;
    const Chassis* chassis_;
    std::chrono::milliseconds limit_;
    Clock::time_point deadline_;
    Bytes received_;                       // of the frame that is coming in
    exchange_header header_{};             // once it is there
    std::optional<OutgoingFrame> answer_;  // while it is going out
    bool hang_up_after_answer_ = false;
    bool finished_ = false;
};

// ---- All clients ----

volatile sig_atomic_t stop_requested = 0;

void request_stop(int) { stop_requested = 1; }

// The signals that end the service arrive only while it waits, so none is missed between a look at the flag and the
// wait. Returns the mask to wait with.
sigset_t catch_stop_signals() {
    signal(SIGPIPE, SIG_IGN);  // also for the log, when nobody reads it any more
    sigset_t stops, before;
    sigemptyset(&stops);
    struct sigaction action {};
    action.sa_handler = request_stop;
    for (int number : {SIGTERM, SIGINT}) {
        sigaddset(&stops, number);
        sigaction(number, &action, nullptr);
    }
    sigprocmask(SIG_BLOCK, &stops, &before);
    sigdelset(&before, SIGTERM);
    sigdelset(&before, SIGINT);
    return before;
}

class Service {
public:
    Service(const ListeningSocket& listener, const Chassis& chassis, std::chrono::milliseconds limit,
            const sigset_t& mask)
        : listener_(listener), chassis_(chassis), limit_(limit), mask_(mask) {}

    void run() {
        while (!stop_requested) {
            std::vector<pollfd> polls = wait();
            for (std::size_t i = 0; i < connections_.size(); ++i) {
                if (polls[i].revents != 0) connections_[i].proceed();
                connections_[i].check_deadline(Clock::now());
            }
            std::erase_if(connections_, [](const Connection& connection) { return connection.finished(); });
            if (polls.back().revents != 0) accept_client();
        }
    }

private:
    bool accepting() const { return connections_.size() < client_limit && Clock::now() >= accept_again_; }

    // When something must be done even if no socket gets ready.
    Clock::time_point next_event() const {
        auto event = Clock::now() + std::chrono::hours(1);
        for (const Connection& connection : connections_) event = std::min(event, connection.deadline());
        if (accept_again_ > Clock::now()) event = std::min(event, accept_again_);
        return event;
    }

    // Waits for a socket, a deadline or a signal. The connections come in their order, the listening socket last.
    std::vector<pollfd> wait() const {
        std::vector<pollfd> polls;
        for (const Connection& connection : connections_) polls.push_back(connection.what_to_poll());
        polls.push_back({accepting() ? listener_.get() : -1, POLLIN, 0});
        auto left = std::max(next_event() - Clock::now(), Clock::duration::zero());
        auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        timespec timeout{seconds.count(), std::chrono::nanoseconds(left - seconds).count()};
        if (ppoll(polls.data(), polls.size(), &timeout, &mask_) < 0) {
            for (pollfd& poll : polls) poll.revents = 0;
        }
        return polls;
    }

    void accept_client() {
        FileDescriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (socket.get() >= 0) {
            connections_.emplace_back(std::move(socket), ++clients_, chassis_, limit_);
        } else if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
            // Such as too many open files: the client stays in the queue, so without a pause this would spin.
            log(std::string("cannot accept a client: ") + std::strerror(errno));
            accept_again_ = Clock::now() + accept_pause;
        }
    }

    const ListeningSocket& listener_;
    const Chassis& chassis_;
    std::chrono::milliseconds limit_;
    sigset_t mask_;
    std::vector<Connection> connections_;
    unsigned clients_ = 0;
    Clock::time_point accept_again_{};
};

struct Options {
    std::string socket;
    std::string chassis;
    double time_limit = 5;  // seconds
};

void serve(const Options& options) {
    sigset_t mask = catch_stop_signals();
    Chassis chassis(options.chassis);
    check_size(chassis, options.chassis);
    ListeningSocket listener(options.socket);

    // Whoever started the service may wait for this line.
    std::printf("serving %zu entities at %s\n", chassis.entity_count(), options.socket.c_str());
    std::fflush(stdout);
    std::chrono::milliseconds limit(static_cast<std::int64_t>(options.time_limit * 1000));
    Service(listener, chassis, limit, mask).run();
}

}  // namespace

int main(int count, char** arguments) {
    Options options;
    CLI::App app("Serves the inventory of a chassis until SIGTERM or SIGINT.", "inventory_service");
    app.add_option("--socket", options.socket, "Unix-domain socket to serve at")->required()->type_name("PATH");
    app.add_option("--chassis", options.chassis, "description of the chassis, in JSON")->required()->type_name("FILE");
    app.add_option("--time-limit", options.time_limit, "time for a client to send a request or to take an answer")
        ->check(CLI::Range(0.01, 3600.0))
        ->type_name("SECONDS")
        ->capture_default_str();
    try {
        app.parse(count, arguments);
        serve(options);
        return 0;
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        log(error.what());
        return 2;
    } catch (const std::exception& error) {
        log(error.what());
        return 1;
    }
}
