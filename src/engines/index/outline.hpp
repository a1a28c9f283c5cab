#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engines/index/database.hpp"

namespace code_index {

// What the index knows of one file at a glance: the thin entry the AI cache shows for an indexed
// file nobody has described yet, so that a model gets its outline without reading it.
struct Outline {
    std::string path;
    std::string language;
    std::int64_t lines = 0;
    std::int64_t size = 0;
    std::int64_t mtime_ns = 0;  // as the index saw it; -1 when it was too fresh to trust
    struct Entry {
        std::string name;
        std::string kind;
        std::int64_t line = 0;
        std::int64_t end_line = 0;
    };
    std::vector<Entry> top_level;  // its top-level definitions, in order, at most kOutlineEntries
    std::int64_t more = 0;         // top-level definitions left out
};

inline constexpr std::size_t kOutlineEntries = 40;

// The outline of the indexed file at `path` (relative to the repository, '/' separators);
// nullopt when the index does not hold it as an indexed source file.
std::optional<Outline> file_outline(Database& db, const std::string& path);

// The number of indexed source files, and the paths of up to `limit` of them (by path) after
// skipping `offset`: the thin entries, for listings after the model-authored ones.
std::int64_t indexed_file_count(Database& db);
std::vector<std::string> indexed_files(Database& db, std::size_t offset, std::size_t limit);

// What the process that keeps the index current (the MCP server) says of itself, for `serve`.
struct KeeperState {
    std::int64_t pid = 0;
    std::string watching;  // "inotify, 1,234 directories", "periodic rescan every 2 s: ...", ...
    std::int64_t since_ms = 0;
};
void record_keeper(Database& db, const KeeperState& state);
std::optional<KeeperState> read_keeper(Database& db);
// When the index was last brought up to date (milliseconds since the epoch), 0 for never.
std::int64_t refreshed_at(Database& db);

}  // namespace code_index
