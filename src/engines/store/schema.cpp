#include "engines/store/schema.hpp"

#include <array>
#include <string>
#include <string_view>

namespace store::schema {

namespace {

struct Object {
    const char* name;
    const char* sql;
};

// Times are milliseconds since the Unix epoch. A version's texts are compared with what the
// database holds, so they never change once released: a change is a new version and a migration.
constexpr std::array<Object, 8> kVersion1 = {
    // listing packs what ordering and freshness need (see listing.hpp).
    Object{"understandings",
           "CREATE TABLE understandings(id INTEGER PRIMARY KEY, target TEXT NOT NULL, "
           "scope TEXT NOT NULL, importance TEXT NOT NULL, purpose TEXT, "
           "auto_generated INTEGER NOT NULL, stored_at INTEGER NOT NULL, listing BLOB NOT NULL, "
           "UNIQUE(target, scope))"},
    // kind 0: a key point, 1: a gotcha; in the order given.
    Object{"understanding_notes",
           "CREATE TABLE understanding_notes(understanding_id INTEGER NOT NULL, "
           "kind INTEGER NOT NULL, position INTEGER NOT NULL, text TEXT NOT NULL, "
           "PRIMARY KEY(understanding_id, kind, position)) WITHOUT ROWID"},
    Object{"sessions",
           "CREATE TABLE sessions(id TEXT PRIMARY KEY, status TEXT NOT NULL, "
           "started_at INTEGER NOT NULL, last_activity INTEGER NOT NULL, ended_at INTEGER, "
           "turns INTEGER NOT NULL)"},
    // The hooks ask for the active sessions of the last day at every session start.
    Object{"sessions_by_status",
           "CREATE INDEX sessions_by_status ON sessions(status, last_activity)"},
    // activity and file are derived when the turn is logged, so reading a context parses nothing.
    Object{"turns",
           "CREATE TABLE turns(id INTEGER PRIMARY KEY, session_id TEXT NOT NULL, "
           "at INTEGER NOT NULL, type TEXT NOT NULL, prompt TEXT, tool_name TEXT, "
           "tool_input TEXT, tool_result TEXT, activity TEXT, file TEXT)"},
    Object{"turns_by_session", "CREATE INDEX turns_by_session ON turns(session_id, id)"},
    Object{"memories",
           "CREATE TABLE memories(key TEXT PRIMARY KEY, value TEXT NOT NULL, "
           "stored_at INTEGER NOT NULL)"},
    Object{"meta", "CREATE TABLE meta(key TEXT PRIMARY KEY, value INTEGER NOT NULL)"},
};

// Version 2 makes what a session's context reads independent of the session's length (a turn's
// activity and file sit behind its tool result in the row, so reading them for every turn read
// every result), records which sessions took turns without an id, and counts the understandings
// (count(*) reads a whole index).
constexpr std::array<const char*, 6> kToVersion2 = {
    // Turns logged without a session id: they went to whatever session was active.
    "ALTER TABLE sessions ADD COLUMN idless_turns INTEGER NOT NULL DEFAULT 0",
    // The first prompts and the latest tool turns of a session, straight from the index.
    "DROP INDEX turns_by_session",
    "CREATE INDEX turns_by_type ON turns(session_id, type, id)",
    // Each file a session touched, once, with its latest turn; a turn touches one file at most,
    // so the second constraint holds too, and its index gives the latest files first.
    "CREATE TABLE session_files(session_id TEXT NOT NULL, file TEXT NOT NULL, "
    "last_turn INTEGER NOT NULL, UNIQUE(session_id, file), UNIQUE(session_id, last_turn))",
    "INSERT INTO session_files(session_id, file, last_turn) SELECT session_id, file, max(id) "
    "FROM turns WHERE file IS NOT NULL GROUP BY session_id, file",
    "INSERT INTO meta(key, value) SELECT 'understandings', count(*) FROM understandings",
};

// What version 2 holds: the statements above leave these texts. Every hook run parses them all,
// so each object must earn its place.
constexpr std::array<Object, 9> kVersion2 = {
    kVersion1[0],
    kVersion1[1],
    Object{"sessions",
           "CREATE TABLE sessions(id TEXT PRIMARY KEY, status TEXT NOT NULL, "
           "started_at INTEGER NOT NULL, last_activity INTEGER NOT NULL, ended_at INTEGER, "
           "turns INTEGER NOT NULL, idless_turns INTEGER NOT NULL DEFAULT 0)"},
    kVersion1[3],
    kVersion1[4],
    Object{"turns_by_type", "CREATE INDEX turns_by_type ON turns(session_id, type, id)"},
    Object{"session_files",
           "CREATE TABLE session_files(session_id TEXT NOT NULL, file TEXT NOT NULL, "
           "last_turn INTEGER NOT NULL, UNIQUE(session_id, file), UNIQUE(session_id, last_turn))"},
    kVersion1[6],
    kVersion1[7],
};
static_assert(kVersion == 2);

[[noreturn]] void foreign(const Database& db, const std::string& why) {
    throw StoreError(db.name() + ": " + why + "; it is left as it is");
}

// The number of `objects` found; throws for anything else.
template <std::size_t N>
std::size_t check_objects(Database& db, const std::array<Object, N>& objects) {
    Statement rows = db.prepare("SELECT name, tbl_name, sql FROM sqlite_schema");
    std::size_t found = 0;
    while (rows.step()) {
        const std::string_view name = rows.text(0);
        bool known = false;
        if (rows.is_null(2)) {
            known = db::is_auto_index(
                name, rows.text(1),
                {"understandings", "sessions", "memories", "meta", "session_files"});
        } else {
            for (const auto& object : objects) {
                if (name == object.name && rows.text(2) == object.sql) known = true;
            }
            if (known) ++found;
        }
        if (!known) foreign(db, "holds an unexpected schema object '" + std::string(name) + "'");
    }
    return found;
}

}  // namespace

State inspect(Database& db) {
    const std::int64_t version = db.integer_pragma("user_version");
    const std::int64_t application = db.integer_pragma("application_id");
    if (version > kVersion) {
        if (application == kApplicationId) {
            foreign(db, "was written by a newer orvane-tamblo (schema version " +
                            std::to_string(version) + ")");
        }
        foreign(db, "is not an orvane-tamblo store");
    }
    // Each version knows its own objects, and nothing else may be there.
    const std::size_t objects =
        version == 1 ? check_objects(db, kVersion1) : check_objects(db, kVersion2);
    if (version == 0 && application == 0 && objects == 0) return State::empty;
    if (application != kApplicationId) foreign(db, "is not an orvane-tamblo store");
    if (version < 1) foreign(db, "has no schema version");
    if (objects != (version == 1 ? kVersion1.size() : kVersion2.size())) {
        foreign(db, "misses schema objects");
    }
    return version == kVersion ? State::current : State::older;
}

void migrate(Database& db) {
    Transaction transaction(db, true);
    // Another run may have migrated while we waited for the write lock.
    if (inspect(db) == State::current) return;
    // Each step brings the schema from the version before it to its own; a database is brought
    // through every step after its version, a new one through all of them.
    for (std::int64_t version = db.integer_pragma("user_version") + 1; version <= kVersion;
         ++version) {
        if (version == 1) {
            for (const auto& object : kVersion1) db.exec(object.sql);
        } else if (version == 2) {
            for (const char* statement : kToVersion2) db.exec(statement);
        }
    }
    db.exec(("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
    db.exec(("PRAGMA user_version=" + std::to_string(kVersion)).c_str());
    transaction.commit();
}

}  // namespace store::schema
