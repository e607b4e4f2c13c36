// The collector: takes what the chassis of a fleet publish, keeps it in a database, and answers what it has committed.
//
// One thread. Messages are taken into a transaction for as long as there are any, up to a batch; it is committed, and
// then each chassis of the batch is answered once. A chassis' messages are taken in the order of their sequence numbers
// alone: one that was taken before is answered again, one that is too early will come again. So there is one number to
// remember for each chassis, and nothing of a message that was not taken.

#include <poll.h>

#include <array>
#include <cstdio>
#include <set>
#include <string>
#include <unordered_map>
#include <vesk/vesk.hpp>

#include "envelope.hpp"
#include "link.hpp"
#include "program.hpp"
#include "store.hpp"

namespace fleet {

namespace {

constexpr std::uint64_t trim_each = 1000;  // notifications of a chassis between two looks at how many are kept

// Where the time goes.
enum Work { waiting, receiving, decoding, storing, committing, answering, works };
constexpr std::array<const char*, works> work_names{"waiting", "receiving",  "decoding",
                                                    "storing", "committing", "answering"};

// Memory for one decoded message after the other.
class Budget {
public:
    Budget() {
        const vesk::memory heap = vesk::heap();
        vesk_arena_of_blocks(&arena_, heap.alloc, heap.release, heap.context);
    }
    Budget(const Budget&) = delete;
    Budget& operator=(const Budget&) = delete;
    ~Budget() { vesk_arena_close(&arena_); }

    // Room for a message of `length` bytes; what was decoded before is void.
    vesk::memory room_for(std::uint64_t length) {
        vesk_arena_limit(&arena_, std::min(vesk_arena_limit_for(length), memory_limit), UINT64_MAX);
        vesk_arena_reset(&arena_);
        return vesk::memory_of(arena_);
    }

private:
    vesk_arena arena_;
};

// What is wrong with a message, in words.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Collector {
public:
    Collector(const Account& account, const std::string& database, std::uint64_t kept)
        : store_(database),
          kept_(kept),
          link_(account, up_topic("+"), [this](auto topic, auto payload) { receive(topic, payload); }) {
        for (auto& [name, progress] : store_.read_progress()) chassis_[name].progress = std::move(progress);
    }

    void run() {
        bool was_ready = false;
        while (!stop_requested) {
            pollfd poll = link_.what_to_poll();
            if (poll.fd < 0 && batch_ > 0) commit();
            const int timeout = batch_ > 0 ? 0 : answers_due_.empty() ? 50 : 1;
            if (::poll(&poll, 1, timeout) == 0 && batch_ > 0) commit();  // nothing more is there
            account_for(waiting);
            link_.proceed(poll.revents, Clock::now());
            account_for(receiving);
            if (batch_ >= batch_limit) commit();
            answer();
            if (link_.ready() != was_ready) {
                was_ready = link_.ready();
                std::puts(was_ready ? "connected" : "connection lost");
                std::fflush(stdout);  // whoever started it may wait for this line
            }
        }
        if (batch_ > 0) commit();
        answer();
    }

    void report() const {
        std::printf("took %llu messages in %llu batches;", static_cast<unsigned long long>(taken_),
                    static_cast<unsigned long long>(batches_));
        for (std::size_t work = 0; work < works; ++work) {
            std::printf(" %s %.2f s", work_names[work], std::chrono::duration<double>(times_[work]).count());
        }
        std::printf("\n");
    }

private:
    struct Chassis {
        Progress progress;
        std::uint64_t in_batch = 0;
        bool inventory_in_batch = false;
        std::uint64_t untrimmed = trim_each;  // so that the first look is at the first notification
    };

    void receive(std::string_view topic, std::span<const std::byte> payload) {
        const std::string name = chassis_of(topic);
        if (name.empty()) return;
        if (batch_++ == 0) store_.begin();
        Chassis& chassis = chassis_[name];
        changed_.insert(name);
        if (++chassis.in_batch > turn_limit) {
            chassis.progress.count[over_pace] += 1;
            return;
        }
        const auto envelope = opened(payload);
        if (envelope) {
            take(name, chassis, *envelope, payload.subspan(envelope_length));
        } else {
            refuse(chassis, "no envelope");
        }
    }

    static void refuse(Chassis& chassis, const std::string& why) {
        chassis.progress.count[refused] += 1;
        chassis.progress.last_refusal = why;
    }

    // Whether the message is the next one of its chassis. What a chassis no longer keeps is missing and not waited for:
    // that is so if this database is younger than the session.
    static bool is_next(Progress& progress, const Envelope& envelope) {
        const bool new_session = envelope.session > progress.session;
        if (envelope.session < progress.session || (new_session && envelope.sequence > envelope.first)) {
            progress.count[out_of_turn] += 1;
            return false;
        }
        if (new_session) {
            progress.session = envelope.session;
            progress.sequence = 0;
        }
        if (envelope.sequence <= progress.sequence) {
            progress.count[repeated] += 1;
            return false;
        }
        if (envelope.sequence > std::max(progress.sequence + 1, envelope.first)) {
            progress.count[out_of_turn] += 1;
            return false;
        }
        progress.count[missing] += envelope.sequence - progress.sequence - 1;
        return true;
    }

    void take(const std::string& name, Chassis& chassis, const Envelope& envelope, std::span<const std::byte> body) {
        const bool inventory = envelope.kind == Kind::inventory;
        if (inventory && chassis.inventory_in_batch) {
            chassis.progress.count[over_pace] += 1;
            return;
        }
        answers_due_.insert(name);
        if (!is_next(chassis.progress, envelope)) return;
        account_for(receiving);
        try {
            if (inventory) {
                chassis.inventory_in_batch = true;
                take_inventory(name, envelope, body);
            } else {
                take_notification(name, envelope, body);
                chassis.untrimmed += 1;
            }
        } catch (const Refusal& refusal) {
            refuse(chassis, refusal.what());  // and it is answered: sent again it would be no better
        }
        account_for(storing);
        chassis.progress.sequence = envelope.sequence;
        chassis.progress.count[dropped] = envelope.dropped;
        chassis.progress.count[messages] += 1;
        taken_ += 1;
    }

    template <class Structure>
    vesk::message<Structure> decoded(std::span<const std::byte> body, std::size_t limit) {
        if (body.size() > limit) throw Refusal(std::to_string(body.size()) + " bytes, over the limit");
        vesk::message<Structure> message(budget_.room_for(body.size()));
        if (const std::error_code error = message.decode(body)) throw Refusal(error.message());
        account_for(decoding);
        return message;
    }

    void take_inventory(const std::string& name, const Envelope& envelope, std::span<const std::byte> body) {
        const auto message = decoded<vesk_resp_inv_data>(body, inventory_limit);
        std::size_t entities = 0;
#define KIND(code, name, NAME, record) entities += message.c().name##_list_count;
#include "meanings.def"
        if (entities > entity_limit) throw Refusal(std::to_string(entities) + " entities, over the limit");
        store_.put_inventory(name, envelope, body, message.c());
    }

    void take_notification(const std::string& name, const Envelope& envelope, std::span<const std::byte> body) {
        store_.put_notification(name, envelope, body, decoded<vesk_notify_event_data>(body, notification_limit).c());
    }

    void commit() {
        for (const std::string& name : changed_) {
            Chassis& chassis = chassis_[name];
            if (chassis.untrimmed > trim_each) {
                store_.trim_notifications(name, kept_);
                chassis.untrimmed = 0;
            }
            store_.put_progress(name, chassis.progress);
            chassis.in_batch = 0;
            chassis.inventory_in_batch = false;
        }
        account_for(storing);
        store_.commit();
        account_for(committing);
        changed_.clear();
        batch_ = 0;
        batches_ += 1;
    }

    // What a batch has taken is answered after its commit, as fast as the socket takes it.
    void answer() {
        if (batch_ > 0) return;
        while (!answers_due_.empty()) {
            const std::string& name = *answers_due_.begin();
            const Progress& progress = chassis_[name].progress;
            if (!link_.publish(answer_topic(name), sealed(Answer{progress.session, progress.sequence}))) break;
            answers_due_.erase(answers_due_.begin());
        }
        account_for(answering);
    }

    void account_for(Work work) {
        const Clock::time_point now = Clock::now();
        times_[work] += now - counted_until_;
        counted_until_ = now;
    }

    Store store_;
    std::uint64_t kept_;
    Budget budget_;
    std::unordered_map<std::string, Chassis> chassis_;
    std::set<std::string> changed_;      // in this batch
    std::set<std::string> answers_due_;  // after its commit; never more than there are chassis
    std::uint64_t batch_ = 0;            // messages in it, those that were not taken included
    std::uint64_t taken_ = 0, batches_ = 0;
    std::array<Clock::duration, works> times_{};
    Clock::time_point counted_until_ = Clock::now();
    Link link_;
};

}  // namespace

}  // namespace fleet

int main(int count, char** arguments) {
    std::string broker, secrets, database;
    std::uint64_t kept = 10000;
    CLI::App app("Keeps the last state of each chassis of a fleet in a database until SIGTERM or SIGINT.",
                 "fleet_collector");
    app.add_option("--broker", broker, "HOST:PORT of the broker, or its Unix-domain socket")->required();
    app.add_option("--secrets", secrets, "file with the collector's line NAME:PASSWORD")->required()->type_name("FILE");
    app.add_option("--database", database, "SQLite database")->required()->type_name("FILE");
    app.add_option("--keep", kept, "notifications that are kept of each chassis")->capture_default_str();
    return fleet::run_program(app, count, arguments, [&] {
        fleet::Collector collector(fleet::read_accounts(secrets, broker).front(), database, kept);
        collector.run();
        collector.report();
        return 0;
    });
}
