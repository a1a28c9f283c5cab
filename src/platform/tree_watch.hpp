#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// Changes under a directory tree, as paths relative to its root with '/' between components. A
// path is reported only when every directory above it is wanted; a directory's path stands for
// everything under it (a directory moved out, or removed at once, is reported by its name alone).
struct TreeChanges {
    std::vector<std::string> paths;  // created, changed, removed or moved, each once, sorted
    bool overflow = false;           // changes were lost (or are not watched): look at everything
};

// Watches a directory tree for changes to the files in it, never following a link.
//
// Linux: one inotify watch per wanted directory. Windows: one recursive watch of the root, whose
// reports are sifted through `wanted`. Where neither is available, or the tree needs more watches
// than it may use, native() is false and wait() ends each period in `overflow`, which is the
// caller's cue for a periodic rescan.
//
// wait() and rewatch() belong to one thread; stop(), native() and description() may be called
// from any. The watcher must outlive every call.
class TreeWatcher {
  public:
    using Wanted = std::function<bool(std::string_view relative_directory)>;

    // Watches `root` (absolute) and every directory under it that `wanted` accepts ("" is the
    // root, always watched), with at most `max_watches` native watches, and on Linux at most a
    // quarter of the user's inotify watches, so that the editor and others keep theirs.
    TreeWatcher(std::string root, Wanted wanted, std::size_t max_watches);
    ~TreeWatcher();
    TreeWatcher(const TreeWatcher&) = delete;
    TreeWatcher& operator=(const TreeWatcher&) = delete;

    // Whether changes are watched natively. Once false (the budget was exceeded, the system
    // refused, no support here), it stays false.
    bool native() const;
    // One line for a person: "inotify, 1,234 directories", or the rescan and why.
    std::string description() const;

    // Waits up to `timeout` for changes, then gathers what follows within a short settling time,
    // so that an editor's write, rename and chmod arrive as one batch. Without native watching it
    // waits the whole `timeout` and answers `overflow`: pass the rescan period. After stop(), it
    // answers nothing at once.
    TreeChanges wait(std::chrono::milliseconds timeout);

    // Asks `wanted` again about `relative_directory` and everything below it, after the rules
    // deciding it changed (a .gitignore was edited): newly wanted directories are watched, no
    // longer wanted ones released. Their files are not reported: the caller rescans them anyway.
    void rewatch(std::string_view relative_directory);

    // Makes wait() return at once, now and ever after.
    void stop();

    struct State;

  private:
    std::unique_ptr<State> state_;
};

}  // namespace platform
