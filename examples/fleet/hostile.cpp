// A chassis that means harm: it has a name and a password of its own, and sends rubbish as fast as the broker takes it,
// until SIGTERM or SIGINT. At the end it says what it did, and whether it heard anything that was not for it.

#include <poll.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <random>
#include <string>
#include <vector>
#include <vesk/vesk.hpp>

#include "chassis.hpp"
#include "envelope.hpp"
#include "link.hpp"

namespace fleet {

namespace {

volatile sig_atomic_t stop_requested = 0;

void log(const std::string& line) { std::fprintf(stderr, "fleet_hostile: %s\n", line.c_str()); }

class Hostile {
public:
    Hostile(const Account& account, std::string victim, const Chassis& description)
        : name_(account.name),
          victim_(std::move(victim)),
          link_(account, "#", [this](auto topic, auto payload) { hear(topic, payload); }) {
        const vesk_resp_inv_data all = description.everything();
        const vesk::view view(all);
        honest_.resize(view.encoded_size());
        std::uint64_t length = 0;
        if (const std::error_code error = view.encode(honest_, length)) throw std::system_error(error);
    }

    void run() {
        constexpr std::array acts{
            &Hostile::noise,       &Hostile::noise_in_envelope, &Hostile::damaged,      &Hostile::greedy,
            &Hostile::deep,        &Hostile::as_somebody_else,  &Hostile::as_collector, &Hostile::elsewhere,
            &Hostile::out_of_turn, &Hostile::good_manners};
        while (!stop_requested) {
            pollfd poll = link_.what_to_poll();
            ::poll(&poll, 1, link_.ready() && (poll.events & POLLOUT) == 0 ? 0 : 10);
            link_.proceed(poll.revents, Clock::now());
            if (!link_.ready()) continue;
            if (sent_ % 2000 == 1999) {
                too_long();
            } else {
                (this->*acts[random_() % acts.size()])();
            }
        }
    }

    bool report() const {
        std::printf(
            "sent %llu messages over %llu connections, was answered %llu times, heard %llu messages of others\n",
            static_cast<unsigned long long>(sent_), static_cast<unsigned long long>(link_.times_ready()),
            static_cast<unsigned long long>(answers_), static_cast<unsigned long long>(heard_));
        return heard_ == 0;
    }

private:
    void hear(std::string_view topic, std::span<const std::byte> payload) {
        const auto answer = opened_answer(payload);
        if (topic != answer_topic(name_) || !answer) {
            heard_ += 1;
            return;
        }
        answers_ += 1;
        committed_ = *answer;
    }

    void send(const std::string& topic, const Bytes& bytes) { sent_ += link_.publish(topic, bytes); }
    void send(const Bytes& bytes) { send(up_topic(name_), bytes); }
    // In its own turn, so that the collector looks at the body.
    void send_next(Kind kind, const Bytes& body) {
        const std::uint64_t session = std::max(session_, committed_.session);
        const std::uint64_t next = committed_.session == session ? committed_.sequence + 1 : 1;
        send(sealed({kind, session, next, next, random_()}, body));
    }

    Bytes random_bytes(std::size_t most) {
        Bytes bytes(random_() % (most + 1));
        for (std::byte& byte : bytes) byte = static_cast<std::byte>(random_());
        return bytes;
    }
    static Bytes repeated(std::initializer_list<unsigned char> pattern, std::size_t length) {
        Bytes bytes;
        while (bytes.size() + pattern.size() <= length) {
            for (unsigned char byte : pattern) bytes.push_back(static_cast<std::byte>(byte));
        }
        return bytes;
    }
    static Bytes inside(unsigned char tag, const Bytes& body) {
        Bytes bytes{static_cast<std::byte>(tag)};
        for (std::size_t length = body.size();; length >>= 7) {
            bytes.push_back(static_cast<std::byte>(length < 128 ? length : length % 128 + 128));
            if (length < 128) break;
        }
        bytes.insert(bytes.end(), body.begin(), body.end());
        return bytes;
    }

    void noise() { send(random_bytes(2000)); }
    void noise_in_envelope() {
        send_next(random_() % 2 == 0 ? Kind::inventory : Kind::notification, random_bytes(200));
    }
    void damaged() {
        Bytes bytes = honest_;
        bytes[random_() % bytes.size()] ^= static_cast<std::byte>(1 + random_() % 255);
        if (random_() % 2 == 0) bytes.resize(random_() % bytes.size());
        send_next(Kind::inventory, bytes);
    }
    // Empty elements of a list: 1 MiB that asks for 284 MiB.
    void greedy() { send_next(Kind::inventory, repeated({0x3A, 0}, random_() % 50 == 0 ? inventory_limit : 4000)); }
    // An EID of very many elements in the head of a sensor, and the same again and again.
    void deep() {
        const Bytes sensor = inside(0x0A, inside(0x0A, repeated({0x32, 4, 8, 1, 16, 1}, 20000)));
        Bytes inventory = inside(0x32, sensor);
        const Bytes once_more = inventory;
        inventory.insert(inventory.end(), once_more.begin(), once_more.end());
        send_next(Kind::inventory, inventory);
    }
    // The broker lets none of these three through.
    void as_somebody_else() {
        send(up_topic(victim_), sealed({Kind::notification, INT64_MAX, 1, 1, 0}, random_bytes(100)));
    }
    void as_collector() { send(answer_topic(victim_), sealed(Answer{random_(), INT64_MAX})); }
    void elsewhere() { send(random_() % 2 == 0 ? "fleet/up" : up_topic(name_) + "/up", random_bytes(100)); }
    void out_of_turn() {
        const std::uint64_t sequence = random_() + std::uint64_t{1};
        send(sealed({Kind::notification, random_() % 2 == 0 ? session_ : random_(), sequence, random_(), random_()},
                    {}));
    }
    void too_long() { send(repeated({0x3A, 0}, 2 * inventory_limit)); }  // the broker ends the connection
    void good_manners() { send_next(Kind::inventory, honest_); }

    std::string name_, victim_;
    Bytes honest_;
    std::mt19937 random_{std::random_device{}()};
    std::uint64_t session_ = 1;
    Answer committed_{};
    std::uint64_t sent_ = 0, answers_ = 0, heard_ = 0;
    Link link_;
};

}  // namespace

}  // namespace fleet

int main(int count, char** arguments) {
    std::string broker, secrets, victim, chassis;
    CLI::App app("A chassis that sends rubbish.", "fleet_hostile");
    app.add_option("--broker", broker, "HOST:PORT of the broker, or its Unix-domain socket")->required();
    app.add_option("--secrets", secrets, "file with its line NAME:PASSWORD")->required()->type_name("FILE");
    app.add_option("--victim", victim, "chassis in whose name it tries to speak")->required()->type_name("NAME");
    app.add_option("--chassis", chassis, "description of a chassis, in JSON, to be damaged")
        ->required()
        ->type_name("FILE");
    try {
        app.parse(count, arguments);
        for (int number : {SIGTERM, SIGINT}) signal(number, [](int) { fleet::stop_requested = 1; });
        const Chassis description(chassis);
        fleet::Hostile hostile(fleet::read_accounts(secrets, broker).front(), victim, description);
        hostile.run();
        return hostile.report() ? 0 : 1;
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        fleet::log(error.what());
        return 2;
    } catch (const std::exception& error) {
        fleet::log(error.what());
        return 1;
    }
}
