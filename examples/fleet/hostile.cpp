// A chassis that means harm: it has a name and a password of its own, and sends rubbish as fast as the broker takes it,
// until SIGTERM or SIGINT. At the end it says what it did, and whether it heard anything that was not for it.

#include <poll.h>

#include <array>
#include <cstdio>
#include <random>
#include <string>
#include <vector>
#include <vesk/vesk.hpp>

#include "chassis.hpp"
#include "envelope.hpp"
#include "link.hpp"
#include "program.hpp"

namespace fleet {

namespace {

class Hostile {
public:
    Hostile(const Account& account, std::string victim, const Chassis& description)
        : name_(account.name),
          victim_(std::move(victim)),
          link_(account, "#", [this](auto topic, auto payload) { hear(topic, payload); }) {
        honest_ = encoded(description.everything());
        // An EID of very many elements, and all of it twice.
        std::vector<vesk_drin_eid_element> elements(5000);
        vesk_sensor_data sensor{};
        sensor.entity_common.eid.element_list = elements.data();
        sensor.entity_common.eid.element_list_count = 5000;
        VESK_MARK(&sensor.entity_common.eid, VESK_DRIN_EID_ST_ELEMENT_LIST);
        vesk_resp_inv_data inventory{};
        inventory.sensor_list = &sensor;
        inventory.sensor_list_count = 1;
        VESK_MARK(&inventory, VESK_RESP_INV_DATA_SENSOR_LIST);
        deep_ = encoded(inventory);
        deep_.insert(deep_.end(), deep_.begin(), deep_.end());
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
    // Empty elements of a list: each two bytes ask for 568.
    static Bytes elements(std::size_t length) {
        Bytes bytes(length, std::byte{0});
        for (std::size_t i = 0; i < length; i += 2) bytes[i] = std::byte{0x3A};
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
    void greedy() { send_next(Kind::inventory, elements(random_() % 50 == 0 ? inventory_limit : 4000)); }
    void deep() { send_next(Kind::inventory, deep_); }
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
    void too_long() { send(elements(2 * inventory_limit)); }  // the broker ends the connection
    void good_manners() { send_next(Kind::inventory, honest_); }

    std::string name_, victim_;
    Bytes honest_, deep_;
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
    return fleet::run_program(app, count, arguments, [&] {
        const Chassis description(chassis);
        fleet::Hostile hostile(fleet::read_accounts(secrets, broker).front(), victim, description);
        hostile.run();
        return hostile.report() ? 0 : 1;
    });
}
