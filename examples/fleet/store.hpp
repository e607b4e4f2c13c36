// The collector's database: the last state of each chassis, its notifications, and what was committed of each.
#pragma once

#include <sqlite3.h>
#include <vesk/client_service.h>

#include <array>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>

#include "envelope.hpp"

namespace fleet {

enum Counter {
    messages,     // committed, of all sessions
    dropped,      // by the chassis in this session, as it says
    missing,      // sequences that the chassis no longer kept when they were wanted
    repeated,     // received again, and not taken again
    out_of_turn,  // received before an earlier one and dropped: it will come again
    over_pace,    // more than a chassis may have in a batch, dropped unread
    refused,      // no envelope, or nothing that decodes within its budget
    counters
};

// What is known of a chassis beside its state: a row of the table `chassis`.
struct Progress {
    std::uint64_t session = 0;
    std::uint64_t sequence = 0;  // all up to this one are committed
    std::array<std::uint64_t, counters> count{};
    std::string last_refusal;
};

// Every function throws if it fails: what cannot be stored is not answered.
class Store {
public:
    explicit Store(const std::string& path);

    std::unordered_map<std::string, Progress> read_progress();

    // Changes are a transaction, and are there for ever once commit has returned.
    void begin();
    void commit();

    void put_inventory(const std::string& chassis, const Envelope& envelope, std::span<const std::byte> body,
                       const vesk_resp_inv_data& inventory);
    void put_notification(const std::string& chassis, const Envelope& envelope, std::span<const std::byte> body,
                          const vesk_notify_event_data& event);
    void put_progress(const std::string& chassis, const Progress& progress);
    // Forgets all notifications of a chassis but the newest.
    void trim_notifications(const std::string& chassis, std::uint64_t kept);

private:
    template <auto Function>
    struct Call {
        template <class Object>
        void operator()(Object* object) const {
            Function(object);
        }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Call<sqlite3_finalize>>;

    Statement prepare(const char* text);

    std::unique_ptr<sqlite3, Call<sqlite3_close>> database_;
    Statement begin_, commit_, forget_entities_, put_entity_, put_inventory_, put_notification_, change_entity_,
        put_progress_, trim_;
};

}  // namespace fleet
