#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace code_index {

// A regular file of the repository, as git would see it.
struct RepoFile {
    std::string path;  // relative to the repository's root, with '/' between components
    std::int64_t size = 0;
    std::int64_t mtime_ns = 0;  // modification time, nanoseconds since the Unix epoch
};

// Decides, as git does, which paths of a repository it would track if asked (tracked or not, but
// not ignored): the rules of every .gitignore from the root down to the path, .git/info/exclude and
// the user's global excludes file (core.excludesFile in the user's git configuration, else
// $XDG_CONFIG_HOME/git/ignore). Git itself is never run, and no configuration of the repository
// chooses a program or a file outside it: .git/info/exclude is read only from a .git directory
// at the root (not through the file a worktree or submodule has there instead). Paths inside
// .git, inside a nested repository (a directory holding .git) and symbolic links are always left
// out. Names compare as the platform's file names do (without regard to case on Windows).
//
// One thread at a time: the walk and the single-path questions share what was read.
class RepositoryFilter {
  public:
    explicit RepositoryFilter(std::string root);
    ~RepositoryFilter();
    RepositoryFilter(const RepositoryFilter&) = delete;
    RepositoryFilter& operator=(const RepositoryFilter&) = delete;

    const std::string& root() const;

    // Whether git would leave `relative` out: a rule ignores it or a directory above it, or it lies
    // where the index never looks (below a link, a nested repository or .git, or a path with
    // empty, "." or ".." components). `relative` itself is taken to be what the caller says it
    // is. The .gitignore files on the way are read once and kept until forget() or the next
    // walk.
    bool excluded(std::string_view relative, bool is_directory);

    // `relative` as the walk would give it, or nullopt when it is not a regular file the walk
    // would visit (gone, excluded, a link, a directory): what a watcher asks after a change.
    std::optional<RepoFile> lookup(std::string_view relative);

    // Forgets what was read of `directory` (relative, "" for the root) and of every directory
    // below it, after its .gitignore changed or it was replaced. For the root this includes
    // .git/info/exclude and the global excludes file.
    void forget(std::string_view directory);

    struct State;

  private:
    friend void walk_repository(RepositoryFilter&, const std::function<void(RepoFile&&)>&,
                                std::int64_t*);
    friend void walk_directory(RepositoryFilter&, std::string_view,
                               const std::function<void(RepoFile&&)>&);
    std::unique_ptr<State> state_;
};

// Calls `visit` for every regular file under the filter's root that it does not exclude, directory
// by directory, never following a symbolic link and never entering an excluded directory. Every
// ignore file is read afresh, and what the filter kept is dropped. A directory that cannot be read
// is passed over (and counted in `unreadable` when given); the root itself throws
// platform::OsError, since an empty list would read as a repository emptied.
void walk_repository(RepositoryFilter& filter, const std::function<void(RepoFile&&)>& visit,
                     std::int64_t* unreadable = nullptr);

// Calls `visit` for every file the walk would visit below the directory `relative` ("" is the
// whole repository, as walk_repository): nothing when the directory is excluded, gone or not a
// directory. The ignore files above it are those the filter has read; its own and those below it
// are read afresh. What cannot be read is passed over.
void walk_directory(RepositoryFilter& filter, std::string_view relative,
                    const std::function<void(RepoFile&&)>& visit);

}  // namespace code_index
