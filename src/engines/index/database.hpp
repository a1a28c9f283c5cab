#pragma once

#include <optional>
#include <string>

#include "host/store/sqlite.hpp"

namespace code_index {

using host::store::Database;
using host::store::Statement;
using host::store::StoreError;
using host::store::Transaction;

// Where the index is, as the user knows it (relative to the repository). It is also the marker
// that tells the hooks' symbol nudge the repository is indexed.
inline constexpr const char* kIndexDisplayPath = "memory/codebase-index/index.db";

// A failure of the index, in one line for the person who reads it.
using IndexError = StoreError;

struct IndexLocation {
    std::string root;     // the repository: the canonical working directory
    std::string dir;      // canonical memory/codebase-index, when it exists
    std::string db_path;  // the index file, when the directory exists
    bool exists = false;  // whether the index file is there
};

// Finds the index under `root` without leaving the repository, as the store is found: memory and
// memory/codebase-index may be links only to places inside it; index.db must be a regular file
// (never a link: the index is ours to replace) and SQLite's companion files missing or regular.
// A rollback journal beside it means a writer that is not this program, which runs the index in
// WAL mode: the file is refused. With `create`, missing directories are made, with a .gitignore
// holding "*". Throws IndexError.
IndexLocation locate_index(const std::string& root, bool create);

// An open index of this release's layout.
class IndexDatabase {
  public:
    enum class Access { read, write };

    // The index of `root`; nullopt when there is none. Throws IndexError for a file that is not
    // ours, and for one of ours of another layout (`index` rebuilds it).
    static std::optional<IndexDatabase> open(const std::string& root, Access access);

    Database& db() { return db_; }
    const IndexLocation& location() const { return location_; }

  private:
    IndexDatabase(IndexLocation location, Database db)
        : location_(std::move(location)), db_(std::move(db)) {}

    IndexLocation location_;
    Database db_;
};

// Settings of every connection to an index (none is kept in the file).
void configure_connection(Database& db, bool write);

}  // namespace code_index
