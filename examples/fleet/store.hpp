// The collector's database: the last state of each chassis, its notifications, and what was committed of each.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vesk/vesk.hpp>

#include "envelope.hpp"

namespace fleet {

struct StoreError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What is known of a chassis beside its state. One row of the table `chassis`.
struct Progress {
    std::uint64_t session = 0;
    std::uint64_t sequence = 0;     // all up to this one are committed
    std::uint64_t messages = 0;     // committed, of all sessions
    std::uint64_t dropped = 0;      // by the chassis, in this session
    std::uint64_t missing = 0;      // sequences that the chassis no longer kept when they were wanted
    std::uint64_t repeated = 0;     // received again, and not taken again
    std::uint64_t out_of_turn = 0;  // received before an earlier one, and dropped: it will come again
    std::uint64_t over_pace = 0;    // more than a chassis may have in a batch, dropped unread
    std::uint64_t refused = 0;      // no envelope, or nothing that decodes within its budget
    std::string last_refusal;
};

class Store {
public:
    // Opens the database or makes it. Throws StoreError, as every function here: what cannot be stored is not answered.
    explicit Store(const std::string& path);

    std::unordered_map<std::string, Progress> read_progress();

    // Changes are a transaction, and good for ever once commit has returned.
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
    struct Close {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
    };
    std::unique_ptr<sqlite3, Close> database_;

    // A prepared statement. Values are bound in the order of its parameters.
    class Statement {
    public:
        Statement(sqlite3* database, const std::string& text);
        template <class... Values>
        void run(const Values&... values);
        bool step();
        std::uint64_t number(int column) { return static_cast<std::uint64_t>(sqlite3_column_int64(get(), column)); }
        std::string text(int column);
        sqlite3_stmt* get() { return statement_.get(); }

    private:
        struct Finalize {
            void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
        };
        std::unique_ptr<sqlite3_stmt, Finalize> statement_;
    };

    template <class Record>
    void put_entity(const std::string& chassis, const char* kind, const Record& record);

    Statement begin_, commit_, forget_entities_, put_entity_, put_inventory_, put_notification_, change_entity_,
        put_progress_, trim_;
};

}  // namespace fleet
