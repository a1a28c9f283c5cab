#pragma once

#include <optional>
#include <string>

#include "support/json.hpp"

namespace host::install {

// A configuration file the installer reads and may rewrite.
struct ConfigTarget {
    std::string path;   // as opened
    std::string shown;  // as told to people: relative to the repository, or under ~/
    // Inside the repository, which is untrusted: no symbolic link on the way from the
    // repository's root is followed, for reading or writing.
    std::string repo_root;  // "" for a file outside the repository
};

struct LoadedConfig {
    ConfigTarget target;
    bool exists = false;
    std::string bytes;
    support::Json doc = support::Json::object();  // {} when the file is missing
    std::optional<support::Json> backup;          // <file>.bak, when it is there and parses
    std::string backup_bytes;
    bool read_only = false;         // the file is marked read-only
    bool backup_read_only = false;  // so is <file>.bak
};

// Throws ConfigError ("<dir> is a symbolic link, which orvane-tamblo does not follow in a
// repository, so <file> was left as it is") when a directory between the repository's root and
// the file is a link or no directory. Nothing is checked for a file outside the repository.
void check_directories(const ConfigTarget& target);

// Makes the missing directories on the way to the file, never through a link in the repository.
// Throws.
void make_directories(const ConfigTarget& target);

// Takes away the folders between the file's root (the repository or the home directory) and the
// file that are empty now, from the deepest up.
void remove_emptied_directories(const ConfigTarget& target);

// Reads and parses the file. Throws ConfigError with one line for people ("<file> is not valid
// JSON (...); it was left as it is") when it cannot be used.
LoadedConfig load_config(const ConfigTarget& target);

// Whether the file, read without writing anything, holds a JSON document at all; for the checks
// that look at other agents' files. Missing, unreadable or invalid files give nullopt.
std::optional<support::Json> peek_config(const ConfigTarget& target);

enum class Action { none, write, restore, remove };

struct Change {
    Action action = Action::none;
    std::string content;  // the new bytes, for write and restore
};

// What to do with `loaded` so that it holds `updated`. Taking our entries out (`removing`) gives
// the user's own bytes back when the result equals what <file>.bak held before we were there,
// and removes the file when nothing but our scaffolding would be left. Throws ConfigError when
// the change would write a file the user marked read-only.
Change plan_change(const LoadedConfig& loaded, const support::Json& updated, bool removing,
                   bool (*has_ours)(const support::Json&));

// Carries the change out: the previous file is kept as <file>.bak first (as private as the file
// itself), then the new content replaces the file atomically, without following a link and
// keeping its permissions. Giving the user's file back removes the backup, and removing a file
// removes the folders that held nothing else. Temporary files that killed runs left beside the
// file go too. Throws on failure.
void apply_change(const LoadedConfig& loaded, const Change& change);

}  // namespace host::install
