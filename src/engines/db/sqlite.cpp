#include "engines/db/sqlite.hpp"

#include <sqlite3.h>

#include <thread>
#include <utility>

#include "platform/os_error.hpp"

namespace db {

namespace {

// How long a run waits for a lock another run holds. The hooks give `conversation log-turn` 5 s,
// whether its process is forked or executed; what is left after this wait is room to start, write
// and answer. Wall time, not the sum of the sleeps: on a loaded machine every sleep overruns, and
// SQLite's own busy time-out would then outlast the hook's limit.
constexpr auto kLockWait = std::chrono::milliseconds(4500);
// About 128 KiB of 4 KiB pages, four or five turns: a later run reads at most that much of the WAL
// to open it (SQLite rebuilds the WAL's index from it, some 6,000 instructions a page, the largest
// part of a short read once the WAL has grown), and a writer pays a checkpoint's fsyncs once per
// that much written.
constexpr int kCheckpointFrames = 32;
// A checkpoint waits this long for readers to finish before leaving the work to a later writer.
constexpr auto kCheckpointWait = std::chrono::milliseconds(200);
// Opening for writing, tried this often (waiting 20, 40, ... ms between) before giving up.
constexpr int kWriteOpenAttempts = 5;
// No text this program stores comes near this; a crafted database cannot make us allocate more.
constexpr int kMaxValueBytes = 16 * 1024 * 1024;

std::string describe(sqlite3* db, const std::string& name) {
    if (db == nullptr) return name + ": out of memory";
    // SQLite names a full disk only for some writes; running out of space while it sizes its
    // shared-memory file, say, comes back as "disk I/O error".
    if (platform::is_disk_full(sqlite3_system_errno(db))) {
        return name + ": " + sqlite3_errstr(SQLITE_FULL);
    }
    return name + ": " + sqlite3_errmsg(db);
}

// Library settings, made once before the first connection opens.
void configure_library() {
    static const bool configured = [] {
        // Nothing here reads SQLite's memory statistics, and keeping them takes a lock and two
        // counter updates on every allocation: a tenth of a short run's instructions.
        sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
        sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
        return true;
    }();
    (void)configured;
}

}  // namespace

Database::Database(const std::string& path, std::string name, Mode mode) : name_(std::move(name)) {
    configure_library();
    int flags = SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_EXRESCODE | SQLITE_OPEN_NOMUTEX;
    switch (mode) {
        case Mode::read_only:
            flags |= SQLITE_OPEN_READONLY;
            break;
        case Mode::read_write:
            flags |= SQLITE_OPEN_READWRITE;
            break;
        case Mode::create:
            flags |= SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
            break;
    }
    for (int attempt = 1;; ++attempt) {
        const int rc = sqlite3_open_v2(path.c_str(), &db_, flags, nullptr);
        if (rc != SQLITE_OK) {
            const std::string message = describe(db_, name_);
            sqlite3_close(db_);
            db_ = nullptr;
            throw DatabaseError(message);
        }
        // When the file cannot be opened for writing at this moment (on Windows, another
        // process's handle that does not share it for a while), SQLite quietly opens it read-only
        // and the first write fails. Asked for writing, we try again, then say so.
        if (mode == Mode::read_only || sqlite3_db_readonly(db_, "main") != 1) break;
        sqlite3_close(db_);
        db_ = nullptr;
        if (attempt == kWriteOpenAttempts) {
            throw DatabaseError(name_ + ": cannot be opened for writing");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20 * attempt));
    }
    allow_wait(kLockWait);
    hook_callbacks();
    sqlite3_extended_result_codes(db_, 1);
    // The file may come from a cloned repository: use it as SQLite advises for databases of
    // unknown origin. No schema object may call functions with side effects, run as a trigger or
    // view, or corrupt the file through direct writes.
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    if (mode == Mode::read_write) {
        // Each run is one short process, and the first connection to a database rebuilds the
        // WAL's index by reading the whole WAL. A checkpoint at every close would cost each write
        // two fsyncs (milliseconds on a real disk); none at all would make every later run read
        // an ever longer WAL. So writers let it grow to kCheckpointFrames and then checkpoint it
        // down to nothing (see commit).
        sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    }
    sqlite3_limit(db_, SQLITE_LIMIT_LENGTH, kMaxValueBytes);
    sqlite3_limit(db_, SQLITE_LIMIT_ATTACHED, 0);
}

Database::Database(Database&& other) noexcept
    : db_(std::exchange(other.db_, nullptr)),
      name_(std::move(other.name_)),
      wal_frames_(other.wal_frames_),
      wait_until_(other.wait_until_) {
    hook_callbacks();
}

Database& Database::operator=(Database&& other) noexcept {
    if (this != &other) {
        sqlite3_close(db_);
        db_ = std::exchange(other.db_, nullptr);
        name_ = std::move(other.name_);
        wal_frames_ = other.wal_frames_;
        wait_until_ = other.wait_until_;
        hook_callbacks();
    }
    return *this;
}

// The callbacks get `this`, which a move changes.
void Database::hook_callbacks() {
    if (db_ == nullptr) return;
    sqlite3_busy_handler(db_, &Database::wait_for_lock, this);
    if (!sqlite3_db_readonly(db_, "main")) sqlite3_wal_hook(db_, &Database::count_wal_frames, this);
}

void Database::allow_wait(std::chrono::milliseconds wait) {
    wait_until_ = std::chrono::steady_clock::now() + wait;
}

int Database::wait_for_lock(void* self, int attempt) {
    const auto left = static_cast<Database*>(self)->wait_until_ - std::chrono::steady_clock::now();
    if (left <= left.zero()) return 0;
    // Most locks are held for a millisecond or two: poll often at first, then every 20 ms, which
    // keeps a queue of a hundred waiters moving without a storm of attempts.
    constexpr int kPollMs[] = {1, 1, 2, 2, 5, 5, 10, 10};
    const auto poll = std::chrono::milliseconds(
        attempt < static_cast<int>(std::size(kPollMs)) ? kPollMs[attempt] : 20);
    std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(poll, left));
    return 1;
}

int Database::count_wal_frames(void* self, sqlite3* /*db*/, const char* /*schema*/, int frames) {
    static_cast<Database*>(self)->wal_frames_ = frames;
    return SQLITE_OK;
}

void Database::checkpoint_when_due() {
    if (wal_frames_ < kCheckpointFrames) return;
    // Busy (a reader still in the WAL) only postpones it to a later writer.
    allow_wait(kCheckpointWait);
    sqlite3_wal_checkpoint_v2(db_, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    wal_frames_ = 0;
}

void Database::checkpoint() {
    allow_wait(kLockWait);
    if (sqlite3_wal_checkpoint_v2(db_, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr) !=
        SQLITE_OK) {
        fail();
    }
    wal_frames_ = 0;
}

Database::~Database() {
    sqlite3_close(db_);
}

void Database::exec(const char* sql) {
    allow_wait(kLockWait);
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
}

Statement Database::prepare(std::string_view sql) {
    allow_wait(kLockWait);
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db_, sql.data(), static_cast<int>(sql.size()), &stmt, nullptr) !=
        SQLITE_OK) {
        fail();
    }
    return Statement(*this, stmt);
}

std::int64_t Database::integer_pragma(const char* name) {
    Statement stmt = prepare(std::string("PRAGMA ") + name);
    return stmt.step() ? stmt.integer(0) : 0;
}

std::int64_t Database::changes() const {
    return sqlite3_changes64(db_);
}

void Database::fail() const {
    throw DatabaseError(describe(db_, name_));
}

Statement::Statement(Statement&& other) noexcept
    : db_(other.db_), stmt_(std::exchange(other.stmt_, nullptr)) {}

Statement::~Statement() {
    sqlite3_finalize(stmt_);
}

Statement& Statement::bind(int index, std::string_view text) {
    if (sqlite3_bind_text64(stmt_, index, text.data(), text.size(), SQLITE_TRANSIENT,
                            SQLITE_UTF8) != SQLITE_OK) {
        db_->fail();
    }
    return *this;
}

Statement& Statement::bind(int index, std::int64_t value) {
    if (sqlite3_bind_int64(stmt_, index, value) != SQLITE_OK) db_->fail();
    return *this;
}

Statement& Statement::bind(int index, const std::optional<std::string>& text) {
    return text ? bind(index, std::string_view(*text)) : bind_null(index);
}

Statement& Statement::bind_null(int index) {
    if (sqlite3_bind_null(stmt_, index) != SQLITE_OK) db_->fail();
    return *this;
}

Statement& Statement::bind_blob(int index, std::string_view bytes) {
    if (sqlite3_bind_blob64(stmt_, index, bytes.data(), bytes.size(), SQLITE_TRANSIENT) !=
        SQLITE_OK) {
        db_->fail();
    }
    return *this;
}

bool Statement::step() {
    const int rc = sqlite3_step(stmt_);
    if (rc == SQLITE_ROW) return true;
    if (rc == SQLITE_DONE) return false;
    db_->fail();
}

void Statement::run() {
    while (step()) {
    }
}

void Statement::reset() {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
}

bool Statement::is_null(int column) const {
    return sqlite3_column_type(stmt_, column) == SQLITE_NULL;
}

std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(stmt_, column);
}

std::string_view Statement::text(int column) const {
    const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, column));
    if (data == nullptr) return {};
    return {data, static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column))};
}

std::string_view Statement::blob(int column) const {
    const void* data = sqlite3_column_blob(stmt_, column);
    if (data == nullptr) return {};
    return {static_cast<const char*>(data),
            static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column))};
}

std::optional<std::string> Statement::optional_text(int column) const {
    if (is_null(column)) return std::nullopt;
    return std::string(text(column));
}

Transaction::Transaction(Database& db, bool write) : db_(db) {
    db_.exec(write ? "BEGIN IMMEDIATE" : "BEGIN");
}

Transaction::~Transaction() {
    if (open_) sqlite3_exec(db_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
    db_.exec("COMMIT");
    open_ = false;
    db_.checkpoint_when_due();
}

bool is_auto_index(std::string_view name, std::string_view table,
                   std::initializer_list<std::string_view> tables) {
    constexpr std::string_view kPrefix = "sqlite_autoindex_";
    for (const std::string_view known : tables) {
        if (known == table) {
            return name.starts_with(kPrefix) && name.substr(kPrefix.size()).starts_with(table) &&
                   name.size() > kPrefix.size() + table.size() &&
                   name[kPrefix.size() + table.size()] == '_';
        }
    }
    return false;
}

}  // namespace db
