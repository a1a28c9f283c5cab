#include "engines/db/data_dir.hpp"

#include <cstdio>
#include <initializer_list>

#include "engines/db/sqlite.hpp"
#include "platform/clock.hpp"
#include "platform/dir_list.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"
#include "platform/random.hpp"

namespace db {

namespace {

// A new database is complete within seconds; a leftover this old belongs to a run that died.
constexpr double kLeftoverAgeSeconds = 600;
constexpr std::string_view kNewInfix = ".new-";
constexpr std::string_view kGitignoreTempPrefix = ".gitignore.tmp-";

[[noreturn]] void refuse(std::string_view what, const std::string& shown, const std::string& why) {
    throw DatabaseError("refusing " + std::string(what) + ": " + shown + " " + why);
}

// The canonical path of `path` (shown to the user as `shown`) once it is a directory inside
// `root`; "" when it is missing and may not be created.
std::string enter_directory(const std::string& root, const std::string& path,
                            const std::string& shown, std::string_view what, bool create) {
    platform::PathKind kind = platform::path_kind(path);
    if (kind == platform::PathKind::missing) {
        if (!create) return "";
        platform::make_directory(path);
        kind = platform::path_kind(path);  // ours, or whatever a concurrent run made there
    }
    if (kind == platform::PathKind::symlink) {
        const std::string target = platform::canonical_path(path);
        if (!platform::is_inside(root, target)) {
            refuse(what, shown, "is a symbolic link that leads outside the repository");
        }
        kind = platform::path_kind(target);
        if (kind == platform::PathKind::missing && !create) return "";
        if (kind != platform::PathKind::directory) {
            refuse(what, shown, "is a symbolic link to no directory");
        }
        return target;
    }
    if (kind != platform::PathKind::directory) refuse(what, shown, "is not a directory");
    return path;
}

// Whether `rest` is 16 hexadecimal digits followed by one of `suffixes`.
bool hex_then(std::string_view rest, std::initializer_list<std::string_view> suffixes) {
    if (rest.size() < 16) return false;
    for (const char c : rest.substr(0, 16)) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
    }
    for (const auto suffix : suffixes) {
        if (rest.substr(16) == suffix) return true;
    }
    return false;
}

bool is_leftover(std::string_view name, std::string_view file_name) {
    if (name.starts_with(file_name) && name.substr(file_name.size()).starts_with(kNewInfix)) {
        return hex_then(name.substr(file_name.size() + kNewInfix.size()),
                        {"", "-wal", "-shm", "-journal"});
    }
    return name.starts_with(kGitignoreTempPrefix) &&
           hex_then(name.substr(kGitignoreTempPrefix.size()), {""});
}

}  // namespace

DatabaseLocation locate_database(const std::string& root_dir, std::string_view file_name,
                                 FileLinks links, std::string_view what, bool create) {
    try {
        DatabaseLocation location;
        location.root = platform::canonical_path(root_dir);
        const std::string memory = enter_directory(
            location.root, platform::join_path(location.root, "memory"), "memory", what, create);
        if (memory.empty()) return location;
        location.dir = enter_directory(location.root, platform::join_path(memory, "codebase-index"),
                                       kDataDirectory, what, create);
        if (location.dir.empty()) return location;

        location.db_path = platform::join_path(location.dir, file_name);
        const std::string shown = std::string(kDataDirectory) + "/" + std::string(file_name);
        switch (platform::path_kind(location.db_path)) {
            case platform::PathKind::missing:
                break;
            case platform::PathKind::regular:
                location.exists = true;
                break;
            case platform::PathKind::symlink: {
                if (links == FileLinks::never) refuse(what, shown, "is a symbolic link");
                const std::string target = platform::canonical_path(location.db_path);
                if (!platform::is_inside(location.root, target)) {
                    refuse(what, shown, "is a symbolic link that leads outside the repository");
                }
                if (platform::path_kind(target) != platform::PathKind::regular) {
                    refuse(what, shown, "is a symbolic link to no regular file");
                }
                location.db_path = target;
                location.exists = true;
                break;
            }
            default:
                refuse(what, shown, "is not a regular file");
        }
        if (platform::path_kind(location.db_path + "-journal") != platform::PathKind::missing) {
            refuse(what, shown + "-journal",
                   "is a rollback journal left by another program; it and the database are left "
                   "as they are");
        }
        // SQLite opens these beside the database; neither may be a link, a FIFO or a device.
        for (const char* suffix : {"-wal", "-shm"}) {
            const auto kind = platform::path_kind(location.db_path + suffix);
            if (kind != platform::PathKind::missing && kind != platform::PathKind::regular) {
                refuse(what, shown + suffix, "is not a regular file");
            }
        }
        if (create && !location.exists) {
            platform::create_file_no_replace(platform::join_path(location.dir, ".gitignore"),
                                             "*\n");
        }
        return location;
    } catch (const platform::OsError& e) {
        throw DatabaseError(e.what());
    } catch (const std::invalid_argument& e) {
        throw DatabaseError(e.what());
    }
}

std::string new_database_path(const std::string& db_path) {
    char suffix[24];
    const int n = std::snprintf(suffix, sizeof suffix, "%016llx",
                                static_cast<unsigned long long>(platform::random_u64()));
    return db_path + std::string(kNewInfix) + std::string(suffix, static_cast<std::size_t>(n));
}

void remove_leftovers(const std::string& dir, std::string_view file_name) noexcept {
    try {
        const double now = platform::epoch_seconds();
        platform::Directory listing(dir);
        platform::DirEntry entry;
        while (listing.next(entry)) {
            if (entry.kind != platform::EntryKind::regular || !is_leftover(entry.name, file_name)) {
                continue;
            }
            const auto file = listing.signature();
            if (file && now - static_cast<double>(file->mtime_ns) / 1e9 > kLeftoverAgeSeconds) {
                platform::remove_file(platform::join_path(dir, entry.name));
            }
        }
    } catch (const std::exception&) {
    }
}

}  // namespace db
