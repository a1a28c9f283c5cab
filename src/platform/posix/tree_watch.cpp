#include "platform/tree_watch.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <unordered_map>

#include "platform/common/tree_walk.hpp"
#include "platform/os_error.hpp"
#include "platform/posix/fd.hpp"

#ifdef __linux__
#include <linux/openat2.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#endif

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

int poll_ms(Clock::time_point until) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    return left <= 0 ? 0 : left > 1'000'000 ? 1'000'000 : static_cast<int>(left);
}

}  // namespace

struct TreeWatcher::State {
    std::string root;
    Wanted wanted;
    std::size_t max_watches = 0;
    posix::UniqueFd stop_read, stop_write;  // readable once stop() was called
    std::atomic<bool> stopped{false};

    mutable std::mutex status_mutex;
    bool is_native = false;
    std::string reason;  // why not, when not
    std::atomic<std::size_t> watching{0};

#ifdef __linux__
    posix::UniqueFd inotify;
    posix::UniqueFd root_fd;     // where watched directories are opened from
    bool by_descriptor = false;  // watches are placed through /proc/self/fd
    std::size_t user_watches = 0;
    std::unordered_map<int, std::string> path_of;  // watch descriptor -> relative directory
    std::map<std::string, int> watch_of;           // and back, sorted so a subtree is a range

    void start();
    bool enter(const std::string& relative);
    std::vector<std::string> watched_below(const std::string& relative) const;
    void release(const std::string& relative);
    void give_up(std::string why);
    void read_events(std::set<std::string>& paths, bool& overflow);
#endif
};

namespace {

// inotify refusing to take more watches, or to start at all: watching stops, rescans take over.
struct OutOfWatches {
    std::string why;
};

#ifdef __linux__

constexpr std::uint32_t kEvents = IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB |
                                  IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF |
                                  IN_ONLYDIR | IN_EXCL_UNLINK;

std::size_t read_limit(const char* file) {
    std::ifstream in(file);
    std::size_t value = 0;
    return in >> value ? value : 0;
}

// An O_PATH descriptor of `relative` under `root_fd`, resolved by the kernel without leaving the
// root or passing through any link; -1 when that cannot be done.
int open_beneath(int root_fd, const std::string& relative) {
    open_how how{};
    how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    const char* path = relative.empty() ? "." : relative.c_str();
    return static_cast<int>(::syscall(SYS_openat2, root_fd, path, &how, sizeof how));
}

std::string out_of_watches(int error, std::size_t user_watches) {
    if (error == ENOSPC) {
        return "periodic rescan: the user's inotify watches are used up "
               "(fs.inotify.max_user_watches is " +
               tree_walk::with_commas(user_watches) + ")";
    }
    if (error == EMFILE) {
        return "periodic rescan: the user's inotify instances are used up "
               "(fs.inotify.max_user_instances)";
    }
    return std::string("periodic rescan: inotify failed: ") + std::strerror(error);
}

#endif

}  // namespace

#ifdef __linux__

// Watches the whole tree afresh, on a new inotify instance.
void TreeWatcher::State::start() {
    inotify.close();
    path_of.clear();
    watch_of.clear();
    watching = 0;
    inotify.fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (inotify.fd < 0) throw OutOfWatches{out_of_watches(errno, user_watches)};
    tree_walk::walk(
        root, "", wanted, [this](const std::string& relative) { return enter(relative); }, nullptr);
    if (!watch_of.contains("")) throw OutOfWatches{"periodic rescan: the root cannot be watched"};
}

// Places the watch of the directory `relative`; false when there is none to place, or the
// directory is already watched under another name (a bind mount inside the tree), so that the
// walk does not go round it.
bool TreeWatcher::State::enter(const std::string& relative) {
    int watch;
    if (by_descriptor) {
        // Through the descriptor, so that no link swapped in for a directory on the way since it
        // was listed can lead the watch elsewhere.
        posix::UniqueFd directory(open_beneath(root_fd.fd, relative));
        if (directory.fd < 0) return false;
        const std::string path = "/proc/self/fd/" + std::to_string(directory.fd);
        watch = ::inotify_add_watch(inotify.fd, path.c_str(), kEvents);
    } else {
        const std::string path = relative.empty() ? root : root + "/" + relative;
        watch = ::inotify_add_watch(inotify.fd, path.c_str(), kEvents | IN_DONT_FOLLOW);
    }
    if (watch < 0) {
        if (errno == ENOSPC || errno == ENOMEM) {
            throw OutOfWatches{out_of_watches(errno, user_watches)};
        }
        return false;  // gone, unreadable or no longer a directory: nothing to watch
    }
    if (const auto known = path_of.find(watch); known != path_of.end()) {
        return known->second == relative;
    }
    if (path_of.size() >= max_watches) {
        ::inotify_rm_watch(inotify.fd, watch);
        std::string why = "periodic rescan: more than " + tree_walk::with_commas(max_watches) +
                          " directories to watch";
        if (user_watches > 0 && max_watches == user_watches / 4) {
            why += " (a quarter of the user's " + tree_walk::with_commas(user_watches) +
                   " inotify watches)";
        }
        throw OutOfWatches{std::move(why)};
    }
    path_of.emplace(watch, relative);
    watch_of.emplace(relative, watch);
    watching = path_of.size();
    return true;
}

// `relative` and the watched directories below it.
std::vector<std::string> TreeWatcher::State::watched_below(const std::string& relative) const {
    if (relative.empty()) {
        std::vector<std::string> all;
        for (const auto& [path, watch] : watch_of) all.push_back(path);
        return all;
    }
    std::vector<std::string> found;
    if (watch_of.contains(relative)) found.push_back(relative);
    const std::string prefix = relative + "/";
    for (auto it = watch_of.lower_bound(prefix);
         it != watch_of.end() && it->first.starts_with(prefix); ++it) {
        found.push_back(it->first);
    }
    return found;
}

// Stops watching `relative` and every directory below it.
void TreeWatcher::State::release(const std::string& relative) {
    for (const std::string& path : watched_below(relative)) {
        const int watch = watch_of.at(path);
        // Already gone with its directory, at times: the kernel then says so, harmlessly.
        ::inotify_rm_watch(inotify.fd, watch);
        path_of.erase(watch);
        watch_of.erase(path);
    }
    watching = path_of.size();
}

void TreeWatcher::State::give_up(std::string why) {
    inotify.close();  // every watch goes with it
    path_of.clear();
    watch_of.clear();
    watching = 0;
    const std::lock_guard lock(status_mutex);
    is_native = false;
    reason = std::move(why);
}

void TreeWatcher::State::read_events(std::set<std::string>& paths, bool& overflow) {
    alignas(inotify_event) char buffer[64 * 1024];
    for (;;) {
        const ssize_t got = ::read(inotify.fd, buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN) return;
            give_up(out_of_watches(errno, user_watches));
            overflow = true;
            return;
        }
        for (ssize_t at = 0; at < got;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if (event->mask & IN_Q_OVERFLOW) {
                overflow = true;  // and the caller starts afresh: what is queued is moot
                return;
            }
            const auto watched = path_of.find(event->wd);
            if (watched == path_of.end()) continue;  // released since
            const std::string directory = watched->second;
            if (event->len == 0 || event->name[0] == '\0') {
                // About the watched directory itself: its parent reports it by name, except for
                // the root, and a file system unmounted under it leaves something unwatched.
                if ((event->mask & IN_UNMOUNT) ||
                    (directory.empty() && (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF)))) {
                    overflow = true;
                } else if (event->mask & IN_IGNORED) {
                    watch_of.erase(directory);
                    path_of.erase(event->wd);
                    watching = path_of.size();
                    if (directory.empty()) {
                        give_up("periodic rescan: the watch on the root was lost");
                        overflow = true;
                        return;
                    }
                }
                continue;
            }
            std::string path = tree_walk::child_path(directory, event->name);
            if (event->mask & IN_ISDIR) {
                if (event->mask & (IN_DELETE | IN_MOVED_FROM)) release(path);
                // What lands in a new directory before its watch is in place is found by listing
                // it after placing the watch.
                if ((event->mask & (IN_CREATE | IN_MOVED_TO)) && wanted(path)) {
                    tree_walk::walk(
                        root, path, wanted,
                        [this](const std::string& relative) { return enter(relative); },
                        [&paths](std::string&& found) { paths.insert(std::move(found)); });
                }
            }
            paths.insert(std::move(path));
        }
    }
}

#endif

TreeWatcher::TreeWatcher(std::string root, Wanted wanted, std::size_t max_watches)
    : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.root = std::move(root);
    s.wanted = std::move(wanted);
    s.max_watches = max_watches;
    int ends[2];
#ifdef __linux__
    // Closed on exec from the start: the server runs children from other threads meanwhile.
    if (::pipe2(ends, O_CLOEXEC) != 0) throw OsError("cannot watch " + s.root, errno);
#else
    if (::pipe(ends) != 0) throw OsError("cannot watch " + s.root, errno);
    for (int fd : ends) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
#endif
    s.stop_read.fd = ends[0];
    s.stop_write.fd = ends[1];
#ifdef __linux__
    s.root_fd.fd = ::open(s.root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (s.root_fd.fd < 0) throw OsError("cannot watch " + s.root, errno);
    s.user_watches = read_limit("/proc/sys/fs/inotify/max_user_watches");
    if (s.user_watches > 0) s.max_watches = std::min(s.max_watches, s.user_watches / 4);
    {
        // Older kernels, or no /proc: watches go by name, which cannot follow a link at its end.
        posix::UniqueFd probe(open_beneath(s.root_fd.fd, ""));
        s.by_descriptor =
            probe.fd >= 0 &&
            ::access(("/proc/self/fd/" + std::to_string(probe.fd)).c_str(), F_OK) == 0;
    }
    try {
        s.start();
        s.is_native = true;
    } catch (const OutOfWatches& out) {
        s.give_up(out.why);
    }
#else
    s.reason = "periodic rescan: no native watching on this system";
#endif
}

TreeWatcher::~TreeWatcher() = default;

bool TreeWatcher::native() const {
    const std::lock_guard lock(state_->status_mutex);
    return state_->is_native;
}

std::string TreeWatcher::description() const {
    const std::lock_guard lock(state_->status_mutex);
    if (!state_->is_native) return state_->reason;
    const std::size_t count = state_->watching;
    return "inotify, " + tree_walk::with_commas(count) +
           (count == 1 ? " directory" : " directories");
}

TreeChanges TreeWatcher::wait(std::chrono::milliseconds timeout) {
    State& s = *state_;
    const auto deadline = Clock::now() + std::min(timeout, tree_walk::kLongestWait);
    if (!native()) {
        pollfd stop{s.stop_read.fd, POLLIN, 0};
        while (!s.stopped && ::poll(&stop, 1, poll_ms(deadline)) < 0 && errno == EINTR) {
        }
        if (s.stopped) return {};
        return {.paths = {}, .overflow = true};
    }
    std::set<std::string> paths;
    bool overflow = false;
#ifdef __linux__
    // Until something arrives, then while more follows within the settling time.
    auto until = deadline;
    std::optional<Clock::time_point> batch_end;
    for (;;) {
        pollfd fds[2] = {{s.stop_read.fd, POLLIN, 0}, {s.inotify.fd, POLLIN, 0}};
        const int ready = ::poll(fds, 2, poll_ms(until));
        if (ready < 0 && errno == EINTR) continue;
        if (s.stopped) return {};
        if (ready <= 0 || fds[1].revents == 0) break;
        try {
            s.read_events(paths, overflow);
        } catch (const OutOfWatches& out) {
            s.give_up(out.why);
            overflow = true;
        }
        if (!native()) break;
        if (overflow) {
            // Lost events may have been directories made or moved: watch everything afresh.
            try {
                s.start();
            } catch (const OutOfWatches& out) {
                s.give_up(out.why);
            }
            break;
        }
        if (paths.empty()) continue;  // nothing the caller would look at
        const auto now = Clock::now();
        if (!batch_end) batch_end = now + tree_walk::kLongestBatch;
        until = std::min(*batch_end, now + tree_walk::kSettle);
    }
#endif
    return {.paths = {paths.begin(), paths.end()}, .overflow = overflow};
}

void TreeWatcher::rewatch(std::string_view relative_directory) {
#ifdef __linux__
    State& s = *state_;
    if (!native()) return;
    const std::string relative(relative_directory);
    for (const std::string& directory : s.watched_below(relative)) {
        if (!directory.empty() && s.watch_of.contains(directory) && !s.wanted(directory)) {
            s.release(directory);
        }
    }
    // Only below a watched directory: the rules of those above decide the rest.
    const std::size_t slash = relative.rfind('/');
    const std::string parent = slash == std::string::npos ? "" : relative.substr(0, slash);
    if (!relative.empty() && (!s.watch_of.contains(parent) || !s.wanted(relative))) return;
    try {
        tree_walk::walk(
            s.root, relative, s.wanted,
            [&s](const std::string& directory) { return s.enter(directory); }, nullptr);
    } catch (const OutOfWatches& out) {
        s.give_up(out.why);
    }
#else
    (void)relative_directory;
#endif
}

void TreeWatcher::stop() {
    // One byte is enough: nothing reads it, so the pipe stays readable.
    if (!state_->stopped.exchange(true)) {
        const char one = 1;
        [[maybe_unused]] const ssize_t written = ::write(state_->stop_write.fd, &one, 1);
    }
}

}  // namespace platform
