#pragma once

#include <cstdint>

#include "engines/db/sqlite.hpp"

namespace code_index::schema {

using db::Database;

// The layout this release writes (PRAGMA user_version). The index is derived from the sources, so
// a change is a new version, and an index of another version is rebuilt rather than migrated.
inline constexpr std::int64_t kVersion = 1;
// Marks the file as an orvane-tamblo code index (PRAGMA application_id): "OrvI".
inline constexpr std::int64_t kApplicationId = 0x4f727649;

enum class State {
    empty,    // no object at all: a file just created
    current,  // this release's layout
    other,    // ours, of another version: to be rebuilt
};

// Reads the marks and the objects. Throws DatabaseError for a file that is not ours, or ours but
// holding anything its version's layout does not.
State inspect(Database& db);

// Creates this version's objects in an empty database, in one transaction.
void create(Database& db);

}  // namespace code_index::schema
