#include "engines/store/store.hpp"

#include <sqlite3.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>

#include "engines/store/schema.hpp"
#include "platform/clock.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/random.hpp"

namespace store {

namespace {

// The store runs in WAL mode. A database not in it yet (a new file, a zero-length one somebody
// left, a store an earlier release adopted from such a file) is switched with its rollback
// journal in memory: a journal file beside the store would make every other run refuse it.
// Runs racing to switch the same file lock each other out in ways SQLite answers with an
// immediate "locked" rather than a wait (waiting could deadlock): they try again, within the time
// a writer may wait for a lock.
void use_wal(Database& db) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(4500);
    for (int attempt = 0;; ++attempt) {
        try {
            {
                Statement mode = db.prepare("PRAGMA journal_mode");
                if (mode.step() && mode.text(0) == "wal") return;
            }
            db.exec("PRAGMA journal_mode=MEMORY");
            Statement wal = db.prepare("PRAGMA journal_mode=WAL");
            if (wal.step() && wal.text(0) == "wal") return;
            throw StoreError(db.name() + ": cannot be switched to WAL mode");
        } catch (const StoreError&) {
            const int code = sqlite3_errcode(db.handle());
            if ((code != SQLITE_BUSY && code != SQLITE_LOCKED) ||
                std::chrono::steady_clock::now() > deadline) {
                throw;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(attempt < 4 ? 1 << attempt : 20));
    }
}

// Builds the first database beside its final name and links it into place only once it is whole
// in its own file and synced, so that concurrent runs never see a database without its schema, of
// several racing creators one wins whole, and a failure (a full disk) leaves no store behind: the
// next write simply tries again.
void create_database(const StoreLocation& location) {
    const std::string temp = db::new_database_path(location.db_path);
    const auto remove_temp = [&] {
        for (const char* companion : {"", "-wal", "-shm", "-journal"}) {
            platform::remove_file(temp + companion);
        }
    };
    try {
        std::int64_t size = 0;
        {
            Database db(temp, kStoreDisplayPath, Database::Mode::create);
            // Nobody else opens the file before it has its name: the WAL's index stays in this
            // process's memory rather than in a -shm file.
            db.exec("PRAGMA locking_mode=EXCLUSIVE");
            use_wal(db);
            schema::migrate(db);
            db.checkpoint();
            size = db.integer_pragma("page_count") * db.integer_pragma("page_size");
        }
        const auto written = platform::file_signature(temp);
        if (!written || written->size != size) {
            throw StoreError(std::string(kStoreDisplayPath) + ": could not be written whole");
        }
        platform::place_no_replace(temp, location.db_path);
    } catch (const platform::OsError& e) {
        remove_temp();
        throw StoreError(e.what());
    } catch (...) {
        remove_temp();
        throw;
    }
    remove_temp();
}

// Settings of every connection (none of them is kept in the file).
void configure(Database& db, bool write) {
    // A run reads each page about once: a small cache keeps a scan of a large store from growing
    // the process by the size of the database.
    db.exec("PRAGMA cell_size_check=ON; PRAGMA cache_size=-64");
    // In WAL mode, NORMAL syncs at checkpoints only: a power loss may take the last turns, never
    // the database.
    if (write) db.exec("PRAGMA synchronous=NORMAL");
}

}  // namespace

std::int64_t now_ms() {
    return std::llround(platform::epoch_seconds() * 1000.0);
}

Store Store::open(Access access, const std::string& root) {
    const bool write = access == Access::write;
    Store store;
    store.location_ = locate_store(root, write);
    // Honoured even where the permissions would not stop us (as root): the user meant it.
    if (write && store.location_.exists && platform::is_read_only(store.location_.db_path)) {
        throw StoreError(std::string(kStoreDisplayPath) + ": the file is read-only");
    }
    if (write) db::remove_leftovers(store.location_.dir, kStoreFileName);
    if (!store.location_.exists) {
        if (!write) return store;
        create_database(store.location_);
        store.location_.exists = true;
    }
    Database db(store.location_.db_path, kStoreDisplayPath,
                write ? Database::Mode::read_write : Database::Mode::read_only);
    configure(db, write);
    const schema::State state = schema::inspect(db);
    if (!write && state == schema::State::empty) return store;  // nothing in it yet
    // Migrating takes the write lock.
    if (!write && state == schema::State::older) return open(Access::write, root);
    if (write) use_wal(db);
    if (state != schema::State::current) schema::migrate(db);
    store.db_ = std::move(db);
    return store;
}

bool Store::unchanged() {
    if (!db_) return false;
    // Where the file system cannot tell (Windows), an open database cannot be deleted either.
    int moved = 0;
    const int rc = sqlite3_file_control(db_->handle(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
    if ((rc != SQLITE_OK && rc != SQLITE_NOTFOUND) || moved != 0) return false;
    return db_->integer_pragma("user_version") == schema::kVersion;
}

Database& Store::db() {
    if (!db_) throw StoreError(std::string(kStoreDisplayPath) + ": no store to write to");
    return *db_;
}

void Store::prune_if_due(std::int64_t now) {
    Database& database = db();
    {
        Statement last = database.prepare("SELECT value FROM meta WHERE key='last_prune'");
        // A time in the future means the clock went back: prune rather than wait for it.
        if (last.step() && now - last.integer(0) < kPruneIntervalMs && last.integer(0) <= now) {
            return;
        }
    }
    const std::int64_t cutoff = now - kSessionRetentionMs;
    // A bounded share per write: the hooks give a write a few seconds, and a run killed in the
    // middle of a large deletion would undo it and leave it to every later write. What is left
    // over goes with the next writes, before the day's mark is set.
    database
        .prepare(
            "DELETE FROM turns WHERE id IN (SELECT id FROM turns WHERE session_id IN "
            "(SELECT id FROM sessions WHERE last_activity < ?1) LIMIT ?2)")
        .bind(1, cutoff)
        .bind(2, kPruneTurnsPerWrite)
        .run();
    if (database.changes() >= kPruneTurnsPerWrite) return;
    const char* const gone =
        "SELECT id FROM sessions WHERE last_activity < ?1 AND NOT EXISTS "
        "(SELECT 1 FROM turns WHERE turns.session_id=sessions.id)";
    database.prepare(std::string("DELETE FROM session_files WHERE session_id IN (") + gone + ")")
        .bind(1, cutoff)
        .run();
    database.prepare(std::string("DELETE FROM sessions WHERE id IN (") + gone + ")")
        .bind(1, cutoff)
        .run();
    database
        .prepare(
            "INSERT INTO meta(key, value) VALUES('last_prune', ?1) "
            "ON CONFLICT(key) DO UPDATE SET value=excluded.value")
        .bind(1, now)
        .run();
}

StoreCounts Store::counts() {
    StoreCounts counts;
    if (!db_) return counts;
    Statement stmt = db_->prepare(
        "SELECT (SELECT count(*) FROM understandings), (SELECT count(*) FROM sessions), "
        "(SELECT count(*) FROM turns), (SELECT count(*) FROM memories)");
    if (stmt.step()) {
        counts = {stmt.integer(0), stmt.integer(1), stmt.integer(2), stmt.integer(3)};
    }
    return counts;
}

std::int64_t Store::schema_version() {
    return db_ ? db_->integer_pragma("user_version") : 0;
}

}  // namespace store
