// One client's connection to the broker, which connects again by itself. It promises nothing: what must arrive is kept
// and answered by those who use it.
#pragma once

#include <mosquitto.h>
#include <poll.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace fleet {

using Clock = std::chrono::steady_clock;

struct LinkError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Who connects, and where. The name is the client's name for the broker as well.
struct Account {
    std::string broker;  // HOST:PORT, or the path of a Unix-domain socket
    std::string name;
    std::string password;
};

// What a file of lines NAME:PASSWORD says. Throws LinkError.
std::vector<Account> read_accounts(const std::string& file, const std::string& broker);

class Link {
public:
    using Receive = std::function<void(std::string_view topic, std::span<const std::byte> payload)>;

    Link(Account account, std::string subscription, Receive receive);
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    ~Link() = default;

    // Connected, and what is subscribed to arrives from now on.
    bool ready() const { return ready_; }
    // How often it became so.
    std::uint64_t times_ready() const { return times_ready_; }

    // Hands a message to the socket. False, and nothing is sent, if the link is not ready or the socket is full:
    // nothing piles up here.
    bool publish(const std::string& topic, std::span<const std::byte> payload);

    pollfd what_to_poll() const;
    // Goes on with whatever is going on; messages come in here. To be called often, also if nothing happened.
    void proceed(short events, Clock::time_point now);

private:
    struct Destroy {
        void operator()(mosquitto* client) const { mosquitto_destroy(client); }
    };

    void connect(Clock::time_point now);

    Account account_;
    std::string subscription_;
    Receive receive_;
    std::unique_ptr<mosquitto, Destroy> client_;
    bool ready_ = false;
    std::uint64_t times_ready_ = 0;
    Clock::time_point connect_again_{};
    std::chrono::milliseconds pause_{};
};

}  // namespace fleet
