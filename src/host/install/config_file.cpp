#include "host/install/config_file.hpp"

#include "host/install/hook_config.hpp"
#include "platform/atomic_file.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "support/json_pretty.hpp"

namespace host::install {

using support::Json;

namespace {

constexpr const char* kLeftAlone = "; it was left as it is";

std::string parent_of(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

// Calls `visit(path, shown)` for each directory between the repository's root and the file.
template <typename Visit>
void for_each_repo_directory(const ConfigTarget& target, Visit visit) {
    std::string path = target.repo_root;
    std::string shown;
    std::size_t start = 0;
    for (;;) {
        const std::size_t slash = target.shown.find('/', start);
        if (slash == std::string::npos) return;
        const std::string part = target.shown.substr(start, slash - start);
        path = platform::join_path(path, part);
        shown += shown.empty() ? part : "/" + part;
        if (!visit(path, shown)) return;
        start = slash + 1;
    }
}

std::optional<std::string> read_plain_file(const std::string& path) {
    if (platform::path_kind(path) != platform::PathKind::regular) return std::nullopt;
    return platform::read_regular_file(path);
}

bool is_scaffolding(const Json& doc) {
    if (!doc.is_object()) return false;
    for (const auto& [key, value] : doc.members()) {
        if (key != "version") return false;
    }
    return true;
}

}  // namespace

void check_directories(const ConfigTarget& target) {
    // A repository could plant a link on the way to send our write anywhere the user may write.
    if (target.repo_root.empty()) return;
    for_each_repo_directory(target, [&](const std::string& path, const std::string& shown) {
        switch (platform::path_kind(path)) {
            case platform::PathKind::missing:
                return false;
            case platform::PathKind::directory:
                return true;
            case platform::PathKind::symlink:
                throw ConfigError(shown +
                                  " is a symbolic link, which orvane-tamblo does not "
                                  "follow in a repository, so " +
                                  target.shown + " was left as it is");
            default:
                throw ConfigError(shown + " is not a directory, so " + target.shown +
                                  " was left as it is");
        }
    });
}

void make_directories(const ConfigTarget& target) {
    if (target.repo_root.empty()) {
        platform::create_directories(parent_of(target.path));
        return;
    }
    for_each_repo_directory(target, [&](const std::string& path, const std::string& shown) {
        platform::make_directory(path);
        if (platform::path_kind(path) != platform::PathKind::directory) {
            throw ConfigError(shown + " is not a directory");
        }
        return true;
    });
}

void remove_emptied_directories(const ConfigTarget& target) {
    const std::string relative = target.repo_root.empty() ? target.shown.substr(2) : target.shown;
    const std::string base = target.path.substr(0, target.path.size() - relative.size());
    for (std::size_t slash = relative.rfind('/'); slash != std::string::npos && slash > 0;
         slash = relative.rfind('/', slash - 1)) {
        if (!platform::remove_empty_directory(base + relative.substr(0, slash))) return;
    }
}

LoadedConfig load_config(const ConfigTarget& target) {
    LoadedConfig loaded;
    loaded.target = target;
    try {
        check_directories(target);
        switch (platform::path_kind(target.path)) {
            case platform::PathKind::missing:
                break;
            case platform::PathKind::regular: {
                auto bytes = platform::read_regular_file(target.path);
                if (!bytes) throw ConfigError(target.shown + " vanished while it was read");
                loaded.exists = true;
                loaded.bytes = std::move(*bytes);
                loaded.read_only = platform::is_read_only(target.path);
                break;
            }
            case platform::PathKind::symlink:
                // Replacing the link would break whatever it stands for; writing through it
                // would write somewhere else.
                throw ConfigError(target.shown +
                                  " is a symbolic link, which orvane-tamblo does not write "
                                  "through" +
                                  kLeftAlone);
            default:
                throw ConfigError(target.shown + " is not a regular file" + kLeftAlone);
        }
        if (auto backup = read_plain_file(target.path + ".bak")) {
            loaded.backup_read_only = platform::is_read_only(target.path + ".bak");
            try {
                loaded.backup = support::parse_json(*backup);
                loaded.backup_bytes = std::move(*backup);
            } catch (const std::exception&) {
                // An unusable backup only means we cannot give those bytes back.
            }
        }
    } catch (const ConfigError&) {
        throw;
    } catch (const std::exception& e) {
        throw ConfigError(target.shown + ": " + e.what() + kLeftAlone);
    }
    if (loaded.exists) {
        try {
            loaded.doc = support::parse_json(loaded.bytes);
        } catch (const std::exception& e) {
            throw ConfigError(target.shown + " is not valid JSON (" + e.what() + ")" + kLeftAlone);
        }
    }
    return loaded;
}

std::optional<Json> peek_config(const ConfigTarget& target) {
    try {
        check_directories(target);
        const auto bytes = read_plain_file(target.path);
        if (!bytes) return std::nullopt;
        return support::parse_json(*bytes);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

Change plan_change(const LoadedConfig& loaded, const Json& updated, bool removing,
                   bool (*has_ours)(const Json&)) {
    Change change;
    if (updated == loaded.doc) return change;
    const Json rest = without_empty_parts(updated);
    if (!removing) {
        change = {Action::write, support::to_pretty_json(updated)};
    } else if (loaded.backup && !has_ours(*loaded.backup) &&
               rest == without_empty_parts(*loaded.backup)) {
        change = {Action::restore, loaded.backup_bytes};
    } else if (is_scaffolding(rest)) {
        change = {Action::remove, {}};
    } else {
        change = {Action::write, support::to_pretty_json(updated)};
    }
    // The user's way of saying "leave this alone", which the store honours too, root or not.
    const std::string& shown = loaded.target.shown;
    if (loaded.read_only) throw ConfigError(shown + " is read-only" + kLeftAlone);
    if (change.action == Action::write && loaded.exists && loaded.backup_read_only) {
        throw ConfigError(shown + ".bak is read-only, so " + shown + " was left as it is");
    }
    return change;
}

void apply_change(const LoadedConfig& loaded, const Change& change) {
    const ConfigTarget& target = loaded.target;
    const std::string backup = target.path + ".bak";
    // What runs killed mid-write left here goes (the writer leaves those of a live run alone).
    platform::remove_stale_temporaries(target.path);
    platform::remove_stale_temporaries(backup);
    switch (change.action) {
        case Action::none:
            return;
        case Action::remove:
            // It held only our entries: no backup of it is worth keeping, nor the folders we
            // made for it.
            platform::delete_file(target.path);
            remove_emptied_directories(target);
            return;
        case Action::write:
        case Action::restore:
            break;
    }
    make_directories(target);
    if (change.action == Action::restore) {
        // The user's own bytes are back, so the backup has nothing left to keep.
        platform::replace_file_synced(target.path, change.content);
        platform::delete_file(backup);
        return;
    }
    // The backup holds the same settings as the file, so it gets the file's permissions.
    if (loaded.exists) platform::replace_file_synced(backup, loaded.bytes, target.path);
    platform::replace_file_synced(target.path, change.content);
}

}  // namespace host::install
