#include "engines/index/database.hpp"

#include "engines/index/schema.hpp"
#include "host/store/location.hpp"
#include "platform/dirs.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"

namespace code_index {

namespace {

[[noreturn]] void refuse(const std::string& shown, const std::string& why) {
    throw IndexError("refusing the code index: " + shown + " " + why);
}

// The canonical directory `path` (shown as `shown`) once it is a directory inside `root`; ""
// when it is missing and may not be created.
std::string enter_directory(const std::string& root, const std::string& path,
                            const std::string& shown, bool create) {
    platform::PathKind kind = platform::path_kind(path);
    if (kind == platform::PathKind::missing) {
        if (!create) return "";
        platform::make_directory(path);
        kind = platform::path_kind(path);
    }
    if (kind == platform::PathKind::symlink) {
        const std::string target = platform::canonical_path(path);
        if (!host::store::is_inside(root, target)) {
            refuse(shown, "is a symbolic link that leads outside the repository");
        }
        kind = platform::path_kind(target);
        if (kind == platform::PathKind::missing && !create) return "";
        if (kind != platform::PathKind::directory) refuse(shown, "is a symbolic link to no directory");
        return target;
    }
    if (kind != platform::PathKind::directory) refuse(shown, "is not a directory");
    return path;
}

}  // namespace

IndexLocation locate_index(const std::string& root_dir, bool create) {
    try {
        IndexLocation location;
        location.root = platform::canonical_path(root_dir);
        const std::string memory = enter_directory(
            location.root, platform::join_path(location.root, "memory"), "memory", create);
        if (memory.empty()) return location;
        location.dir = enter_directory(location.root, platform::join_path(memory, "codebase-index"),
                                       "memory/codebase-index", create);
        if (location.dir.empty()) return location;
        location.db_path = platform::join_path(location.dir, "index.db");
        const std::string shown = kIndexDisplayPath;
        switch (platform::path_kind(location.db_path)) {
            case platform::PathKind::missing:
                break;
            case platform::PathKind::regular:
                location.exists = true;
                break;
            case platform::PathKind::symlink:
                refuse(shown, "is a symbolic link");
            default:
                refuse(shown, "is not a regular file");
        }
        for (const char* suffix : {"-wal", "-shm"}) {
            const auto kind = platform::path_kind(location.db_path + suffix);
            if (kind != platform::PathKind::missing && kind != platform::PathKind::regular) {
                refuse(shown + suffix, "is not a regular file");
            }
        }
        if (platform::path_kind(location.db_path + "-journal") != platform::PathKind::missing) {
            refuse(shown, "has a rollback journal beside it, which this program never writes");
        }
        if (create) {
            platform::create_file_no_replace(platform::join_path(location.dir, ".gitignore"),
                                             "*\n");
        }
        return location;
    } catch (const platform::OsError& e) {
        throw IndexError(e.what());
    } catch (const std::invalid_argument& e) {
        throw IndexError(e.what());
    }
}

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

}  // namespace code_index
