#include "engines/index/keeper.hpp"

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "engines/index/database.hpp"
#include "engines/index/indexer.hpp"
#include "engines/index/outline.hpp"
#include "engines/index/walk.hpp"
#include "platform/clock.hpp"
#include "platform/file_lock.hpp"
#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/process.hpp"
#include "platform/tree_watch.hpp"
#include "services/logging_setup.hpp"

namespace code_index {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Phase = KeeperStatus::Phase;

constexpr const char* kLogger = "orvane_tamblo.index";
// Beside the index: held by the process that keeps it.
constexpr const char* kKeeperLock = ".keeper.lock";
// How often a process that does not keep the index tries to take over.
constexpr auto kTakeOverPeriod = 5s;
// A rescan costs at most a twentieth of the time between two, and comes at least this often.
constexpr auto kShortestRescan = 2s;
constexpr auto kLongestRescan = 60s;
constexpr std::size_t kMaxWatches = 65536;
// The index's own directory changes with every write: never watched.
constexpr std::string_view kOwnDirectory = "memory/codebase-index";

struct Stopped {};

std::int64_t now_ms() {
    return static_cast<std::int64_t>(platform::epoch_seconds() * 1000);
}

}  // namespace

// The repository's changes: inotify, ReadDirectoryChangesW, or a periodic rescan where neither
// can be had (the watcher says which).
class IndexKeeper::Watch : public platform::TreeWatcher {
  public:
    using TreeWatcher::TreeWatcher;
};

IndexKeeper::~IndexKeeper() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        if (watch_ != nullptr) watch_->stop();
        changed_.notify_all();
    }
    if (thread_.joinable()) thread_.join();
}

void IndexKeeper::start(bool build) {
    std::lock_guard lock(mutex_);
    if (running_ || stopping_) return;
    if (thread_.joinable()) thread_.join();  // it has ended: nothing to wait for
    running_ = true;
    thread_ = std::thread([this, build] { run(build); });
}

KeeperStatus IndexKeeper::status() const {
    std::lock_guard lock(mutex_);
    return {phase_, pending_.load(), problem_};
}

void IndexKeeper::settle(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, limit, [&] { return !busy_; });
}

void IndexKeeper::set_phase(Phase phase, std::string problem) {
    std::lock_guard lock(mutex_);
    phase_ = phase;
    problem_ = std::move(problem);
}

bool IndexKeeper::stopped_within(std::chrono::milliseconds period) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, period, [&] { return stopping_; });
}

void IndexKeeper::run(bool build) {
    try {
        IndexLocation location = locate_index(root_, false);
        if (location.exists || build) {
            if (!location.exists) location = locate_index(root_, true);
            platform::FileLock lock(platform::join_path(location.dir, kKeeperLock));
            while (!lock.lock(0ms)) {
                set_phase(Phase::waiting);
                if (stopped_within(kTakeOverPeriod)) throw Stopped{};
            }
            const auto wanted = [filter = std::make_shared<RepositoryFilter>(location.root)](
                                    std::string_view directory) {
                const bool own = directory.starts_with(kOwnDirectory) &&
                                 (directory.size() == kOwnDirectory.size() ||
                                  directory[kOwnDirectory.size()] == '/');
                return !own && !filter->excluded(directory, true);
            };
            // Watching starts before the refresh, so that nothing changed meanwhile is missed.
            const auto started = Clock::now();
            Watch watch(location.root, wanted, kMaxWatches);
            services::log_record(
                services::LogLevel::debug, kLogger,
                "keeping the code index current: " + watch.description() + ", set up in " +
                    std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(
                                       Clock::now() - started)
                                       .count()) +
                    " ms");
            bool stopping = false;
            {
                std::lock_guard guard(mutex_);
                watch_ = &watch;
                stopping = stopping_;
            }
            if (!stopping) keep(watch);
            std::lock_guard guard(mutex_);
            watch_ = nullptr;
        }
        set_phase(Phase::idle);
    } catch (const Stopped&) {
        set_phase(Phase::idle);
    } catch (const std::exception& e) {
        services::log_record(services::LogLevel::warning, kLogger,
                             std::string("keeping the code index current failed: ") + e.what());
        set_phase(Phase::failed, e.what());
    }
    std::lock_guard lock(mutex_);
    running_ = false;
    busy_ = false;
    pending_ = -1;
    changed_.notify_all();
}

void IndexKeeper::keep(Watch& watch) {
    set_phase(locate_index(root_, false).exists ? Phase::refreshing : Phase::building);
    IndexOptions options;
    options.progress = [this](const IndexProgress& p) {
        if (stopped_within(0ms)) throw Stopped{};
        pending_ = p.total - p.done;
    };
    update_index(root_, options);
    pending_ = -1;

    std::optional<IndexDatabase> index = IndexDatabase::open(root_, IndexDatabase::Access::write);
    if (!index) return;
    const std::int64_t pid = platform::current_process_id();
    std::string watching = watch.description();
    record_keeper(index->db(), {pid, watching, now_ms()});
    set_phase(Phase::watching);

    RepositoryFilter filter(index->location().root);
    options.progress = [this](const IndexProgress&) {
        if (stopped_within(0ms)) throw Stopped{};
    };
    auto period = std::chrono::duration_cast<std::chrono::milliseconds>(kShortestRescan);
    bool rescan = false;  // after a failure: look at everything
    try {
        while (!stopped_within(0ms)) {
            platform::TreeChanges changes =
                watch.wait(watch.native() ? std::chrono::milliseconds(1h) : period);
            if (stopped_within(0ms)) break;
            if (changes.paths.empty() && !changes.overflow && !rescan) continue;
            if (index->replaced()) {
                // Rebuilt or deleted by another process: keep the one now in place, if any.
                index.reset();
                index = IndexDatabase::open(root_, IndexDatabase::Access::write);
                if (!index) return;
                rescan = true;
            }
            {
                std::lock_guard lock(mutex_);
                busy_ = true;
            }
            const auto started = Clock::now();
            const bool whole = changes.overflow || rescan;
            try {
                update_paths(index->db(), filter,
                             whole ? std::vector<std::string>{""} : changes.paths, options);
                rescan = false;
            } catch (const IndexError& e) {
                services::log_record(services::LogLevel::warning, kLogger,
                                     std::string("updating the code index failed: ") + e.what());
                rescan = true;
            }
            if (whole && !watch.native()) {
                period = std::clamp(std::chrono::duration_cast<std::chrono::milliseconds>(
                                        20 * (Clock::now() - started)),
                                    std::chrono::milliseconds(kShortestRescan),
                                    std::chrono::milliseconds(kLongestRescan));
            }
            {
                std::lock_guard lock(mutex_);
                busy_ = false;
                changed_.notify_all();
            }
            for (const std::string& path : changes.paths) {
                if (path == ".gitignore") watch.rewatch("");
                if (path.ends_with("/.gitignore")) {
                    watch.rewatch(std::string_view(path).substr(0, path.size() - 11));
                }
            }
            // Watching may have fallen back to rescans (out of watches): say so.
            if (watch.description() != watching) {
                watching = watch.description();
                record_keeper(index->db(), {pid, watching, now_ms()});
            }
        }
    } catch (const Stopped&) {
    }
    // No one keeps the index any more, unless another process took it over meanwhile.
    try {
        if (const auto keeper = read_keeper(index->db()); keeper && keeper->pid == pid) {
            record_keeper(index->db(), {0, "", now_ms()});
        }
    } catch (const IndexError&) {
    }
}

}  // namespace code_index
