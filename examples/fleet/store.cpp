#include "store.hpp"

#include <array>
#include <type_traits>

#include "eid_text.h"
#include "meanings.h"

namespace fleet {

namespace {

// The view what_failed is what its name says; who_is_where has a line for each chassis.
constexpr const char* schema = R"(
    PRAGMA journal_mode = WAL;
    PRAGMA synchronous = FULL;  -- a commit outlives a power failure, too
    CREATE TABLE IF NOT EXISTS chassis(
        name TEXT PRIMARY KEY, session INTEGER, sequence INTEGER, messages INTEGER, dropped INTEGER, missing INTEGER,
        repeated INTEGER, out_of_turn INTEGER, over_pace INTEGER, refused INTEGER, last_refusal TEXT,
        heard INTEGER DEFAULT (unixepoch())) WITHOUT ROWID;
    CREATE TABLE IF NOT EXISTS inventory(
        chassis TEXT PRIMARY KEY, session INTEGER, sequence INTEGER, body BLOB);
    CREATE TABLE IF NOT EXISTS entity(
        chassis TEXT, eid TEXT, kind TEXT, name TEXT, location TEXT, part_number TEXT, serial_number TEXT,
        state TEXT, alarm INTEGER, temperature INTEGER, PRIMARY KEY(chassis, eid)) WITHOUT ROWID;
    CREATE TABLE IF NOT EXISTS notification(
        chassis TEXT, session INTEGER, sequence INTEGER, time INTEGER, eid TEXT, state TEXT, alarm INTEGER, body BLOB,
        PRIMARY KEY(chassis, session, sequence)) WITHOUT ROWID;
    CREATE VIEW IF NOT EXISTS who_is_where AS
        SELECT chassis.name AS chassis, entity.name AS is_a, entity.location, entity.serial_number, chassis.messages,
            datetime(heard, 'unixepoch') AS heard
        FROM chassis LEFT JOIN entity ON entity.chassis = chassis.name AND entity.kind = 'chassis';
    CREATE VIEW IF NOT EXISTS what_failed AS
        SELECT entity.chassis, who_is_where.location, eid, entity.name, state, alarm
        FROM entity JOIN who_is_where ON who_is_where.chassis = entity.chassis WHERE state = 'down' OR alarm;)";

constexpr const char* forget_entities = "DELETE FROM entity WHERE chassis = ?";
constexpr const char* put_entity = "INSERT OR REPLACE INTO entity VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
constexpr const char* put_inventory = "INSERT OR REPLACE INTO inventory VALUES(?, ?, ?, ?)";
constexpr const char* put_notification = "INSERT INTO notification VALUES(?, ?, ?, ?, ?, ?, ?, ?)";
constexpr const char* change_entity =
    "UPDATE entity SET state = coalesce(?, state), alarm = coalesce(?, alarm), temperature = coalesce(?, temperature) "
    "WHERE chassis = ? AND eid = ?";
constexpr const char* put_progress =
    "INSERT OR REPLACE INTO chassis(name, session, sequence, messages, dropped, missing, repeated, out_of_turn, "
    "over_pace, "
    "refused, last_refusal) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
constexpr const char* read_progress =
    "SELECT name, session, sequence, messages, dropped, missing, repeated, out_of_turn, over_pace, refused, "
    "last_refusal "
    "FROM chassis";
constexpr const char* trim =
    "DELETE FROM notification WHERE chassis = ?1 AND (session, sequence) <= (SELECT session, sequence FROM "
    "notification "
    "WHERE chassis = ?1 ORDER BY session DESC, sequence DESC LIMIT 1 OFFSET ?2)";

[[noreturn]] void fail(sqlite3* database) {
    throw StoreError(std::string("the database: ") + sqlite3_errmsg(database));
}

std::unique_ptr<sqlite3, void (*)(sqlite3*)> opened_with_schema(const std::string& path) {
    sqlite3* database = nullptr;
    const int result = sqlite3_open(path.c_str(), &database);
    std::unique_ptr<sqlite3, void (*)(sqlite3*)> owner(database, [](sqlite3* other) { sqlite3_close(other); });
    if (result != SQLITE_OK || sqlite3_exec(database, schema, nullptr, nullptr, nullptr) != SQLITE_OK) {
        throw StoreError(path + ": " + sqlite3_errmsg(database));
    }
    return owner;
}

// A member of a record as a value for the database; nothing if it is absent.
struct Value {
    const void* record;
    const meaning* row;
};

template <class Record>
Value value_of(const Record& record, const char* key) {
    return {&record, meaning_of_key(KIND_ANY, key)};
}

int bind(sqlite3_stmt* statement, int at, std::uint64_t number) {
    return sqlite3_bind_int64(statement, at, static_cast<sqlite3_int64>(number));
}

int bind(sqlite3_stmt* statement, int at, std::string_view text) {
    return sqlite3_bind_text64(statement, at, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

int bind(sqlite3_stmt* statement, int at, std::span<const std::byte> bytes) {
    return sqlite3_bind_blob64(statement, at, bytes.data(), bytes.size(), SQLITE_STATIC);
}

int bind(sqlite3_stmt* statement, int at, const Value& value) {
    if (!meaning_has(value.row, value.record)) return sqlite3_bind_null(statement, at);
    if (value.row->form == FORM_TEXT) {
        const char* text = meaning_text(value.row, value.record);
        return bind(statement, at, std::string_view(text != nullptr ? text : ""));
    }
    const std::uint64_t number = meaning_number(value.row, value.record);
    std::size_t length = 0;
    const char* word = value.row->form == FORM_CHOICE && number <= value.row->highest
                           ? meaning_word(value.row, number, &length)
                           : nullptr;
    return word != nullptr ? bind(statement, at, std::string_view(word, length)) : bind(statement, at, number);
}

}  // namespace

Store::Statement::Statement(sqlite3* database, const std::string& text) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(database, text.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) != SQLITE_OK) {
        fail(database);
    }
    statement_.reset(statement);
}

template <class... Values>
void Store::Statement::run(const Values&... values) {
    int at = 0;
    if (((bind(get(), ++at, values) != SQLITE_OK) || ...) || step()) fail(sqlite3_db_handle(get()));
}

// Whether there is a row; if not, the statement is ready for its next run.
bool Store::Statement::step() {
    const int result = sqlite3_step(get());
    if (result == SQLITE_ROW) return true;
    sqlite3_reset(get());
    if (result != SQLITE_DONE) fail(sqlite3_db_handle(get()));
    return false;
}

std::string Store::Statement::text(int column) {
    const unsigned char* text = sqlite3_column_text(get(), column);
    return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

Store::Store(const std::string& path)
    : database_(opened_with_schema(path).release()),
      begin_(database_.get(), "BEGIN IMMEDIATE"),
      commit_(database_.get(), "COMMIT"),
      forget_entities_(database_.get(), forget_entities),
      put_entity_(database_.get(), fleet::put_entity),
      put_inventory_(database_.get(), fleet::put_inventory),
      put_notification_(database_.get(), fleet::put_notification),
      change_entity_(database_.get(), change_entity),
      put_progress_(database_.get(), fleet::put_progress),
      trim_(database_.get(), trim) {
    sqlite3_busy_timeout(database_.get(), 5000);  // somebody else may look at the database
}

std::unordered_map<std::string, Progress> Store::read_progress() {
    std::unordered_map<std::string, Progress> all;
    Statement rows(database_.get(), fleet::read_progress);
    while (rows.step()) {
        all[rows.text(0)] = {rows.number(1), rows.number(2), rows.number(3), rows.number(4), rows.number(5),
                             rows.number(6), rows.number(7), rows.number(8), rows.number(9), rows.text(10)};
    }
    return all;
}

void Store::begin() { begin_.run(); }

void Store::commit() { commit_.run(); }

template <class Record>
void Store::put_entity(const std::string& chassis, const char* kind, const Record& record) {
    std::array<char, EID_TEXT_SIZE> eid;
    eid_to_text(&record.entity_common.eid, eid.data());
    put_entity_.run(chassis, std::string_view(eid.data()), std::string_view(kind), value_of(record, "name"),
                    value_of(record, "location"), value_of(record, "part_number"), value_of(record, "serial_number"),
                    value_of(record, "state"), value_of(record, "alarm"), value_of(record, "temperature"));
}

void Store::put_inventory(const std::string& chassis, const Envelope& envelope, std::span<const std::byte> body,
                          const vesk_resp_inv_data& inventory) {
    forget_entities_.run(chassis);
#define KIND(code, name, NAME, record)                                                       \
    for (const record& each : std::span(inventory.name##_list, inventory.name##_list_count)) \
        put_entity(chassis, #name, each);
#include "meanings.def"
    put_inventory_.run(chassis, envelope.session, envelope.sequence, body);
}

void Store::put_notification(const std::string& chassis, const Envelope& envelope, std::span<const std::byte> body,
                             const vesk_notify_event_data& event) {
    std::array<char, EID_TEXT_SIZE> text;
    eid_to_text(&event.eid, text.data());
    const std::string_view eid(text.data());
    const Value state = value_of(event.base, "state"), alarm = value_of(event.base, "alarm");
    const std::uint64_t time = notify_event_data_time(&event);
    put_notification_.run(chassis, envelope.session, envelope.sequence, time, eid, state, alarm, body);
    change_entity_.run(state, alarm, value_of(event.base, "temperature"), chassis, eid);
}

void Store::put_progress(const std::string& chassis, const Progress& progress) {
    put_progress_.run(chassis, progress.session, progress.sequence, progress.messages, progress.dropped,
                      progress.missing, progress.repeated, progress.out_of_turn, progress.over_pace, progress.refused,
                      progress.last_refusal);
}

void Store::trim_notifications(const std::string& chassis, std::uint64_t kept) { trim_.run(chassis, kept); }

}  // namespace fleet
