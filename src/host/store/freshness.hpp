#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host::store {

// What the store records about a file target to tell later whether it changed.
struct FileRecord {
    std::int64_t size = 0;
    std::int64_t mtime_ns = 0;
    std::uint64_t hash = 0;
};

// The record of `target` (relative to `root`, or absolute) when it names a regular file inside
// the repository `root` (canonical); nullopt for any other target, which then never goes stale.
std::optional<FileRecord> capture_file(const std::string& root, const std::string& target);

// Whether the file still holds the recorded content, as git tells a changed file: the size and
// modification time first, the content hash only when they differ or when the time is too close
// to the moment of storing to be trusted. A vanished file is not fresh.
bool still_fresh(const std::string& root, std::string_view target, const FileRecord& record,
                 std::int64_t stored_at_ms);

struct FreshnessCheck {
    std::string_view target;
    FileRecord record;
    std::int64_t stored_at_ms = 0;
    bool fresh = true;  // the answer
};

// still_fresh() of each, spread over the processor's cores when there are many: checking every
// file of a large store is one file-status call per file, and those calls are most of its cost.
// `meanwhile` runs on the calling thread while the others have begun; it must not touch `checks`.
void check_freshness(const std::string& root, std::vector<FreshnessCheck>& checks,
                     const std::function<void()>& meanwhile = {});

}  // namespace host::store
