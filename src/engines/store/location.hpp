#pragma once

#include <string>

#include "engines/db/data_dir.hpp"

namespace store {

// Where the store is, as the user knows it (relative to the repository).
inline constexpr const char* kStoreDisplayPath = "memory/codebase-index/orvane.db";
inline constexpr const char* kStoreFileName = "orvane.db";

using StoreLocation = db::DatabaseLocation;

// Finds the store under `root` without ever leaving the repository (see db::locate_database):
// orvane.db may be a link to a file inside the repository. Throws StoreError.
inline StoreLocation locate_store(const std::string& root, bool create) {
    return db::locate_database(root, kStoreFileName, db::FileLinks::inside, "the store", create);
}

}  // namespace store
