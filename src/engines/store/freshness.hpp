#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace store {

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

// still_fresh() of batches of files, spread over the processor's cores when a batch is large:
// checking every file of a large store is one file-status call per file, and those calls are
// most of its cost. The helper threads start with the first large batch and live as long as the
// checker, so that many small batches do not pay for a thread each.
class FreshnessChecker {
  public:
    explicit FreshnessChecker(std::string root);
    ~FreshnessChecker();
    FreshnessChecker(const FreshnessChecker&) = delete;
    FreshnessChecker& operator=(const FreshnessChecker&) = delete;

    // Sets the `fresh` of each check. `meanwhile` runs on the calling thread while the helpers
    // have begun; it must not touch `checks`.
    void check(std::vector<FreshnessCheck>& checks, const std::function<void()>& meanwhile = {});

  private:
    struct Worker;
    void start_helpers();
    void help();

    std::string root_;
    std::unique_ptr<Worker> own_;  // the calling thread's
    std::vector<std::thread> helpers_;
    bool helpers_started_ = false;
    std::mutex mutex_;
    std::condition_variable work_ready_, work_done_;
    std::vector<FreshnessCheck>* checks_ = nullptr;  // the batch being checked
    std::atomic<std::size_t> next_{0};               // its first check nobody has taken
    std::uint64_t generation_ = 0;                   // batches handed out so far
    unsigned working_ = 0;                           // helpers still at the batch
    bool stopping_ = false;
};

}  // namespace store
