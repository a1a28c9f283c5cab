#pragma once

#include <optional>
#include <string>

#include "engines/db/data_dir.hpp"
#include "engines/db/sqlite.hpp"

namespace code_index {

using db::Database;
using db::DatabaseError;
using db::Statement;
using db::Transaction;

// Where the index is, as the user knows it (relative to the repository). It is also the marker
// that tells the hooks' symbol nudge the repository is indexed.
inline constexpr const char* kIndexDisplayPath = "memory/codebase-index/index.db";

// A failure of the index, in one line for the person who reads it.
using IndexError = db::DatabaseError;

using IndexLocation = db::DatabaseLocation;
inline constexpr const char* kIndexFileName = "index.db";

// Finds the index under `root` without leaving the repository (see db::locate_database): index.db
// is never a link, since the index is ours to replace. Throws IndexError.
inline IndexLocation locate_index(const std::string& root, bool create) {
    return db::locate_database(root, kIndexFileName, db::FileLinks::never, "the code index",
                               create);
}

// An open index of this release's layout.
class IndexDatabase {
  public:
    enum class Access { read, write };

    // The index of `root`; nullopt when there is none. Throws IndexError for a file that is not
    // ours, and for one of ours of another layout (`index` rebuilds it).
    static std::optional<IndexDatabase> open(const std::string& root, Access access);

    Database& db() { return db_; }
    const IndexLocation& location() const { return location_; }
    // Whether the file was deleted or replaced since it was opened (a rebuild puts a new one in
    // its place): a process that keeps it open opens it again.
    bool replaced();

  private:
    IndexDatabase(IndexLocation location, Database db)
        : location_(std::move(location)), db_(std::move(db)) {}

    IndexLocation location_;
    Database db_;
};

// Settings of every connection to an index (none is kept in the file).
void configure_connection(Database& db, bool write);

}  // namespace code_index
