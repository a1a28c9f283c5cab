#pragma once

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace db {

// A failure of the store, described in one line for the person who reads it.
class DatabaseError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Statement;

// One connection, closed with the object. Every failure throws DatabaseError naming `name`, the
// path the user knows the database by.
class Database {
  public:
    enum class Mode { read_only, read_write, create };

    Database(const std::string& path, std::string name, Mode mode);
    Database(Database&& other) noexcept;
    Database& operator=(Database&& other) noexcept;
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    // Runs SQL that returns no rows.
    void exec(const char* sql);
    Statement prepare(std::string_view sql);
    std::int64_t integer_pragma(const char* name);
    // Rows changed by the last INSERT, UPDATE or DELETE.
    std::int64_t changes() const;

    // Checkpoints the WAL down to nothing once it has grown long enough; never fails.
    void checkpoint_when_due();
    // Checkpoints the WAL down to nothing now; throws when it cannot (a full disk, say).
    void checkpoint();

    sqlite3* handle() const { return db_; }
    const std::string& name() const { return name_; }
    [[noreturn]] void fail() const;

  private:
    static int count_wal_frames(void* self, sqlite3* db, const char* schema, int frames);
    static int wait_for_lock(void* self, int attempt);
    void hook_callbacks();
    // Each statement may wait this long from its start for a lock another connection holds.
    void allow_wait(std::chrono::milliseconds wait);

    sqlite3* db_ = nullptr;
    std::string name_;
    int wal_frames_ = 0;  // frames in the WAL after our last commit
    std::chrono::steady_clock::time_point wait_until_;
};

// A prepared statement of one Database; finalized with the object.
class Statement {
  public:
    Statement(const Database& db, sqlite3_stmt* stmt) : db_(&db), stmt_(stmt) {}
    Statement(Statement&& other) noexcept;
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    Statement& operator=(Statement&&) = delete;
    ~Statement();

    // Parameters count from 1, as in SQL.
    Statement& bind(int index, std::string_view text);
    Statement& bind(int index, const std::string& text) {
        return bind(index, std::string_view(text));
    }
    Statement& bind(int index, const char* text) { return bind(index, std::string_view(text)); }
    Statement& bind(int index, std::int64_t value);
    Statement& bind(int index, const std::optional<std::string>& text);
    Statement& bind_null(int index);
    Statement& bind_blob(int index, std::string_view bytes);

    // True while there is a row to read; false when done.
    bool step();
    // Runs a statement that returns no rows.
    void run();
    void reset();

    // Columns count from 0.
    bool is_null(int column) const;
    std::int64_t integer(int column) const;
    std::string_view text(int column) const;
    std::string_view blob(int column) const;
    std::optional<std::string> optional_text(int column) const;

  private:
    const Database* db_;
    sqlite3_stmt* stmt_;
};

// One transaction: BEGIN IMMEDIATE for writes (the write lock taken up front, so that concurrent
// writers queue on the busy time-out instead of failing), a plain BEGIN for reads. Rolled back
// unless committed.
class Transaction {
  public:
    Transaction(Database& db, bool write);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();
    void commit();

  private:
    Database& db_;
    bool open_ = true;
};

// Whether `name` is one of the indexes SQLite makes itself for a PRIMARY KEY or UNIQUE constraint
// of `table` (they have no SQL text), for one of the `tables` known to have such constraints.
bool is_auto_index(std::string_view name, std::string_view table,
                   std::initializer_list<std::string_view> tables);

}  // namespace db
