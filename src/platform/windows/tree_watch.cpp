#include "platform/tree_watch.hpp"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

#include "platform/common/tree_walk.hpp"
#include "platform/os_error.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

// Names, sizes, times and attributes: what a save, a move or a checkout touches, not reads.
constexpr DWORD kFilter = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                          FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_SIZE |
                          FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_CREATION;

// The system keeps changes between reads in a buffer the size of ours: large enough for a
// checkout's burst, except on a network share, which takes 64 KiB at most.
constexpr DWORD kLargeBuffer = 256 * 1024;
constexpr DWORD kShareBuffer = 64 * 1024;

DWORD wait_ms(Clock::time_point until) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    return left <= 0 ? 0 : left >= INFINITE ? INFINITE - 1 : static_cast<DWORD>(left);
}

}  // namespace

struct TreeWatcher::State {
    std::string root;
    Wanted wanted;
    HANDLE directory = INVALID_HANDLE_VALUE;
    HANDLE io_done = nullptr, stop_event = nullptr;  // manual-reset events
    OVERLAPPED overlapped{};
    std::vector<DWORD> buffer;  // DWORDs: the notifications must be aligned so
    bool pending = false;
    std::atomic<bool> stopped{false};

    mutable std::mutex status_mutex;
    bool is_native = false;
    std::string reason;

    ~State() {
        if (pending) {
            // The buffer must outlive the read that fills it.
            CancelIoEx(directory, &overlapped);
            DWORD bytes = 0;
            GetOverlappedResult(directory, &overlapped, &bytes, TRUE);
        }
        for (HANDLE h : {io_done, stop_event}) {
            if (h != nullptr) CloseHandle(h);
        }
        if (directory != INVALID_HANDLE_VALUE) CloseHandle(directory);
    }

    // Asks for the next changes; false when the system refuses.
    bool read() {
        ResetEvent(io_done);
        overlapped = OVERLAPPED{};
        overlapped.hEvent = io_done;
        const auto ask = [this] {
            return ReadDirectoryChangesW(directory, buffer.data(),
                                         static_cast<DWORD>(buffer.size() * sizeof(DWORD)), TRUE,
                                         kFilter, nullptr, &overlapped, nullptr);
        };
        BOOL asked = ask();
        if (!asked && GetLastError() == ERROR_INVALID_PARAMETER &&
            buffer.size() * sizeof(DWORD) > kShareBuffer) {
            buffer.resize(kShareBuffer / sizeof(DWORD));
            asked = ask();
        }
        if (!asked) {
            give_up(
                OsError("periodic rescan: cannot watch", static_cast<int>(GetLastError())).what());
        }
        return pending = asked;
    }

    void give_up(std::string why) {
        const std::lock_guard lock(status_mutex);
        is_native = false;
        reason = std::move(why);
    }

    // Whether `relative` is a directory itself, not a reparse point standing for one.
    bool is_directory(const std::string& relative) const {
        std::string path = relative;
        std::replace(path.begin(), path.end(), '/', '\\');
        const DWORD attributes = GetFileAttributesW(windows::wide_path(root + "\\" + path).c_str());
        return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) &&
               !(attributes & FILE_ATTRIBUTE_REPARSE_POINT);
    }

    // Whether every directory above `relative` is wanted, as the directories inotify watches
    // are; `known` keeps the answers of one batch.
    bool above_wanted(const std::string& relative, std::map<std::string, bool>& known) const {
        for (std::size_t slash = relative.find('/'); slash != std::string::npos;
             slash = relative.find('/', slash + 1)) {
            const std::string directory = relative.substr(0, slash);
            auto it = known.find(directory);
            if (it == known.end()) it = known.emplace(directory, wanted(directory)).first;
            if (!it->second) return false;
        }
        return true;
    }

    // The changes the finished read holds, then the next read asked for.
    void collect(std::set<std::string>& paths, bool& overflow) {
        pending = false;
        DWORD bytes = 0;
        if (!GetOverlappedResult(directory, &overlapped, &bytes, FALSE)) {
            const DWORD error = GetLastError();
            overflow = true;
            if (error != ERROR_NOTIFY_ENUM_DIR) {
                // The root removed, its volume gone: nothing left to watch.
                give_up(
                    OsError("periodic rescan: watching stopped", static_cast<int>(error)).what());
                return;
            }
        } else if (bytes == 0) {
            overflow = true;  // more than the buffer held
        }
        std::vector<std::pair<DWORD, std::string>> changes;
        for (DWORD at = 0; bytes > 0;) {
            const auto* info = reinterpret_cast<const FILE_NOTIFY_INFORMATION*>(
                reinterpret_cast<const char*>(buffer.data()) + at);
            std::string path = windows::narrow(
                std::wstring_view(info->FileName, info->FileNameLength / sizeof(wchar_t)));
            std::replace(path.begin(), path.end(), '\\', '/');
            changes.emplace_back(info->Action, std::move(path));
            if (info->NextEntryOffset == 0) break;
            at += info->NextEntryOffset;
        }
        if (!read()) {
            overflow = true;
            return;
        }
        std::map<std::string, bool> known;
        for (auto& [action, path] : changes) {
            if (path.empty() || !above_wanted(path, known)) continue;
            const bool added =
                action == FILE_ACTION_ADDED || action == FILE_ACTION_RENAMED_NEW_NAME;
            if (action == FILE_ACTION_MODIFIED || added) {
                const bool directory = is_directory(path);
                // A directory's times change with what it holds, which is reported for itself;
                // reporting the directory too would have the caller look through all of it.
                if (directory && !added) continue;
                // A directory moved in arrives as one name: what it holds is listed here.
                if (directory && wanted(path)) {
                    tree_walk::walk(
                        root, path, wanted, [](const std::string&) { return true; },
                        [&paths](std::string&& found) { paths.insert(std::move(found)); });
                }
            }
            paths.insert(std::move(path));
        }
    }
};

TreeWatcher::TreeWatcher(std::string root, Wanted wanted, std::size_t)
    : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.root = std::move(root);
    s.wanted = std::move(wanted);
    s.io_done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    s.stop_event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (s.io_done == nullptr || s.stop_event == nullptr) {
        throw OsError("cannot watch " + s.root, static_cast<int>(GetLastError()));
    }
    // Reparse points below are never entered: the system reports changes of this tree alone.
    s.directory =
        CreateFileW(windows::wide_path(s.root).c_str(), FILE_LIST_DIRECTORY,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
    if (s.directory == INVALID_HANDLE_VALUE) {
        throw OsError("cannot watch " + s.root, static_cast<int>(GetLastError()));
    }
    s.buffer.resize(kLargeBuffer / sizeof(DWORD));
    s.is_native = true;
    s.read();
}

TreeWatcher::~TreeWatcher() = default;

bool TreeWatcher::native() const {
    const std::lock_guard lock(state_->status_mutex);
    return state_->is_native;
}

std::string TreeWatcher::description() const {
    const std::lock_guard lock(state_->status_mutex);
    return state_->is_native ? "ReadDirectoryChangesW, the whole tree" : state_->reason;
}

TreeChanges TreeWatcher::wait(std::chrono::milliseconds timeout) {
    State& s = *state_;
    const auto deadline = Clock::now() + std::min(timeout, tree_walk::kLongestWait);
    if (!native()) {
        WaitForSingleObject(s.stop_event, wait_ms(deadline));
        if (s.stopped) return {};
        return {.paths = {}, .overflow = true};
    }
    std::set<std::string> paths;
    bool overflow = false;
    // Until something arrives, then while more follows within the settling time.
    auto until = deadline;
    std::optional<Clock::time_point> batch_end;
    for (;;) {
        const HANDLE events[2] = {s.stop_event, s.io_done};
        const DWORD ready = WaitForMultipleObjects(2, events, FALSE, wait_ms(until));
        if (s.stopped) return {};
        if (ready != WAIT_OBJECT_0 + 1) break;
        s.collect(paths, overflow);
        if (overflow || !native()) break;
        if (paths.empty()) continue;  // nothing the caller would look at
        const auto now = Clock::now();
        if (!batch_end) batch_end = now + tree_walk::kLongestBatch;
        until = std::min(*batch_end, now + tree_walk::kSettle);
    }
    return {.paths = {paths.begin(), paths.end()}, .overflow = overflow};
}

void TreeWatcher::rewatch(std::string_view) {
    // Nothing to do: the whole tree is watched, and `wanted` is asked as changes arrive.
}

void TreeWatcher::stop() {
    state_->stopped = true;
    SetEvent(state_->stop_event);
}

}  // namespace platform
