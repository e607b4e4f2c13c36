// The collector's database: the last state of each chassis, its notifications, and what was committed of each.
#pragma once

#include <sqlite3.h>
#include <vesk/client_service.h>

#include <array>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <unordered_map>

#include "eid_text.h"
#include "envelope.hpp"
#include "meanings.h"

namespace fleet {

enum Counter {
    messages,     // committed, of all sessions
    dropped,      // by the chassis in this session, as it says
    missing,      // sequences that the chassis no longer kept when they were wanted
    repeated,     // received again, and not taken again
    out_of_turn,  // received before an earlier one and dropped: it will come again; or of a session that is over
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

inline constexpr const char* schema = R"(
    PRAGMA journal_mode = WAL;
    PRAGMA synchronous = FULL;  -- a commit outlives a power failure, too
    PRAGMA busy_timeout = 5000; -- somebody else may look at the database
    CREATE TABLE IF NOT EXISTS chassis(
        name TEXT PRIMARY KEY, session INTEGER, sequence INTEGER, messages INTEGER, dropped INTEGER, missing INTEGER,
        repeated INTEGER, out_of_turn INTEGER, over_pace INTEGER, refused INTEGER, last_refusal TEXT,
        heard INTEGER DEFAULT (unixepoch())) WITHOUT ROWID;
    CREATE TABLE IF NOT EXISTS inventory(chassis TEXT PRIMARY KEY, session INTEGER, sequence INTEGER, body BLOB);
    CREATE TABLE IF NOT EXISTS entity(
        chassis TEXT, eid TEXT, kind TEXT, name TEXT, location TEXT, part_number TEXT, serial_number TEXT, state TEXT,
        alarm INTEGER, temperature INTEGER, PRIMARY KEY(chassis, eid)) WITHOUT ROWID;
    CREATE TABLE IF NOT EXISTS notification(
        chassis TEXT, session INTEGER, sequence INTEGER, time INTEGER, eid TEXT, state TEXT, alarm INTEGER, body BLOB,
        PRIMARY KEY(chassis, session, sequence)) WITHOUT ROWID;
    CREATE VIEW IF NOT EXISTS who_is_where AS
        SELECT chassis.name AS chassis, entity.name AS is_a, location, serial_number, messages,
            datetime(heard, 'unixepoch') AS heard
        FROM chassis LEFT JOIN entity ON entity.chassis = chassis.name AND entity.kind = 'chassis';
    CREATE VIEW IF NOT EXISTS what_failed AS
        SELECT entity.chassis, who_is_where.location, eid, entity.name, state, alarm
        FROM entity JOIN who_is_where ON who_is_where.chassis = entity.chassis WHERE state = 'down' OR alarm;)";

// A member of a record, nothing if it is absent or its text is longer than such texts are.
struct Value {
    const void* record;
    const meaning* row;
};

template <class Record>
Value value_of(const Record& record, const char* key) {
    return {&record, meaning_of_key(KIND_ANY, key)};
}

inline int bind_value(sqlite3_stmt* statement, int at, std::uint64_t number) {
    return sqlite3_bind_int64(statement, at, static_cast<sqlite3_int64>(number));
}

inline int bind_value(sqlite3_stmt* statement, int at, std::string_view text) {
    return sqlite3_bind_text64(statement, at, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

inline int bind_value(sqlite3_stmt* statement, int at, std::span<const std::byte> bytes) {
    return sqlite3_bind_blob64(statement, at, bytes.data(), bytes.size(), SQLITE_STATIC);
}

inline int bind_value(sqlite3_stmt* statement, int at, const Value& value) {
    if (!meaning_has(value.row, value.record)) return sqlite3_bind_null(statement, at);
    if (value.row->form == FORM_TEXT) {
        const char* text = meaning_text(value.row, value.record);
        const std::string_view view(text != nullptr ? text : "");
        return view.size() <= value.row->highest ? bind_value(statement, at, view) : sqlite3_bind_null(statement, at);
    }
    const std::uint64_t number = meaning_number(value.row, value.record);
    if (value.row->form != FORM_CHOICE || number > value.row->highest) return bind_value(statement, at, number);
    std::size_t length = 0;
    const char* word = meaning_word(value.row, number, &length);
    return bind_value(statement, at, std::string_view(word, length));
}

[[noreturn]] inline void fail(sqlite3* database) {
    throw std::runtime_error(std::string("database: ") + sqlite3_errmsg(database));
}

// Whether there is a row; if not, the statement is ready for its next run.
inline bool step(sqlite3_stmt* statement) {
    const int result = sqlite3_step(statement);
    if (result == SQLITE_ROW) return true;
    sqlite3_reset(statement);
    if (result != SQLITE_DONE) fail(sqlite3_db_handle(statement));
    return false;
}

// Runs a statement whose parameters are the values, in their order.
template <class Pointer, class... Values>
void run(const Pointer& statement, const Values&... values) {
    int at = 0;
    if (((bind_value(statement.get(), ++at, values) != SQLITE_OK) || ...)) fail(sqlite3_db_handle(statement.get()));
    step(statement.get());
}

struct EidText {
    explicit EidText(const vesk_drin_eid_st& eid) { eid_to_text(&eid, text.data()); }
    operator std::string_view() const { return text.data(); }
    std::array<char, EID_TEXT_SIZE> text;
};

// Every function throws if it fails: what cannot be stored is not answered.
class Store {
public:
    explicit Store(const std::string& path) {
        sqlite3* database = nullptr;
        const int result = sqlite3_open(path.c_str(), &database);
        database_.reset(database);
        if (result != SQLITE_OK || sqlite3_exec(database, schema, nullptr, nullptr, nullptr) != SQLITE_OK)
            fail(database);
        begin_ = prepare("BEGIN IMMEDIATE");
        commit_ = prepare("COMMIT");
        forget_entities_ = prepare("DELETE FROM entity WHERE chassis = ?");
        put_entity_ = prepare("INSERT OR REPLACE INTO entity VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
        put_inventory_ = prepare("INSERT OR REPLACE INTO inventory VALUES(?, ?, ?, ?)");
        put_notification_ = prepare("INSERT INTO notification VALUES(?, ?, ?, ?, ?, ?, ?, ?)");
        change_entity_ = prepare(
            "UPDATE entity SET state = coalesce(?, state), alarm = coalesce(?, alarm), "
            "temperature = coalesce(?, temperature) WHERE chassis = ? AND eid = ?");
        put_progress_ = prepare(
            "INSERT OR REPLACE INTO chassis(name, session, sequence, last_refusal, messages, dropped, missing, "
            "repeated, out_of_turn, over_pace, refused) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
        trim_ = prepare(
            "DELETE FROM notification WHERE chassis = ?1 AND (session, sequence) <= (SELECT session, sequence "
            "FROM notification WHERE chassis = ?1 ORDER BY session DESC, sequence DESC LIMIT 1 OFFSET ?2)");
    }

    std::unordered_map<std::string, Progress> read_progress() {
        std::unordered_map<std::string, Progress> all;
        const Statement rows = prepare(
            "SELECT name, last_refusal, session, sequence, messages, dropped, missing, repeated, "
            "out_of_turn, over_pace, refused FROM chassis");
        const auto text = [&rows](int column) {
            return reinterpret_cast<const char*>(sqlite3_column_text(rows.get(), column));
        };
        const auto number = [&rows](int column) {
            return static_cast<std::uint64_t>(sqlite3_column_int64(rows.get(), column));
        };
        while (step(rows.get())) {
            Progress& progress = all[text(0)] = {number(2), number(3), {}, text(1)};
            for (int i = 0; i < counters; ++i) progress.count[static_cast<std::size_t>(i)] = number(4 + i);
        }
        return all;
    }

    // Changes are a transaction, and are there for ever once commit has returned.
    void begin() { run(begin_); }
    void commit() { run(commit_); }

    void put_inventory(const std::string& chassis, const Envelope& envelope, std::span<const std::byte> body,
                       const vesk_resp_inv_data& inventory) {
        run(forget_entities_, chassis);
        const auto put_entity = [&](std::string_view kind, const auto& record) {
            run(put_entity_, chassis, EidText(record.entity_common.eid), kind, value_of(record, "name"),
                value_of(record, "location"), value_of(record, "part_number"), value_of(record, "serial_number"),
                value_of(record, "state"), value_of(record, "alarm"), value_of(record, "temperature"));
        };
#define KIND(code, name, NAME, record) \
    for (const record& each : std::span(inventory.name##_list, inventory.name##_list_count)) put_entity(#name, each);
#include "meanings.def"
        run(put_inventory_, chassis, envelope.session, envelope.sequence, body);
    }
    void put_notification(const std::string& chassis, const Envelope& envelope, std::span<const std::byte> body,
                          const vesk_notify_event_data& event) {
        const EidText eid(event.eid);
        const Value state = value_of(event.base, "state"), alarm = value_of(event.base, "alarm");
        const std::uint64_t time = notify_event_data_time(&event);
        run(put_notification_, chassis, envelope.session, envelope.sequence, time, eid, state, alarm, body);
        run(change_entity_, state, alarm, value_of(event.base, "temperature"), chassis, eid);
    }
    void put_progress(const std::string& chassis, const Progress& progress) {
        const auto& [taken, dropped_there, missed, again, early, fast, bad] = progress.count;
        run(put_progress_, chassis, progress.session, progress.sequence, progress.last_refusal, taken, dropped_there,
            missed, again, early, fast, bad);
    }
    // Forgets all notifications of a chassis but the newest.
    void trim_notifications(const std::string& chassis, std::uint64_t kept) { run(trim_, chassis, kept); }

private:
    template <auto Function>
    struct Call {
        template <class Object>
        void operator()(Object* object) const {
            Function(object);
        }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Call<sqlite3_finalize>>;

    Statement prepare(const char* text) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v3(database_.get(), text, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) !=
            SQLITE_OK) {
            fail(database_.get());
        }
        return Statement(statement);
    }

    std::unique_ptr<sqlite3, Call<sqlite3_close>> database_;
    Statement begin_, commit_, forget_entities_, put_entity_, put_inventory_, put_notification_, change_entity_,
        put_progress_, trim_;
};

}  // namespace fleet
