#include "engines/index/database.hpp"

#include <sqlite3.h>

#include "engines/index/schema.hpp"
#include "platform/file_info.hpp"

namespace code_index {

void configure_connection(Database& db, bool write) {
    // Queries touch a few pages; the indexer writes many and wants them cached.
    db.exec(write ? "PRAGMA cell_size_check=ON; PRAGMA cache_size=-65536"
                  : "PRAGMA cell_size_check=ON; PRAGMA cache_size=-2048");
    if (write) db.exec("PRAGMA synchronous=NORMAL");
}

std::optional<IndexDatabase> IndexDatabase::open(const std::string& root, Access access) {
    const bool write = access == Access::write;
    IndexLocation location = locate_index(root, false);
    if (!location.exists) return std::nullopt;
    if (write && platform::is_read_only(location.db_path)) {
        throw IndexError(std::string(kIndexDisplayPath) + ": the file is read-only");
    }
    Database db(location.db_path, kIndexDisplayPath,
                write ? Database::Mode::read_write : Database::Mode::read_only);
    configure_connection(db, write);
    switch (schema::inspect(db)) {
        case schema::State::current:
            break;
        case schema::State::empty:
            // Never left so by us: the index appears whole, under its name, or not at all.
            throw IndexError(std::string(kIndexDisplayPath) +
                             ": an empty database; run `orvane-tamblo index --rebuild`");
        case schema::State::other:
            throw IndexError(std::string(kIndexDisplayPath) +
                             ": built by another version of orvane-tamblo; run `orvane-tamblo "
                             "index` to rebuild it");
    }
    return IndexDatabase(std::move(location), std::move(db));
}

bool IndexDatabase::replaced() {
    // Where the file system cannot tell (Windows), an open database cannot be deleted either.
    int moved = 0;
    const int rc = sqlite3_file_control(db_.handle(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
    return (rc != SQLITE_OK && rc != SQLITE_NOTFOUND) || moved != 0;
}

}  // namespace code_index
