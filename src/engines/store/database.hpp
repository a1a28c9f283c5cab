#pragma once

#include "engines/db/sqlite.hpp"

namespace store {

// The store is one SQLite database; its failures are the database's, described for the user.
using db::Database;
using db::Statement;
using db::Transaction;
using StoreError = db::DatabaseError;

}  // namespace store
