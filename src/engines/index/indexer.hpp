#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "engines/index/classify.hpp"
#include "engines/index/database.hpp"
#include "engines/index/walk.hpp"

namespace code_index {

// What a run of the indexer did, and what the index holds after it.
struct IndexSummary {
    std::array<std::int64_t, kFileStates> files{};  // every file the index knows, by state
    std::int64_t parsed = 0;                        // files parsed in this run
    std::int64_t unchanged = 0;                     // found as the index had them
    std::int64_t removed = 0;                       // gone since the last run
    std::int64_t definitions = 0;
    std::int64_t references = 0;
    double seconds = 0;
    bool built = false;  // made from nothing (a first index, or a rebuild)
};

// Files parsed so far of those this run must parse.
struct IndexProgress {
    std::int64_t done = 0;
    std::int64_t total = 0;
};

struct IndexOptions {
    bool rebuild = false;  // start from nothing, even when the index is current
    unsigned threads = 0;  // parsing threads; 0: one per core
    // A file whose parse takes longer is skipped and counted.
    std::chrono::milliseconds file_limit{5000};
    // Called on the calling thread after each parsed file (and once at the start).
    std::function<void(const IndexProgress&)> progress;
};

// Builds the index of the repository `root` (memory/codebase-index/index.db) or brings it up to
// date: files whose size, modification time or content changed are parsed again, deleted ones
// dropped. A first index (or a rebuild) is written beside its final name and put in place whole,
// so that the index, which the hooks' nudge takes as the sign of an indexed repository, never
// appears half made. An index that is not ours is refused and left as it is. Throws IndexError.
IndexSummary update_index(const std::string& root, const IndexOptions& options);

// What the index holds: its files by state, its definitions and references (the members about a
// run stay at zero).
IndexSummary index_contents(Database& db);

// Brings the open index `db` up to date with what changed at `paths` (relative to the filter's
// root, as a watcher reports them): each names a file or a directory created, changed, removed or
// renamed, and stands for everything below it ("" for the whole repository). A changed .gitignore
// stands for its directory, which the filter decides afresh. Unchanged files are not read again
// and nothing is written when nothing changed. The filter is the caller's, kept from call to
// call. Throws IndexError.
IndexSummary update_paths(Database& db, RepositoryFilter& filter,
                          const std::vector<std::string>& paths, const IndexOptions& options);

}  // namespace code_index
