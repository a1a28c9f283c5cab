#include "host/store/location.hpp"

#include "host/store/sqlite.hpp"
#include "platform/dirs.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"

namespace host::store {

namespace {

[[noreturn]] void refuse(const std::string& shown, const std::string& why) {
    throw StoreError("refusing the store: " + shown + " " + why);
}

// The canonical path of `path` (shown to the user as `shown`) once it is a directory inside
// `root`; "" when it is missing and may not be created.
std::string enter_directory(const std::string& root, const std::string& path,
                            const std::string& shown, bool create) {
    platform::PathKind kind = platform::path_kind(path);
    if (kind == platform::PathKind::missing) {
        if (!create) return "";
        platform::make_directory(path);
        kind = platform::path_kind(path);  // ours, or whatever a concurrent run made there
    }
    if (kind == platform::PathKind::symlink) {
        const std::string target = platform::canonical_path(path);
        if (!is_inside(root, target)) {
            refuse(shown, "is a symbolic link that leads outside the repository");
        }
        kind = platform::path_kind(target);
        if (kind == platform::PathKind::missing && !create) return "";
        if (kind != platform::PathKind::directory) {
            refuse(shown, "is a symbolic link to no directory");
        }
        return target;
    }
    if (kind != platform::PathKind::directory) refuse(shown, "is not a directory");
    return path;
}

}  // namespace

bool is_inside(const std::string& root, const std::string& path) {
    return platform::is_within(platform::split_path(platform::normal_case(root)),
                               platform::split_path(platform::normal_case(path)));
}

StoreLocation locate_store(const std::string& root_dir, bool create) {
    try {
        StoreLocation location;
        location.root = platform::canonical_path(root_dir);
        const std::string memory = enter_directory(
            location.root, platform::join_path(location.root, "memory"), "memory", create);
        if (memory.empty()) return location;
        location.dir = enter_directory(location.root, platform::join_path(memory, "codebase-index"),
                                       "memory/codebase-index", create);
        if (location.dir.empty()) return location;

        location.db_path = platform::join_path(location.dir, "orvane.db");
        const std::string shown = kStoreDisplayPath;
        switch (platform::path_kind(location.db_path)) {
            case platform::PathKind::missing:
                break;
            case platform::PathKind::regular:
                location.exists = true;
                break;
            case platform::PathKind::symlink: {
                const std::string target = platform::canonical_path(location.db_path);
                if (!is_inside(location.root, target)) {
                    refuse(shown, "is a symbolic link that leads outside the repository");
                }
                if (platform::path_kind(target) != platform::PathKind::regular) {
                    refuse(shown, "is a symbolic link to no regular file");
                }
                location.db_path = target;
                location.exists = true;
                break;
            }
            default:
                refuse(shown, "is not a regular file");
        }
        // The store runs in WAL mode and never writes a rollback journal. One beside it was left by
        // another program that died mid-transaction, and SQLite would play it back into the
        // database at the first write, undoing whatever it likes: the files are not ours to touch.
        if (platform::path_kind(location.db_path + "-journal") != platform::PathKind::missing) {
            refuse(shown + "-journal",
                   "is a rollback journal left by another program; it and the database are left "
                   "as they are");
        }
        // SQLite opens these beside the database; neither may be a link, a FIFO or a device.
        for (const char* suffix : {"-wal", "-shm"}) {
            const auto kind = platform::path_kind(location.db_path + suffix);
            if (kind != platform::PathKind::missing && kind != platform::PathKind::regular) {
                refuse(shown + suffix, "is not a regular file");
            }
        }
        if (create && !location.exists) {
            platform::create_file_no_replace(platform::join_path(location.dir, ".gitignore"),
                                             "*\n");
        }
        return location;
    } catch (const platform::OsError& e) {
        throw StoreError(e.what());
    } catch (const std::invalid_argument& e) {
        throw StoreError(e.what());
    }
}

}  // namespace host::store
