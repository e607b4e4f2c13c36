// One client's connection to the broker, which connects again by itself. It promises nothing: what must arrive is kept
// and answered by those who use it.
#pragma once

#include <mosquitto.h>
#include <poll.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <exception>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fleet {

using Clock = std::chrono::steady_clock;

// Who connects, and where. The name is the client's name for the broker as well.
struct Account {
    std::string broker;  // HOST:PORT, or the path of a Unix-domain socket
    std::string name;
    std::string password;
};

// What a file of lines NAME:PASSWORD says.
inline std::vector<Account> read_accounts(const std::string& file, const std::string& broker) {
    std::vector<Account> accounts;
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t colon = std::min(line.find(':'), line.size());
        accounts.push_back({broker, line.substr(0, colon), line.substr(std::min(colon + 1, line.size()))});
    }
    if (accounts.empty()) throw std::runtime_error(file + ": cannot be read, or names nobody");
    return accounts;
}

class Link {
public:
    using Receive = std::function<void(std::string_view topic, std::span<const std::byte> payload)>;

    Link(Account account, std::string subscription, Receive receive)
        : account_(std::move(account)), subscription_(std::move(subscription)), receive_(std::move(receive)) {
        [[maybe_unused]] static const int initialised = mosquitto_lib_init();
        find_broker();
        client_.reset(mosquitto_new(account_.name.c_str(), true, this));
        if (!client_) throw std::runtime_error(account_.name + ": no memory for a client");
        mosquitto_username_pw_set(client_.get(), account_.name.c_str(), account_.password.c_str());
        mosquitto_int_option(client_.get(), MOSQ_OPT_TCP_NODELAY, 1);
        mosquitto_connect_callback_set(client_.get(), [](mosquitto* client, void* self, int refused) {
            if (refused == 0) mosquitto_subscribe(client, nullptr, of(self).subscription_.c_str(), 0);
        });
        mosquitto_subscribe_callback_set(client_.get(), [](mosquitto*, void* self, int, int, const int*) {
            of(self).ready_ = true;
            of(self).times_ready_ += 1;
            of(self).pause_ = {};
        });
        mosquitto_disconnect_callback_set(client_.get(), [](mosquitto*, void* self, int) { of(self).ready_ = false; });
        mosquitto_message_callback_set(client_.get(), [](mosquitto*, void* self, const mosquitto_message* message) {
            const auto* payload = static_cast<const std::byte*>(message->payload);
            try {
                of(self).receive_(message->topic, {payload, static_cast<std::size_t>(message->payloadlen)});
            } catch (...) {
                of(self).failure_ = std::current_exception();  // not through the client library, which is in C
            }
        });
    }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    ~Link() = default;

    // Connected, and what is subscribed to arrives from now on.
    bool ready() const { return ready_; }
    // How often it became so.
    std::uint64_t times_ready() const { return times_ready_; }

    // Hands a message to the socket. False, and nothing is sent, if the link is not ready or the socket is full:
    // nothing piles up here.
    bool publish(const std::string& topic, std::span<const std::byte> payload) {
        if (!ready_ || mosquitto_want_write(client_.get())) return false;
        return mosquitto_publish(client_.get(), nullptr, topic.c_str(), static_cast<int>(payload.size()),
                                 payload.data(), 0, false) == MOSQ_ERR_SUCCESS;
    }

    pollfd what_to_poll() const {
        const int events = POLLIN | (mosquitto_want_write(client_.get()) ? POLLOUT : 0);
        return {mosquitto_socket(client_.get()), static_cast<short>(events), 0};
    }

    // Goes on with whatever is going on; messages come in here, and what their receiver throws comes out. To be called
    // often, also if nothing happened.
    void proceed(short events, Clock::time_point now) {
        if (mosquitto_socket(client_.get()) < 0) {
            ready_ = false;
            if (now >= connect_again_) connect(now);
            return;
        }
        // Each of them hangs up by itself if it fails.
        if ((events & POLLOUT) != 0) mosquitto_loop_write(client_.get(), 1);
        if ((events & ~POLLOUT) != 0) mosquitto_loop_read(client_.get(), 1);
        mosquitto_loop_misc(client_.get());
        if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
    }

private:
    static constexpr std::chrono::milliseconds shortest_pause{50}, longest_pause{2000};
    static constexpr int keep_alive = 10;  // seconds; a broker that is silent for longer is left

    struct Destroy {
        void operator()(mosquitto* client) const { mosquitto_destroy(client); }
    };

    static Link& of(void* self) { return *static_cast<Link*>(self); }

    // The pause before the next try grows, and differs, so that a fleet does not come back all at once.
    void connect(Clock::time_point now) {
        static std::minstd_rand random{std::random_device{}()};
        pause_ = std::clamp(pause_ * 2, shortest_pause, longest_pause);
        connect_again_ = now + pause_ * std::uniform_int_distribution(50, 150)(random) / 100;
        mosquitto_connect(client_.get(), host_.c_str(), port_, keep_alive);
    }

    void find_broker() {
        const std::string& broker = account_.broker;
        const std::size_t colon = broker.rfind(':');
        host_ = broker.substr(0, colon);
        if (colon == broker.npos || broker.find('/') != broker.npos) {
            host_ = broker;
        } else if (std::from_chars(broker.data() + colon + 1, broker.data() + broker.size(), port_).ec != std::errc()) {
            throw std::runtime_error(broker + ": neither HOST:PORT nor the path of a socket");
        }
    }

    Account account_;
    std::string host_;  // or, without a port, the path of a socket
    int port_ = 0;
    std::string subscription_;
    Receive receive_;
    std::unique_ptr<mosquitto, Destroy> client_;
    std::exception_ptr failure_;
    bool ready_ = false;
    std::uint64_t times_ready_ = 0;
    Clock::time_point connect_again_{};
    std::chrono::milliseconds pause_{};
};

}  // namespace fleet
