#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
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
    std::uint64_t hash = 0;     // of the content the index parsed
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

// Whether the file at `outline.path` under `root` still holds what the index parsed: its size
// and time as the index recorded them, its content when the time cannot tell. One file-status
// call; a file that is gone, or no longer a regular file inside `root`, has changed.
bool unchanged_since_indexed(const std::string& root, const Outline& outline);

// The number of indexed source files, and the first `limit` of their paths in path order that
// `skip` does not refuse: the thin entries, listed after the model-authored ones, which `skip`
// tells.
std::int64_t indexed_file_count(Database& db);
std::vector<std::string> indexed_files(Database& db, std::size_t limit,
                                       const std::function<bool(std::string_view)>& skip);

// Which files are indexed, as the AI cache asks at every session start: kept in the index as one
// value, the sorted 64-bit hashes of their paths (its digest), so that counting them and telling
// whether a path is one reads a few pages rather than the whole table. Whatever changes which
// files are indexed drops it (IndexWriter does), and a refresh builds it again; the caller holds
// a write transaction.
bool has_indexed_digest(Database& db);
void build_indexed_digest(Database& db);
void drop_indexed_digest(Database& db);

// The indexed files, from the digest; from the table when there is none, or none of ours.
class IndexedFiles {
  public:
    explicit IndexedFiles(Database& db);
    std::int64_t count();
    bool contains(std::string_view path);

  private:
    Database& db_;
    Statement digest_;         // holds the value `hashes_` points into
    std::string_view hashes_;  // 8 bytes each, little-endian, ascending
    bool digested_ = false;
    std::optional<Statement> lookup_;
};

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
