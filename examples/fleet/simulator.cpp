// Any number of simulated chassis in one process, each with its own connection to the broker, its own queue and its own
// failures. (A process for each would measure this machine's scheduler: what a chassis does takes microseconds.)
//
// For the given time entities fail and recover, which is notified; then nothing new happens, and the program ends as
// soon as all is answered. The status tells whether all was.

#include <poll.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <random>
#include <string>
#include <vector>
#include <vesk/vesk.hpp>

#include "chassis.hpp"
#include "link.hpp"
#include "outbox.hpp"
#include "program.hpp"

namespace fleet {

namespace {

struct Options {
    std::string broker, secrets, chassis, record;
    double seconds = 5;
    double patience = 60;
    double rate = 2;
    double inventory_every = 10;
    double restart_every = 0;
    bool no_resend = false;
};

std::string hexadecimal(const Bytes& bytes) {
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (std::byte byte : bytes) {
        text += digits[std::to_integer<unsigned>(byte) >> 4];
        text += digits[std::to_integer<unsigned>(byte) & 15];
    }
    return text;
}

const meaning& row(const char* key) { return *meaning_of_key(KIND_ANY, key); }

std::uint64_t state(std::string_view wanted) {
    std::size_t length = 0;
    for (std::uint64_t number = 0; const char* word = meaning_word(&row("state"), number, &length); ++number) {
        if (wanted == std::string_view(word, length)) return number;
    }
    throw std::logic_error("no such state");
}

// A chassis' inventory: that of the description, with a name, place and serial number of its own, and everything well.
class Inventory {
public:
    Inventory(const Chassis& description, const std::string& name, unsigned number) {
        std::string place = "Hall " + std::to_string(number / 64 + 1) + ", row " + std::to_string(number / 8 % 8 + 1) +
                            ", rack " + std::to_string(number % 8 + 1);
        std::string title = "VX-8 " + name, serial = "VK" + std::to_string(2500000 + number);
        vesk_resp_inv_data all = description.everything();
        if (all.chassis_list_count == 0) throw ChassisError("the description has no entity of the kind chassis");
        vesk_chassis_data own = all.chassis_list[0];
        meaning_set_text(&row("name"), &own, title.data());
        meaning_set_text(&row("location"), &own, place.data());
        meaning_set_text(&row("serial_number"), &own, serial.data());
        all.chassis_list = &own;
        all.chassis_list_count = 1;
        if (const std::error_code error = message_.copy(vesk::view(all))) throw std::system_error(error);
#define KIND(code, kind, NAME, record)                                                        \
    for (record & each : std::span(message_.c().kind##_list, message_.c().kind##_list_count)) \
        add(&each, &each.entity_common);
#include "meanings.def"
        for (Entity& entity : entities_) {
            drin_eid_st_set_rack(&entity.head->eid, number + 1);
            if (is_failed(entity.record)) set_failed(entity.record, false);
        }
    }

    // Something fails, or what failed recovers. Returns the notification of it.
    Bytes change(std::minstd_rand* random) {
        const bool fails = failed_.empty() || (failed_.size() < 3 && (*random)() % 2 == 0);
        std::size_t which = fails ? (*random)() % entities_.size() : failed_[(*random)() % failed_.size()];
        std::erase(failed_, which);
        if (fails) failed_.push_back(which);

        const Entity& entity = entities_[which];
        vesk_notify_event_data event{};
        event.eid = entity.head->eid;  // borrowed until it is encoded
        VESK_MARK(&event, VESK_NOTIFY_EVENT_DATA_EID);
        notify_event_data_set_time(&event, static_cast<std::uint32_t>(std::time(nullptr)));
        set_failed(entity.record, fails);
        set_failed(&event.base, fails);
        return encoded(event);
    }

    Bytes bytes() const { return encoded(message_.c()); }

    void write(std::ofstream* record, const std::string& name) const {
        for (const Entity& entity : entities_) {
            std::array<char, EID_TEXT_SIZE> eid;
            eid_to_text(&entity.head->eid, eid.data());
            *record << "state " << name << ' ' << eid.data() << (is_failed(entity.record) ? " failed\n" : " well\n");
        }
    }

private:
    struct Entity {
        void* record;
        vesk_entity_common_data* head;
    };

    static bool is_failed(const void* record) {
        return meaning_number(&row("state"), record) == state("down") || meaning_number(&row("alarm"), record) != 0;
    }
    static void set_failed(void* record, bool failed) {
        meaning_set_number(&row("state"), record, state(failed ? "down" : "up"));
        meaning_set_number(&row("alarm"), record, failed);
    }
    void add(void* record, vesk_entity_common_data* head) { entities_.push_back({record, head}); }

    vesk::message<vesk_resp_inv_data> message_;
    std::vector<Entity> entities_;  // of the message
    std::vector<std::size_t> failed_;
};

class Simulated {
public:
    Simulated(const Account& account, const Chassis& description, unsigned number, std::uint64_t session,
              const Options& options, std::ofstream* record)
        : name_(account.name),
          options_(options),
          record_(*record),
          random_(std::random_device{}()),
          inventory_(description, name_, number),
          outbox_(session),
          link_(account, answer_topic(name_), [this](auto, auto payload) { receive(payload); }) {}

    pollfd what_to_poll() const { return link_.what_to_poll(); }
    bool finished() const { return outbox_.empty(); }
    const Outbox& outbox() const { return outbox_; }
    std::uint64_t answered_before() const { return answered_before_; }
    std::uint64_t lost_by_restarts() const { return lost_; }

    void proceed(short events, Clock::time_point now, bool things_happen) {
        link_.proceed(events, now);
        if (things_happen) happen(now);
        while (const auto* message = outbox_.number_next(now, [this] { return inventory_.bytes(); })) {
            if (!record_.is_open()) continue;
            const Envelope& envelope = message->envelope;
            record_ << "sent " << name_ << ' ' << envelope.session << ' ' << envelope.sequence
                    << (envelope.kind == Kind::inventory ? " inventory " : " notification ")
                    << hexadecimal(message->body) << '\n';
        }
        if (link_.times_ready() != times_ready_) {
            times_ready_ = link_.times_ready();
            if (!options_.no_resend) outbox_.send_all_again();
        }
        outbox_.send(now, !options_.no_resend,
                     [this](const Bytes& bytes) { return link_.publish(up_topic(name_), bytes); });
    }

    void write_end() {
        write_line("end ");
        inventory_.write(&record_, name_);
    }

private:
    void write_line(const char* what) {
        record_ << what << name_ << ' ' << outbox_.session() << ' ' << outbox_.numbered() << ' ' << outbox_.answered()
                << ' ' << outbox_.dropped() << '\n';
    }

    void receive(std::span<const std::byte> payload) {
        if (const auto answer = opened_answer(payload)) outbox_.take_answer(*answer, Clock::now());
    }

    // Whether something that happens that often, in the mean, happens now.
    bool due(double every, Clock::time_point now, Clock::time_point* next) {
        if (every <= 0 || now < *next) return false;
        const bool first = *next == Clock::time_point{};
        const double seconds = std::exponential_distribution(1 / every)(random_);
        *next = now + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
        return !first;
    }

    void happen(Clock::time_point now) {
        if (due(options_.restart_every, now, &restart_)) {
            write_line("restart ");
            answered_before_ += outbox_.answered();
            lost_ += outbox_.numbered() - outbox_.answered() + outbox_.waiting();
            outbox_ = Outbox(outbox_.session() + 1);
        }
        if (due(options_.inventory_every, now, &report_)) outbox_.want_inventory();
        if (options_.rate == 0) {  // as fast as they are answered
            while (outbox_.waiting() < window) outbox_.add_notification(inventory_.change(&random_));
        } else if (due(1 / options_.rate, now, &change_)) {
            outbox_.add_notification(inventory_.change(&random_));
        }
    }

    std::string name_;
    const Options& options_;
    std::ofstream& record_;  // of what happened, for tests; closed if nobody wants it
    std::minstd_rand random_;
    Inventory inventory_;
    Outbox outbox_;
    std::uint64_t answered_before_ = 0, lost_ = 0;  // in earlier sessions
    std::uint64_t times_ready_ = 0;
    Clock::time_point restart_{}, report_{}, change_{};
    Link link_;
};

int simulate(const Options& options) {
    const Chassis description(options.chassis);
    std::ofstream record;
    if (!options.record.empty()) record.open(options.record);
    std::vector<std::unique_ptr<Simulated>> fleet;
    // A chassis counts its boots in its own memory; the time does as well for one that is simulated.
    const auto session = static_cast<std::uint64_t>(std::time(nullptr));
    for (const Account& account : read_accounts(options.secrets, options.broker)) {
        const auto number = static_cast<unsigned>(fleet.size());
        fleet.push_back(std::make_unique<Simulated>(account, description, number, session, options, &record));
    }

    const auto start = Clock::now();
    const auto passed = [start] { return std::chrono::duration<double>(Clock::now() - start).count(); };
    std::vector<pollfd> polls(fleet.size());
    std::size_t finished = 0;
    while (!stop_requested && finished < fleet.size() && passed() < options.seconds + options.patience) {
        for (std::size_t i = 0; i < fleet.size(); ++i) polls[i] = fleet[i]->what_to_poll();
        poll(polls.data(), polls.size(), 10);
        const bool things_happen = passed() < options.seconds;
        finished = 0;
        for (std::size_t i = 0; i < fleet.size(); ++i) {
            fleet[i]->proceed(polls[i].revents, Clock::now(), things_happen);
            finished += !things_happen && fleet[i]->finished();
        }
    }

    std::uint64_t answered = 0, unanswered = 0, again = 0, dropped = 0, lost = 0;
    Clock::duration wait{};
    for (const auto& chassis : fleet) {
        const Outbox& outbox = chassis->outbox();
        answered += outbox.answered() + chassis->answered_before();
        unanswered += outbox.numbered() - outbox.answered() + outbox.waiting();
        again += outbox.sent_again();
        dropped += outbox.dropped();
        wait = std::max(wait, outbox.longest_wait());
        lost += chassis->lost_by_restarts();
        chassis->write_end();
    }
    const double seconds = passed();
    std::printf(
        "%zu chassis: %llu messages answered in %.1f s (%.0f a second), each within %.2f s, %llu not; %llu sent "
        "again, %llu dropped by full queues, %llu lost by restarts\n",
        fleet.size(), static_cast<unsigned long long>(answered), seconds, static_cast<double>(answered) / seconds,
        std::chrono::duration<double>(wait).count(), static_cast<unsigned long long>(unanswered),
        static_cast<unsigned long long>(again), static_cast<unsigned long long>(dropped),
        static_cast<unsigned long long>(lost));
    if (!options.record.empty() && !record.flush()) throw std::runtime_error(options.record + ": cannot be written");
    return finished == fleet.size() ? 0 : 1;
}

}  // namespace

}  // namespace fleet

int main(int count, char** arguments) {
    fleet::Options options;
    CLI::App app("Simulates the chassis of a fleet.", "fleet_simulator");
    app.add_option("--broker", options.broker, "HOST:PORT of the broker, or its Unix-domain socket")->required();
    app.add_option("--secrets", options.secrets, "file with a line NAME:PASSWORD for each chassis")->required();
    app.add_option("--chassis", options.chassis, "description of a chassis, in JSON")->required()->type_name("FILE");
    app.add_option("--seconds", options.seconds, "how long things happen")->capture_default_str();
    app.add_option("--patience", options.patience, "seconds after that until all must be answered")
        ->capture_default_str();
    app.add_option("--rate", options.rate, "notifications a second of each chassis; 0: as fast as they are answered")
        ->capture_default_str();
    app.add_option("--inventory-every", options.inventory_every,
                   "seconds between two inventories of a chassis, in the mean")
        ->capture_default_str();
    app.add_option("--restart-every", options.restart_every,
                   "seconds between two boots of a chassis; 0: it never boots again")
        ->capture_default_str();
    app.add_option("--record", options.record, "file for what was sent, for tests")->type_name("FILE");
    app.add_flag("--no-resend", options.no_resend, "send everything once, for the test that then something is lost");
    return fleet::run_program(app, count, arguments, [&] { return fleet::simulate(options); });
}
