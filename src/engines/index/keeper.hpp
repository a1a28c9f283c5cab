#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace code_index {

// What the keeper is doing, for answers that depend on it.
struct KeeperStatus {
    enum class Phase {
        idle,        // not started, or nothing to keep: no index, and none to build here
        waiting,     // another process keeps this index current
        building,    // the first index, not in place yet
        refreshing,  // bringing the index up to date after the start
        watching,    // up to date, and kept so
        failed,      // gave up: see `problem`
    };
    Phase phase = Phase::idle;
    std::int64_t pending = -1;  // building, refreshing: files left to parse; -1 while listing them
    std::string problem;
};

// Keeps the index of the repository `root` current while this process lives: brings it up to
// date in the background once started (building the first one when asked), then watches the
// repository and parses again what changes, with the ignore rules of the walk. Its own thread does
// every write, on a connection of its own; one process at a time keeps a repository's index (the
// others answer from it, and take over when it ends).
class IndexKeeper {
  public:
    explicit IndexKeeper(std::string root) : root_(std::move(root)) {}
    ~IndexKeeper();
    IndexKeeper(const IndexKeeper&) = delete;
    IndexKeeper& operator=(const IndexKeeper&) = delete;

    // Starts keeping the index unless under way; with `build`, a missing index is built first.
    void start(bool build);
    KeeperStatus status() const;
    // Waits up to `limit` while changes are being written, so that a query sees them.
    void settle(std::chrono::milliseconds limit);

    class Watch;

  private:
    void run(bool build);
    void keep(Watch& watch);
    void set_phase(KeeperStatus::Phase phase, std::string problem = "");
    // Sleeps up to `period`; true when asked to stop meanwhile.
    bool stopped_within(std::chrono::milliseconds period);

    std::string root_;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    KeeperStatus::Phase phase_ = KeeperStatus::Phase::idle;
    std::string problem_;
    bool running_ = false;
    bool busy_ = false;  // writing a batch of changes
    bool stopping_ = false;
    Watch* watch_ = nullptr;
    std::atomic<std::int64_t> pending_{-1};
};

}  // namespace code_index
