#pragma once

#include <string>

namespace host::store {

// Where the store is, as the user knows it (relative to the repository).
inline constexpr const char* kStoreDisplayPath = "memory/codebase-index/orvane.db";

struct StoreLocation {
    std::string root;     // the repository: the canonical working directory
    std::string dir;      // canonical memory/codebase-index, when it exists
    std::string db_path;  // canonical path of the database file, when the directory exists
    bool exists = false;  // whether the database file is there
};

// Whether the canonical `path` is `root` (canonical) or lies below it, component by component.
bool is_inside(const std::string& root, const std::string& path);

// Finds the store under `root` without ever leaving the repository: memory, memory/codebase-index
// and orvane.db may be symbolic links only to places inside it, SQLite's companion files (-wal,
// -shm) must be missing or regular files, and no rollback journal (-journal) may lie beside it.
// With `create`, missing directories are made (never through a link) and a .gitignore holding "*"
// is put beside a database that is about to be created, so that the store never lands in the
// user's commits. Throws StoreError.
StoreLocation locate_store(const std::string& root, bool create);

}  // namespace host::store
