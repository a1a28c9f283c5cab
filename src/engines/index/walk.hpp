#pragma once

#include <cstdint>
#include <functional>
#include <memory>
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
// chooses a program or a file outside it. Paths inside .git, inside a nested repository (a
// directory holding .git) and symbolic links are always left out.
class RepositoryFilter {
  public:
    explicit RepositoryFilter(std::string root);
    ~RepositoryFilter();
    RepositoryFilter(const RepositoryFilter&) = delete;
    RepositoryFilter& operator=(const RepositoryFilter&) = delete;

    const std::string& root() const;

    // Whether git would leave `relative` out: a rule ignores it or a directory above it, or it lies
    // where the index never looks. The .gitignore files on the way are read once and kept.
    bool excluded(std::string_view relative, bool is_directory);

    // Forgets what was read of `directory`'s .gitignore (relative, "" for the root), after it
    // changed.
    void forget(std::string_view directory);

    struct State;

  private:
    std::unique_ptr<State> state_;
};

// Calls `visit` for every regular file under the filter's root that it does not exclude, directory
// by directory, never following a symbolic link. A directory that cannot be read is passed over
// (and counted in `unreadable` when given).
void walk_repository(RepositoryFilter& filter, const std::function<void(RepoFile&&)>& visit,
                     std::int64_t* unreadable = nullptr);

}  // namespace code_index
