#include "engines/index/indexer.hpp"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "engines/index/database.hpp"
#include "engines/index/extract.hpp"
#include "engines/index/outline.hpp"
#include "engines/index/schema.hpp"
#include "engines/index/walk.hpp"
#include "engines/index/writer.hpp"
#include "platform/clock.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/random.hpp"
#include "support/hash.hpp"

namespace code_index {

namespace {

using Clock = std::chrono::steady_clock;

// A time this close to the moment a file is read may change again within the same time stamp
// (FAT's resolution is 2 s): such a file is compared by content at the next run.
constexpr std::int64_t kRacyWindowNs = 2'000'000'000;
// Large transactions: one per this many files or this much time, whichever comes first.
constexpr std::int64_t kFilesPerCommit = 4000;
constexpr auto kCommitInterval = std::chrono::seconds(2);
// The index's own directory is never indexed, whatever its .gitignore says.
constexpr std::string_view kOwnDirectory = "memory/codebase-index/";

std::int64_t now_ns() {
    return static_cast<std::int64_t>(platform::epoch_seconds() * 1e9);
}

std::uint32_t count_lines(std::string_view content) {
    if (content.empty()) return 0;
    auto lines = static_cast<std::uint32_t>(std::count(content.begin(), content.end(), '\n'));
    return content.back() == '\n' ? lines : lines + 1;
}

// A file to parse, and what became of it.
struct Job {
    RepoFile file;
    std::optional<Language> language;
    std::optional<KnownFile> known;
};

struct Result {
    FileRow row;
    Extraction extraction;
    bool parsed = false;
    std::optional<std::int64_t> unchanged_id;  // the content is what the index holds
};

// Results on their way from the parsing threads to the writer; bounded, so that parsing ahead of a
// slow writer cannot hold the whole repository in memory.
class ResultQueue {
  public:
    explicit ResultQueue(std::size_t capacity) : capacity_(capacity) {}

    // False when the writer has given up.
    bool push(Result&& result) {
        std::unique_lock lock(mutex_);
        room_.wait(lock, [&] { return queue_.size() < capacity_ || abandoned_; });
        if (abandoned_) return false;
        queue_.push_back(std::move(result));
        ready_.notify_one();
        return true;
    }

    std::optional<Result> pop() {
        std::unique_lock lock(mutex_);
        ready_.wait(lock, [&] { return !queue_.empty() || producers_ == 0; });
        if (queue_.empty()) return std::nullopt;
        Result result = std::move(queue_.front());
        queue_.pop_front();
        room_.notify_one();
        return result;
    }

    void producer_done() {
        std::lock_guard lock(mutex_);
        --producers_;
        ready_.notify_all();
    }

    void set_producers(unsigned n) { producers_ = n; }

    void abandon() {
        std::lock_guard lock(mutex_);
        abandoned_ = true;
        room_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable ready_, room_;
    std::deque<Result> queue_;
    std::size_t capacity_;
    unsigned producers_ = 0;
    bool abandoned_ = false;
};

Result process(const std::string& root, const Job& job, Extractor& extractor,
               std::chrono::milliseconds limit, std::int64_t started_ns) {
    Result result;
    FileRow& row = result.row;
    row.path = job.file.path;
    row.language = job.language;
    row.size = job.file.size;
    row.mtime_ns = started_ns - job.file.mtime_ns < kRacyWindowNs ? -1 : job.file.mtime_ns;
    std::optional<std::string> content;
    try {
        content = platform::read_plain_file(platform::join_path(root, job.file.path),
                                            static_cast<std::size_t>(kMaxFileBytes));
    } catch (const std::exception&) {
    }
    if (!content) {
        // Gone, replaced by something else, or grown past the limit since the walk saw it.
        row.state = job.file.size > kMaxFileBytes ? FileState::large : FileState::unreadable;
        return result;
    }
    row.size = static_cast<std::int64_t>(content->size());
    support::ContentHash hash;
    hash.update(*content);
    row.hash = hash.value();
    row.lines = count_lines(*content);
    if (job.known && job.known->hash == row.hash && job.known->state != FileState::timed_out &&
        job.known->state != FileState::failed && job.known->state != FileState::unreadable &&
        job.known->language == job.language) {
        result.unchanged_id = job.known->id;
        return result;
    }
    if (const auto skip = skip_reason(row.path, *content)) {
        row.state = *skip;
        return result;
    }
    switch (extractor.extract(*job.language, *content, limit, result.extraction)) {
        case ExtractStatus::ok:
            row.state = FileState::indexed;
            result.parsed = true;
            break;
        case ExtractStatus::timed_out:
            row.state = FileState::timed_out;
            break;
        case ExtractStatus::failed:
            row.state = FileState::failed;
            break;
    }
    if (!result.parsed) result.extraction = {};
    return result;
}

// What a run writes: files known by their path only, files gone, files to parse.
struct Plan {
    std::vector<FileRow> recorded;
    std::vector<std::int64_t> removed;
    std::vector<Job> jobs;
    bool empty() const { return recorded.empty() && removed.empty() && jobs.empty(); }
};

// Compares the files found with those the index knew (`known`, emptied of the files found): a
// file whose size and time are as the index has them is left alone, one without a grammar or too
// large is recorded by its path, the rest are parsed; what was known and not found is removed.
Plan plan_changes(std::vector<RepoFile>& files, std::unordered_map<std::string, KnownFile>& known,
                  IndexSummary& summary) {
    Plan plan;
    const std::int64_t started_ns = now_ns();
    for (RepoFile& file : files) {
        std::optional<KnownFile> was;
        if (auto found = known.find(file.path); found != known.end()) {
            was = found->second;
            known.erase(found);
        }
        if (was && was->size == file.size && was->mtime_ns == file.mtime_ns &&
            was->mtime_ns != -1) {
            ++summary.unchanged;
            continue;
        }
        const auto language = language_of(file.path);
        if (!language || file.size > kMaxFileBytes) {
            // Known by its path only: nothing in it is read.
            FileRow row;
            row.path = file.path;
            row.language = language;
            row.size = file.size;
            row.mtime_ns = started_ns - file.mtime_ns < kRacyWindowNs ? -1 : file.mtime_ns;
            row.state = language ? FileState::large : FileState::unsupported;
            plan.recorded.push_back(std::move(row));
            continue;
        }
        plan.jobs.push_back({std::move(file), language, was});
    }
    for (const auto& [path, gone] : known) plan.removed.push_back(gone.id);
    summary.removed += static_cast<std::int64_t>(plan.removed.size());
    return plan;
}

// Writes the plan: the recorded and removed files first, then the jobs, parsed on `threads`
// threads while the calling thread writes the results; the index is stamped as refreshed in the
// last transaction.
void parse_and_write(const std::string& root, Plan& plan, Database& db, IndexWriter& writer,
                     const IndexOptions& options, IndexSummary& summary) {
    std::vector<Job>& jobs = plan.jobs;
    const std::int64_t started_ns = now_ns();
    unsigned threads = options.threads != 0 ? options.threads : std::thread::hardware_concurrency();
    threads = std::clamp<unsigned>(threads, 1, 64);
    threads =
        std::min<unsigned>(threads, static_cast<unsigned>(std::max<std::size_t>(jobs.size(), 1)));
    // The largest first: the last files to finish are then small ones, and the cores stay busy.
    std::sort(jobs.begin(), jobs.end(),
              [](const Job& a, const Job& b) { return a.file.size > b.file.size; });

    std::optional<Transaction> transaction(std::in_place, db, true);
    for (const FileRow& row : plan.recorded) writer.put_file(row, nullptr);
    for (const std::int64_t id : plan.removed) writer.remove_file(id);

    ResultQueue queue(4 * static_cast<std::size_t>(threads));
    queue.set_producers(jobs.empty() ? 0 : threads);
    std::atomic<std::size_t> next{0};
    std::vector<std::thread> workers;
    auto stop = [&] {
        queue.abandon();
        for (auto& worker : workers) worker.join();
        workers.clear();
    };
    for (unsigned t = 0; t < threads && !jobs.empty(); ++t) {
        workers.emplace_back([&] {
            Extractor extractor;
            for (std::size_t i; (i = next.fetch_add(1)) < jobs.size();) {
                Result result;
                try {
                    result = process(root, jobs[i], extractor, options.file_limit, started_ns);
                } catch (const std::exception&) {
                    result = {};
                    result.row.path = jobs[i].file.path;
                    result.row.language = jobs[i].language;
                    result.row.size = jobs[i].file.size;
                    result.row.state = FileState::failed;
                }
                if (!queue.push(std::move(result))) break;
            }
            queue.producer_done();
        });
    }

    IndexProgress progress{0, static_cast<std::int64_t>(jobs.size())};
    try {
        if (options.progress) options.progress(progress);
        auto committed_at = Clock::now();
        std::int64_t since_commit = 0;
        while (auto result = queue.pop()) {
            if (result->unchanged_id) {
                writer.touch_file(*result->unchanged_id, result->row.size, result->row.mtime_ns);
                ++summary.unchanged;
            } else {
                writer.put_file(result->row, result->parsed ? &result->extraction : nullptr);
                if (result->parsed) ++summary.parsed;
            }
            ++progress.done;
            if (++since_commit >= kFilesPerCommit ||
                Clock::now() - committed_at > kCommitInterval) {
                transaction->commit();
                transaction.emplace(db, true);
                since_commit = 0;
                committed_at = Clock::now();
            }
            if (options.progress) options.progress(progress);
        }
        db.prepare(
              "INSERT INTO meta(key, value) VALUES('refreshed_at', ?1) "
              "ON CONFLICT(key) DO UPDATE SET value=excluded.value")
            .bind(1, static_cast<std::int64_t>(platform::epoch_seconds() * 1000))
            .run();
        // Dropped by any change to which files are indexed (or never built yet).
        if (!has_indexed_digest(db)) build_indexed_digest(db);
        transaction->commit();
    } catch (...) {
        stop();
        throw;
    }
    stop();
}

void count_contents(Database& db, IndexSummary& summary) {
    Statement states = db.prepare("SELECT state, count(*) FROM files GROUP BY state");
    while (states.step()) {
        const std::int64_t state = states.integer(0);
        if (state >= 0 && state < static_cast<std::int64_t>(kFileStates)) {
            summary.files[static_cast<std::size_t>(state)] = states.integer(1);
        }
    }
    Statement counts =
        db.prepare("SELECT (SELECT count(*) FROM defs), (SELECT count(*) FROM refs)");
    if (counts.step()) {
        summary.definitions = counts.integer(0);
        summary.references = counts.integer(1);
    }
}

// Removes a new index that was not finished, with its journal.
struct TemporaryFile {
    std::string path;
    ~TemporaryFile() {
        if (path.empty()) return;
        platform::remove_file(path + "-journal");
        platform::remove_file(path);
    }
};

}  // namespace

IndexSummary update_index(const std::string& root_dir, const IndexOptions& options) {
    const auto started = Clock::now();
    IndexSummary summary;
    IndexLocation location = locate_index(root_dir, true);
    db::remove_leftovers(location.dir, kIndexFileName);
    if (location.exists && platform::is_read_only(location.db_path)) {
        throw IndexError(std::string(kIndexDisplayPath) + ": the file is read-only");
    }

    // Declared before the connection, so that it is removed after the connection has closed.
    TemporaryFile temporary;
    std::optional<Database> db;
    if (location.exists) {
        // Ours or not, it is inspected before anything is written: what is not ours stays as it is.
        Database existing(location.db_path, kIndexDisplayPath, Database::Mode::read_write);
        configure_connection(existing, true);
        const schema::State state = schema::inspect(existing);
        if (state == schema::State::empty) {
            throw IndexError(std::string(kIndexDisplayPath) +
                             ": an empty file that is no index of ours; it is left as it is");
        }
        if (state == schema::State::current && !options.rebuild) db = std::move(existing);
    }
    if (!db) {
        summary.built = true;
        temporary.path = db::new_database_path(location.db_path);
        db.emplace(temporary.path, kIndexDisplayPath, Database::Mode::create);
        configure_connection(*db, true);
        // Nobody reads the new file until it is in place, and a crash leaves only a file to
        // remove: no need to sync while it is written.
        db->exec("PRAGMA synchronous=OFF");
        schema::create(*db);
    }

    RepositoryFilter filter(location.root);
    std::vector<RepoFile> files;
    walk_repository(filter, [&](RepoFile&& file) {
        if (!file.path.starts_with(kOwnDirectory)) files.push_back(std::move(file));
    });

    std::unordered_map<std::string, KnownFile> known;
    if (!summary.built) known = known_files(*db);
    Plan plan = plan_changes(files, known, summary);
    files.clear();
    files.shrink_to_fit();
    {
        // Its statements must be gone before the connection closes (below, for a new index).
        IndexWriter writer(*db);
        parse_and_write(location.root, plan, *db, writer, options, summary);
    }
    count_contents(*db, summary);
    // The index is written in bursts: its WAL need not wait on disk for the next one.
    if (!summary.built) db->exec("PRAGMA wal_checkpoint(TRUNCATE)");

    if (summary.built) {
        // Synced whole, in WAL mode like every index in place, before it takes the name.
        db->exec("PRAGMA synchronous=FULL");
        db->exec("PRAGMA journal_mode=WAL");
        db.reset();
        try {
            platform::rename_over(temporary.path, location.db_path);
        } catch (const platform::OsError& e) {
            throw IndexError(e.what());
        }
        temporary.path.clear();
    }
    summary.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    return summary;
}

IndexSummary index_contents(Database& db) {
    IndexSummary summary;
    Transaction read(db, false);
    count_contents(db, summary);
    return summary;
}

namespace {

bool is_own(std::string_view path) {
    return path.starts_with(kOwnDirectory) ||
           path == kOwnDirectory.substr(0, kOwnDirectory.size() - 1);
}

// The paths to look at again, each standing for everything below it: a changed ignore file stands
// for its directory, and a path below another one is covered by it.
std::vector<std::string> changed_trees(RepositoryFilter& filter,
                                       const std::vector<std::string>& paths) {
    std::vector<std::string> trees;
    for (const std::string& path : paths) {
        if (is_own(path)) continue;
        const std::size_t slash = path.rfind('/');
        const std::string_view name = slash == std::string::npos
                                          ? std::string_view(path)
                                          : std::string_view(path).substr(slash + 1);
        if (name == ".gitignore") {
            const std::string directory = slash == std::string::npos ? "" : path.substr(0, slash);
            filter.forget(directory);
            trees.push_back(directory);
        } else {
            trees.push_back(path);
        }
    }
    // Shallowest first, so that a tree's ancestors are kept before it is looked at.
    std::sort(trees.begin(), trees.end(), [](const std::string& a, const std::string& b) {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    });
    trees.erase(std::unique(trees.begin(), trees.end()), trees.end());
    std::unordered_set<std::string> kept;
    std::vector<std::string> out;
    for (std::string& tree : trees) {
        bool covered = kept.count("") > 0;
        for (std::size_t slash = tree.find('/'); !covered && slash != std::string::npos;
             slash = tree.find('/', slash + 1)) {
            covered = kept.count(tree.substr(0, slash)) > 0;
        }
        if (covered) continue;
        kept.insert(tree);
        out.push_back(std::move(tree));
    }
    return out;
}

}  // namespace

IndexSummary update_paths(Database& db, RepositoryFilter& filter,
                          const std::vector<std::string>& paths, const IndexOptions& options) {
    const auto started = Clock::now();
    IndexSummary summary;
    const std::vector<std::string> trees = changed_trees(filter, paths);
    if (trees.empty()) return summary;

    std::vector<RepoFile> files;
    const auto found = [&](RepoFile&& file) {
        if (!is_own(file.path)) files.push_back(std::move(file));
    };
    std::unordered_map<std::string, KnownFile> known;
    if (trees.front().empty()) {
        walk_repository(filter, found);
        known = known_files(db);
    } else {
        for (const std::string& tree : trees) {
            platform::PathKind kind = platform::PathKind::missing;
            try {
                kind = platform::path_kind(platform::join_path(filter.root(), tree));
            } catch (const platform::OsError&) {
            }
            if (kind == platform::PathKind::directory) {
                walk_directory(filter, tree, found);
            } else if (auto file = filter.lookup(tree)) {
                found(std::move(*file));
            }
            known_files_under(db, tree, known);
        }
    }
    Plan plan = plan_changes(files, known, summary);
    if (!plan.empty()) {
        IndexWriter writer(db);
        parse_and_write(filter.root(), plan, db, writer, options, summary);
    }
    summary.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    return summary;
}

}  // namespace code_index
