#include "engines/index/schema.hpp"

#include <array>
#include <string>
#include <string_view>

namespace code_index::schema {

using db::DatabaseError;
using db::Statement;
using db::Transaction;

namespace {

struct Object {
    const char* name;
    const char* sql;
};

// Version 1. The text is compared with what the database holds, so it never changes once
// released. Kinds and languages are the numbers of kinds.hpp and language.hpp.
constexpr std::array kObjects = {
    // state: 0 indexed, else why not (see FileState); names: the distinct names its references
    // use, packed, so that its references can be found again when the file changes.
    Object{"files",
           "CREATE TABLE files(id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE, "
           "language INTEGER, size INTEGER NOT NULL, mtime INTEGER NOT NULL, "
           "hash INTEGER NOT NULL, lines INTEGER NOT NULL, state INTEGER NOT NULL, names BLOB)"},
    // Every name once, and again in ASCII case-insensitive order for lookups that ignore case.
    Object{"names", "CREATE TABLE names(id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE)"},
    Object{"names_nocase", "CREATE INDEX names_nocase ON names(name COLLATE NOCASE)"},
    // The words of each name (getUser: get, user), for searches by camel and snake case words.
    Object{"name_words",
           "CREATE TABLE name_words(word TEXT NOT NULL, name_id INTEGER NOT NULL, "
           "PRIMARY KEY(word, name_id)) WITHOUT ROWID"},
    Object{"defs",
           "CREATE TABLE defs(id INTEGER PRIMARY KEY, file_id INTEGER NOT NULL, "
           "name_id INTEGER NOT NULL, kind INTEGER NOT NULL, line INTEGER NOT NULL, "
           "end_line INTEGER NOT NULL, parent INTEGER, scope TEXT NOT NULL, "
           "signature TEXT NOT NULL)"},
    Object{"defs_by_name", "CREATE INDEX defs_by_name ON defs(name_id)"},
    Object{"defs_by_file", "CREATE INDEX defs_by_file ON defs(file_id, line)"},
    // Clustered by name: a symbol's references are one range of pages. in_def is the definition
    // (of the same file) that encloses the reference.
    Object{"refs",
           "CREATE TABLE refs(name_id INTEGER NOT NULL, file_id INTEGER NOT NULL, "
           "line INTEGER NOT NULL, col INTEGER NOT NULL, kind INTEGER NOT NULL, in_def INTEGER, "
           "PRIMARY KEY(name_id, file_id, line, col)) WITHOUT ROWID"},
    // refreshed_at (ms), indexed_digest (see outline.hpp), and what the MCP server that keeps the
    // index current says of itself.
    Object{"meta", "CREATE TABLE meta(key TEXT PRIMARY KEY, value NOT NULL)"},
};

[[noreturn]] void foreign(const Database& db, const std::string& why) {
    throw DatabaseError(db.name() + ": " + why + "; it is left as it is");
}

}  // namespace

State inspect(Database& db) {
    const std::int64_t version = db.integer_pragma("user_version");
    const std::int64_t application = db.integer_pragma("application_id");
    Statement rows = db.prepare("SELECT name, tbl_name, sql FROM sqlite_schema");
    std::size_t objects = 0, known = 0;
    while (rows.step()) {
        ++objects;
        const std::string_view name = rows.text(0);
        bool ok = false;
        if (rows.is_null(2)) {
            ok = db::is_auto_index(name, rows.text(1), {"files", "names", "meta"});
        } else {
            for (const auto& object : kObjects) {
                if (name == object.name && rows.text(2) == object.sql) ok = true;
            }
            if (ok) ++known;
        }
        // Another version may hold other objects; only this version's must be exactly ours.
        if (!ok && version == kVersion && application == kApplicationId) {
            foreign(db, "holds an unexpected schema object '" + std::string(name) + "'");
        }
    }
    if (version == 0 && application == 0 && objects == 0) return State::empty;
    if (application != kApplicationId) foreign(db, "is not an orvane-tamblo code index");
    if (version != kVersion) return State::other;
    if (known != kObjects.size()) foreign(db, "misses schema objects");
    return State::current;
}

void create(Database& db) {
    Transaction transaction(db, true);
    for (const auto& object : kObjects) db.exec(object.sql);
    db.exec(("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
    db.exec(("PRAGMA user_version=" + std::to_string(kVersion)).c_str());
    transaction.commit();
}

}  // namespace code_index::schema
