#include "host/store/schema.hpp"

#include <array>
#include <string>
#include <string_view>

namespace host::store::schema {

namespace {

struct Object {
    const char* name;
    const char* sql;
};

// Version 1. Times are milliseconds since the Unix epoch. The text is compared with what the
// database holds, so it never changes once released: a change is a new version and a migration.
constexpr std::array kObjects = {
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

// Tables whose PRIMARY KEY or UNIQUE constraint gives SQLite's own index (no SQL text).
constexpr std::array<std::string_view, 5> kAutoIndexed = {"understandings", "understanding_notes",
                                                          "sessions", "memories", "meta"};

bool expected_auto_index(std::string_view name, std::string_view table) {
    for (const auto t : kAutoIndexed) {
        if (t == table) {
            return name.starts_with("sqlite_autoindex_") && name.substr(17).starts_with(table) &&
                   name.size() > 17 + table.size() && name[17 + table.size()] == '_';
        }
    }
    return false;
}

[[noreturn]] void foreign(const Database& db, const std::string& why) {
    throw StoreError(db.name() + ": " + why + "; it is left as it is");
}

// The number of this version's objects found; throws for anything else.
std::size_t check_objects(Database& db) {
    Statement rows = db.prepare("SELECT name, tbl_name, sql FROM sqlite_schema");
    std::size_t found = 0;
    while (rows.step()) {
        const std::string_view name = rows.text(0);
        bool known = false;
        if (rows.is_null(2)) {
            known = expected_auto_index(name, rows.text(1));
        } else {
            for (const auto& object : kObjects) {
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
    const std::size_t objects = check_objects(db);
    if (version == 0 && application == 0 && objects == 0) return State::empty;
    if (application != kApplicationId) foreign(db, "is not an orvane-tamblo store");
    if (version > kVersion) {
        foreign(db, "was written by a newer orvane-tamblo (schema version " +
                        std::to_string(version) + ")");
    }
    if (version < 1) foreign(db, "has no schema version");
    if (version == kVersion && objects != kObjects.size()) foreign(db, "misses schema objects");
    return version == kVersion ? State::current : State::older;
}

void migrate(Database& db) {
    Transaction transaction(db, true);
    // Another run may have migrated while we waited for the write lock.
    if (inspect(db) == State::current) return;
    // Each step brings the schema from the version before it to its own; a database is brought
    // through every step after its version. Version 1 is the first: it creates everything.
    for (std::int64_t version = db.integer_pragma("user_version") + 1; version <= kVersion;
         ++version) {
        if (version == 1) {
            for (const auto& object : kObjects) db.exec(object.sql);
        }
    }
    db.exec(("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
    db.exec(("PRAGMA user_version=" + std::to_string(kVersion)).c_str());
    transaction.commit();
}

}  // namespace host::store::schema
