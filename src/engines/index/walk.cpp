#include "engines/index/walk.hpp"

#include <unordered_map>
#include <utility>
#include <vector>

#include "engines/index/ignore_rules.hpp"
#include "engines/index/user_excludes.hpp"
#include "platform/dir_list.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"

namespace code_index {

namespace {

// Beyond any ignore file a person writes; a bigger one is read this far.
constexpr std::size_t kIgnoreFileLimit = 16 << 20;

// The ignore lists in force for a path, shallowest first; each applies to the paths below its
// directory, `base` long ("" for the root).
struct Level {
    const IgnoreList* rules;
    std::size_t base;
};

// Whether the lists leave `path` out: the deepest list with a matching pattern decides, its last
// matching pattern within it.
bool ignored(const std::vector<Level>& levels, std::string_view path, bool is_directory) {
    for (auto it = levels.rbegin(); it != levels.rend(); ++it) {
        const std::string_view below = it->base == 0 ? path : path.substr(it->base + 1);
        if (const auto decision = it->rules->decide(below, is_directory)) return *decision;
    }
    return false;
}

IgnoreList read_ignore_file(const platform::Directory& directory, bool fold_case) {
    try {
        if (auto text = directory.read_file(".gitignore", kIgnoreFileLimit)) {
            return IgnoreList(*text, fold_case);
        }
    } catch (const platform::OsError&) {
        // One that cannot be read counts as absent, as git has it (with a warning).
    }
    return {};
}

}  // namespace

struct RepositoryFilter::State {
    std::string root;
    bool fold_case = platform::file_names_fold_case();

    // The lists that apply to the whole repository, below every .gitignore.
    bool base_read = false;
    IgnoreList user_excludes;
    IgnoreList info_exclude;

    // What excluded() read of each directory it looked into.
    struct Node {
        IgnoreList rules;
        bool outside = false;  // not a directory the index enters
    };
    std::unordered_map<std::string, Node> directories;

    bool is_dot_git(std::string_view name) const {
        if (name.size() != 4 || name[0] != '.') return false;
        if (!fold_case) return name == ".git";
        return (name[1] | 0x20) == 'g' && (name[2] | 0x20) == 'i' && (name[3] | 0x20) == 't';
    }

    void read_base() {
        user_excludes = {};
        info_exclude = {};
        if (auto path = user_excludes_file()) {
            try {
                // The user's own file: a link there is theirs to make.
                if (auto text = platform::read_regular_file(platform::is_absolute_path(*path)
                                                                ? *path
                                                                : platform::join_path(root, *path),
                                                            kIgnoreFileLimit)) {
                    user_excludes = IgnoreList(*text, fold_case);
                }
            } catch (const platform::OsError&) {
            }
        }
        try {
            const platform::Directory top(root);
            const platform::Directory git(top, ".git");
            const platform::Directory info(git, "info");
            if (auto text = info.read_file("exclude", kIgnoreFileLimit)) {
                info_exclude = IgnoreList(*text, fold_case);
            }
        } catch (const platform::OsError&) {
            // No .git directory of our own, or one we cannot read: nothing to add.
        }
        base_read = true;
    }

    std::vector<Level> base_levels() {
        if (!base_read) read_base();
        std::vector<Level> levels;
        for (const IgnoreList* list : {&user_excludes, &info_exclude}) {
            if (!list->empty()) levels.push_back({list, 0});
        }
        return levels;
    }

    // The directory `relative` as excluded() needs it, read on first use.
    const Node& node(const std::string& relative) {
        const auto found = directories.find(relative);
        if (found != directories.end()) return found->second;
        Node node;
        try {
            const std::string path = relative.empty() ? root : platform::join_path(root, relative);
            if (!relative.empty() && platform::path_kind(path) != platform::PathKind::directory) {
                node.outside = true;
            } else {
                const platform::Directory directory(path);
                node.outside = !relative.empty() && directory.contains(".git");
                if (!node.outside) node.rules = read_ignore_file(directory, fold_case);
            }
        } catch (const platform::OsError&) {
            node.outside = true;
        }
        return directories.emplace(relative, std::move(node)).first->second;
    }
};

RepositoryFilter::RepositoryFilter(std::string root) : state_(std::make_unique<State>()) {
    state_->root = std::move(root);
}

RepositoryFilter::~RepositoryFilter() = default;

const std::string& RepositoryFilter::root() const {
    return state_->root;
}

bool RepositoryFilter::excluded(std::string_view relative, bool is_directory) {
    State& s = *state_;
    if (relative.empty()) return false;
    std::vector<Level> levels = s.base_levels();
    const State::Node& top = s.node("");
    if (!top.rules.empty()) levels.push_back({&top.rules, 0});
    for (std::size_t start = 0;;) {
        const std::size_t slash = relative.find('/', start);
        const bool last = slash == std::string_view::npos;
        const std::string_view name = relative.substr(start, last ? relative.npos : slash - start);
        if (name.empty() || name == "." || name == ".." || s.is_dot_git(name)) return true;
        const std::string_view path = relative.substr(0, last ? relative.size() : slash);
        if (ignored(levels, path, !last || is_directory)) return true;
        if (last) return false;
        const State::Node& node = s.node(std::string(path));
        if (node.outside) return true;
        if (!node.rules.empty()) levels.push_back({&node.rules, path.size()});
        start = slash + 1;
    }
}

std::optional<RepoFile> RepositoryFilter::lookup(std::string_view relative) {
    if (excluded(relative, false)) return std::nullopt;
    const std::string path = platform::join_path(state_->root, relative);
    try {
        if (platform::path_kind(path) != platform::PathKind::regular) return std::nullopt;
    } catch (const platform::OsError&) {
        return std::nullopt;
    }
    const auto signature = platform::file_signature(path);
    if (!signature) return std::nullopt;
    return RepoFile{std::string(relative), signature->size, signature->mtime_ns};
}

void RepositoryFilter::forget(std::string_view directory) {
    State& s = *state_;
    if (directory.empty()) {
        s.directories.clear();
        s.base_read = false;
        return;
    }
    std::erase_if(s.directories, [&](const auto& entry) {
        const std::string& key = entry.first;
        return key.starts_with(directory) &&
               (key.size() == directory.size() || key[directory.size()] == '/');
    });
}

namespace {

// Walks the directory `start` (at the relative `path`, "" for the root) and everything below it
// that `levels` and the ignore files on the way leave in.
void walk_from(RepositoryFilter::State& s, std::vector<Level> levels, std::string path,
               std::unique_ptr<platform::Directory> start,
               const std::function<void(RepoFile&&)>& visit, std::int64_t* unreadable);

}  // namespace

void walk_repository(RepositoryFilter& filter, const std::function<void(RepoFile&&)>& visit,
                     std::int64_t* unreadable) {
    RepositoryFilter::State& s = *filter.state_;
    s.directories.clear();
    s.base_read = false;
    walk_from(s, s.base_levels(), "", std::make_unique<platform::Directory>(s.root), visit,
              unreadable);
}

void walk_directory(RepositoryFilter& filter, std::string_view relative,
                    const std::function<void(RepoFile&&)>& visit) {
    if (relative.empty()) return walk_repository(filter, visit);
    if (filter.excluded(relative, true)) return;
    RepositoryFilter::State& s = *filter.state_;
    // The lists in force inside it: those of every directory above it, which excluded() has read.
    std::vector<Level> levels = s.base_levels();
    std::unique_ptr<platform::Directory> directory;
    try {
        directory = std::make_unique<platform::Directory>(s.root);
        for (std::size_t start = 0;;) {
            const std::size_t slash = relative.find('/', start);
            const std::string above(relative.substr(0, start == 0 ? 0 : start - 1));
            const RepositoryFilter::State::Node& node = s.node(above);
            if (!node.rules.empty()) levels.push_back({&node.rules, above.size()});
            const std::string_view name = relative.substr(
                start, slash == std::string_view::npos ? relative.npos : slash - start);
            // Entered one component at a time: a link on the way is never followed.
            directory = std::make_unique<platform::Directory>(*directory, name);
            if (slash == std::string_view::npos) break;
            start = slash + 1;
        }
    } catch (const platform::OsError&) {
        return;  // gone, replaced by a link or a file, or unreadable: nothing of it to visit
    }
    if (directory->contains(".git")) return;
    walk_from(s, std::move(levels), std::string(relative), std::move(directory), visit, nullptr);
}

namespace {

void walk_from(RepositoryFilter::State& s, std::vector<Level> levels, std::string path,
               std::unique_ptr<platform::Directory> start,
               const std::function<void(RepoFile&&)>& visit, std::int64_t* unreadable) {
    // `path` is the relative path of the directory being listed, then of an entry.
    // The .gitignore lists of the directories on the way down, owned here: only the current
    // path's are kept.
    std::vector<std::unique_ptr<IgnoreList>> owned;

    struct Frame {
        std::unique_ptr<platform::Directory> directory;
        std::size_t path_size;             // of the directory's relative path
        std::vector<std::string> subdirs;  // to enter once its files are done
        std::size_t next = 0;
        bool has_rules = false;
    };
    std::vector<Frame> stack;
    const auto count_unreadable = [&] {
        if (unreadable != nullptr) ++*unreadable;
    };

    // Lists one directory: its files visited, its subdirectories kept for later.
    const auto list = [&](std::unique_ptr<platform::Directory> directory) {
        Frame frame{nullptr, path.size(), {}, 0, false};
        auto rules = std::make_unique<IgnoreList>(read_ignore_file(*directory, s.fold_case));
        if (!rules->empty()) {
            levels.push_back({rules.get(), path.size()});
            owned.push_back(std::move(rules));
            frame.has_rules = true;
        }
        try {
            platform::DirEntry entry;
            while (directory->next(entry)) {
                const bool is_directory = entry.kind == platform::EntryKind::directory;
                if ((!is_directory && entry.kind != platform::EntryKind::regular) ||
                    s.is_dot_git(entry.name)) {
                    continue;
                }
                path.resize(frame.path_size);
                if (!path.empty()) path += '/';
                path += entry.name;
                if (ignored(levels, path, is_directory)) continue;
                if (is_directory) {
                    frame.subdirs.emplace_back(entry.name);
                } else if (const auto signature = directory->signature()) {
                    visit(RepoFile{path, signature->size, signature->mtime_ns});
                }
            }
        } catch (const platform::OsError&) {
            count_unreadable();
        }
        path.resize(frame.path_size);
        frame.directory = std::move(directory);
        stack.push_back(std::move(frame));
    };

    list(std::move(start));
    while (!stack.empty()) {
        Frame& top = stack.back();
        if (top.next == top.subdirs.size()) {
            if (top.has_rules) {
                levels.pop_back();
                owned.pop_back();
            }
            stack.pop_back();
            continue;
        }
        const std::string& name = top.subdirs[top.next++];
        path.resize(top.path_size);
        if (!path.empty()) path += '/';
        path += name;
        std::unique_ptr<platform::Directory> child;
        try {
            child = std::make_unique<platform::Directory>(*top.directory, name);
        } catch (const platform::OsError& error) {
            if (!error.leads_nowhere()) count_unreadable();  // gone since is not unreadable
            continue;
        }
        if (child->contains(".git")) continue;  // a repository of its own
        list(std::move(child));
    }
}

}  // namespace

}  // namespace code_index
