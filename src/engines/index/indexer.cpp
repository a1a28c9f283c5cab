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

// Parses `jobs` on `threads` threads while the calling thread writes the results.
void parse_and_write(const std::string& root, std::vector<Job>& jobs, Database& db,
                     IndexWriter& writer, const IndexOptions& options, IndexSummary& summary) {
    const std::int64_t started_ns = now_ns();
    unsigned threads = options.threads != 0 ? options.threads : std::thread::hardware_concurrency();
    threads = std::clamp<unsigned>(threads, 1, 64);
    threads =
        std::min<unsigned>(threads, static_cast<unsigned>(std::max<std::size_t>(jobs.size(), 1)));
    // The largest first: the last files to finish are then small ones, and the cores stay busy.
    std::sort(jobs.begin(), jobs.end(),
              [](const Job& a, const Job& b) { return a.file.size > b.file.size; });

    ResultQueue queue(4 * static_cast<std::size_t>(threads));
    queue.set_producers(threads);
    std::atomic<std::size_t> next{0};
    std::vector<std::thread> workers;
    auto stop = [&] {
        queue.abandon();
        for (auto& worker : workers) worker.join();
        workers.clear();
    };
    for (unsigned t = 0; t < threads; ++t) {
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
    if (options.progress) options.progress(progress);
    try {
        auto committed_at = Clock::now();
        std::int64_t since_commit = 0;
        std::optional<Transaction> transaction(std::in_place, db, true);
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
    // Its statements must be gone before the connection closes (below, for a new index).
    std::optional<IndexWriter> writer(std::in_place, *db);
    std::vector<Job> jobs;
    {
        Transaction transaction(*db, true);
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
                writer->put_file(row, nullptr);
                continue;
            }
            jobs.push_back({std::move(file), language, was});
        }
        for (const auto& [path, gone] : known) {
            writer->remove_file(gone.id);
            ++summary.removed;
        }
        transaction.commit();
    }
    files.clear();
    files.shrink_to_fit();

    parse_and_write(location.root, jobs, *db, *writer, options, summary);
    writer.reset();
    {
        Transaction transaction(*db, true);
        db->prepare(
              "INSERT INTO meta(key, value) VALUES('refreshed_at', ?1) "
              "ON CONFLICT(key) DO UPDATE SET value=excluded.value")
            .bind(1, static_cast<std::int64_t>(platform::epoch_seconds() * 1000))
            .run();
        // Dropped by any change to which files are indexed (or never built yet).
        if (!has_indexed_digest(*db)) build_indexed_digest(*db);
        transaction.commit();
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

}  // namespace code_index
