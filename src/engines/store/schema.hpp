#pragma once

#include <cstdint>

#include "engines/store/database.hpp"

namespace store::schema {

// The schema this release reads and writes (PRAGMA user_version).
inline constexpr std::int64_t kVersion = 2;
// Marks the file as ours (PRAGMA application_id): "OrvT".
inline constexpr std::int64_t kApplicationId = 0x4f727654;

enum class State {
    empty,    // a database without any object: nothing stored yet
    current,  // this release's schema
    older,    // an earlier release's schema, to be migrated before use
};

// Reads the marks and the objects of the database. Throws StoreError for a database that is not
// ours, comes from a newer release, or holds anything its version's schema does not.
State inspect(Database& db);

// Brings an empty or older database to kVersion inside one write transaction; a concurrent run
// that got there first leaves nothing to do.
void migrate(Database& db);

}  // namespace store::schema
