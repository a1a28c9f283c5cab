#include "engines/store/freshness.hpp"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "engines/store/location.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"
#include "support/hash.hpp"

namespace store {

namespace {

// Coarser than the modification-time resolution of any file system in use (FAT's is 2 s): a file
// written this close to its storing may change again within the same time stamp.
constexpr std::int64_t kRacyWindowNs = 2'000'000'000;

// `target` as a path: relative ones below `root`, built in `buffer` to spare an allocation per
// file when thousands are checked.
const std::string& path_of(const std::string& root, std::string_view target, std::string& buffer) {
    buffer.clear();
    if (!platform::is_absolute_path(target)) {
        buffer += root;
        if (!buffer.empty() && buffer.back() != '/') buffer += '/';
    }
    buffer += target;
    return buffer;
}

// The canonical path when it lies inside `root`; nullopt otherwise (or when it cannot be had).
std::optional<std::string> inside_path(const std::string& root, const std::string& path) {
    std::string canonical;
    try {
        canonical = platform::canonical_path(path);
    } catch (const platform::OsError&) {
        return std::nullopt;
    } catch (const std::invalid_argument&) {
        return std::nullopt;
    }
    if (!platform::is_inside(root, canonical)) return std::nullopt;
    return canonical;
}

std::optional<std::uint64_t> hash_of(const std::string& path) {
    support::ContentHash hash;
    if (!platform::read_file_chunks(path, [&](std::string_view chunk) { hash.update(chunk); })) {
        return std::nullopt;
    }
    return hash.value();
}

}  // namespace

std::optional<FileRecord> capture_file(const std::string& root, const std::string& target) {
    if (target.empty()) return std::nullopt;
    std::string buffer;
    const auto path = inside_path(root, path_of(root, target, buffer));
    if (!path) return std::nullopt;
    const auto signature = platform::file_signature(*path);
    if (!signature) return std::nullopt;
    const auto hash = hash_of(*path);
    if (!hash) return std::nullopt;
    return FileRecord{signature->size, signature->mtime_ns, *hash};
}

namespace {

bool fresh_with(const std::string& root, std::string_view target, const FileRecord& record,
                std::int64_t stored_at_ms, std::string& buffer, platform::SignatureReader& reader) {
    const std::string& path = path_of(root, target, buffer);
    const auto signature = reader.read(path);
    if (!signature || signature->size != record.size) return false;
    const bool racy = record.mtime_ns >= stored_at_ms * 1'000'000 - kRacyWindowNs;
    if (signature->mtime_ns == record.mtime_ns && !racy) return true;
    // Only files inside the repository are read.
    const auto inside = inside_path(root, path);
    if (!inside) return false;
    const auto hash = hash_of(*inside);
    return hash && *hash == record.hash;
}

// Below this many checks per thread, a helper costs more than it saves.
constexpr std::size_t kChecksPerThread = 256;
constexpr unsigned kMaxThreads = 8;
// Taken a chunk at a time, so that a thread that is done early takes more.
constexpr std::size_t kChunk = 64;

}  // namespace

bool still_fresh(const std::string& root, std::string_view target, const FileRecord& record,
                 std::int64_t stored_at_ms) {
    std::string buffer;
    platform::SignatureReader reader;
    return fresh_with(root, target, record, stored_at_ms, buffer, reader);
}

// One thread's share of the checks, with what it keeps from one batch to the next.
struct FreshnessChecker::Worker {
    std::string buffer;
    platform::SignatureReader reader;

    void work(const std::string& root, std::vector<FreshnessCheck>& checks,
              std::atomic<std::size_t>& next) {
        for (;;) {
            const std::size_t begin = next.fetch_add(kChunk);
            if (begin >= checks.size()) return;
            const std::size_t end = std::min(begin + kChunk, checks.size());
            for (std::size_t i = begin; i < end; ++i) {
                FreshnessCheck& c = checks[i];
                c.fresh = fresh_with(root, c.target, c.record, c.stored_at_ms, buffer, reader);
            }
        }
    }
};

FreshnessChecker::FreshnessChecker(std::string root)
    : root_(std::move(root)), own_(std::make_unique<Worker>()) {}

FreshnessChecker::~FreshnessChecker() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    work_ready_.notify_all();
    for (auto& helper : helpers_) helper.join();
}

void FreshnessChecker::start_helpers() {
    const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
    const unsigned wanted = std::min(cores, kMaxThreads) - 1;
    for (unsigned i = 0; i < wanted; ++i) {
        try {
            helpers_.emplace_back([this] { help(); });
        } catch (const std::system_error&) {
            break;  // no more threads to be had: the others do the work
        }
    }
    helpers_started_ = true;
}

void FreshnessChecker::help() {
    Worker worker;
    std::uint64_t seen = 0;
    for (;;) {
        std::vector<FreshnessCheck>* checks = nullptr;
        {
            std::unique_lock lock(mutex_);
            work_ready_.wait(lock, [&] { return stopping_ || generation_ != seen; });
            if (stopping_) return;
            seen = generation_;
            checks = checks_;
        }
        worker.work(root_, *checks, next_);
        std::lock_guard lock(mutex_);
        if (--working_ == 0) work_done_.notify_one();
    }
}

void FreshnessChecker::check(std::vector<FreshnessCheck>& checks,
                             const std::function<void()>& meanwhile) {
    if (!helpers_started_ && checks.size() >= 2 * kChecksPerThread) start_helpers();
    const bool shared = !helpers_.empty() && checks.size() >= 2 * kChecksPerThread;
    if (shared) {
        std::lock_guard lock(mutex_);
        checks_ = &checks;
        next_ = 0;
        working_ = static_cast<unsigned>(helpers_.size());
        ++generation_;
    }
    if (shared) work_ready_.notify_all();
    // The helpers must be done with `checks` whatever `meanwhile` throws.
    std::exception_ptr failure;
    if (meanwhile) {
        try {
            meanwhile();
        } catch (...) {
            failure = std::current_exception();
        }
    }
    if (shared) {
        own_->work(root_, checks, next_);
        std::unique_lock lock(mutex_);
        work_done_.wait(lock, [&] { return working_ == 0; });
    } else {
        std::atomic<std::size_t> next{0};
        own_->work(root_, checks, next);
    }
    if (failure) std::rethrow_exception(failure);
}

}  // namespace store
