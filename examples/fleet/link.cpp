#include "link.hpp"

#include <algorithm>
#include <fstream>
#include <random>
#include <vector>

namespace fleet {

namespace {

constexpr std::chrono::milliseconds shortest_pause{50}, longest_pause{2000};
constexpr int keep_alive = 10;  // seconds; a broker that is silent for longer is left

// The first link initialises the client library, the end of the program ends it.
void initialise_once() {
    struct Library {
        Library() { mosquitto_lib_init(); }
        ~Library() { mosquitto_lib_cleanup(); }
    };
    static const Library library;
}

}  // namespace

std::vector<Account> read_accounts(const std::string& file, const std::string& broker) {
    std::vector<Account> accounts;
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        std::size_t colon = line.find(':');
        if (colon == 0 || colon == line.npos) throw LinkError(file + ": a line is not NAME:PASSWORD");
        accounts.push_back({broker, line.substr(0, colon), line.substr(colon + 1)});
    }
    if (accounts.empty()) throw LinkError(file + ": cannot be read, or names nobody");
    return accounts;
}

Link::Link(Account account, std::string subscription, Receive receive)
    : account_(std::move(account)), subscription_(std::move(subscription)), receive_(std::move(receive)) {
    initialise_once();
    client_.reset(mosquitto_new(account_.name.c_str(), true, this));
    if (!client_) throw LinkError(account_.name + ": no memory for a client");
    mosquitto_username_pw_set(client_.get(), account_.name.c_str(), account_.password.c_str());
    mosquitto_int_option(client_.get(), MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_connect_callback_set(client_.get(), [](mosquitto* client, void* self, int refused) {
        if (refused == 0) mosquitto_subscribe(client, nullptr, static_cast<Link*>(self)->subscription_.c_str(), 0);
    });
    mosquitto_subscribe_callback_set(client_.get(), [](mosquitto*, void* self, int, int, const int*) {
        auto* link = static_cast<Link*>(self);
        link->ready_ = true;
        link->times_ready_ += 1;
        link->pause_ = {};
    });
    mosquitto_disconnect_callback_set(client_.get(),
                                      [](mosquitto*, void* self, int) { static_cast<Link*>(self)->ready_ = false; });
    mosquitto_message_callback_set(client_.get(), [](mosquitto*, void* self, const mosquitto_message* message) {
        static_cast<Link*>(self)->receive_(message->topic, {static_cast<const std::byte*>(message->payload),
                                                            static_cast<std::size_t>(message->payloadlen)});
    });
}

bool Link::publish(const std::string& topic, std::span<const std::byte> payload) {
    if (!ready_ || mosquitto_want_write(client_.get())) return false;
    return mosquitto_publish(client_.get(), nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(), 0,
                             false) == MOSQ_ERR_SUCCESS;
}

pollfd Link::what_to_poll() const {
    const int events = POLLIN | (mosquitto_want_write(client_.get()) ? POLLOUT : 0);
    return {mosquitto_socket(client_.get()), static_cast<short>(events), 0};
}

void Link::proceed(short events, Clock::time_point now) {
    if (mosquitto_socket(client_.get()) < 0) {
        ready_ = false;
        if (now >= connect_again_) connect(now);
        return;
    }
    // Each of them hangs up by itself if it fails.
    if ((events & POLLOUT) != 0) mosquitto_loop_write(client_.get(), 1);
    if ((events & ~POLLOUT) != 0) mosquitto_loop_read(client_.get(), 1);
    mosquitto_loop_misc(client_.get());
}

// The pause before the next try grows, and differs, so that a fleet does not come back all at once.
void Link::connect(Clock::time_point now) {
    static std::minstd_rand random{std::random_device{}()};
    pause_ = std::clamp(pause_ * 2, shortest_pause, longest_pause);
    connect_again_ = now + pause_ * std::uniform_int_distribution(50, 150)(random) / 100;
    const std::size_t colon = account_.broker.rfind(':');
    if (account_.broker.find('/') != std::string::npos || colon == std::string::npos) {
        mosquitto_connect(client_.get(), account_.broker.c_str(), 0, keep_alive);
    } else {
        mosquitto_connect(client_.get(), account_.broker.substr(0, colon).c_str(),
                          std::atoi(account_.broker.c_str() + colon + 1), keep_alive);
    }
}

}  // namespace fleet
