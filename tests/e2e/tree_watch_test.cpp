// The tree watcher of each build (the Windows one under Wine) as a script changes a repository:
// every change by its path, what a new or renamed directory holds, nothing from where it is not
// wanted. (Wine's recursive watch covers only directories made after it started, and keeps the
// old names below a renamed one: the script stays clear of both.)
#include "harness.hpp"

namespace e2e {
namespace {

class TreeWatchReports : public HookTest {};

TEST_F(TreeWatchReports, EachChangeByItsPath) {
    write_file(repo_ / "a.c", "");
    const fs::path watcher = fs::path(fake_host_dir()).parent_path() /
                             (windows_build() ? "watch_tree.exe" : "watch_tree");
    const std::string script =
        "write a.c changed\nexpect a.c\n"
        "write n/m/f.c new\nexpect n n/m n/m/f.c\n"
        "rename a.c n/a.c\nexpect a.c n/a.c\n"
        "write n/m/g.c new\nexpect n/m/g.c\n"
        "rename n lib\nexpect lib lib/a.c lib/m lib/m/f.c lib/m/g.c n\n"
        "mkdir skip\nexpect skip\n"
        "write skip/x.c unwanted\nmkdir skip/deeper\nwrite b.c sentinel\nexpect b.c\n"
        "write d/e.c new\nexpect d d/e.c\n"
        "remove d\nexpect d d/e.c\n";
    expect_clean(run({native(repo_), "skip"}, {.stdin_data = script, .program = watcher.string()}),
                 std::string(windows_build() ? "watching: ReadDirectoryChangesW, the whole tree\n"
                                             : "watching: inotify, 1 directory\n") +
                     "changes: a.c\n"
                     "changes: n n/m n/m/f.c\n"
                     "changes: a.c n/a.c\n"
                     "changes: n/m/g.c\n"
                     "changes: lib lib/a.c lib/m lib/m/f.c lib/m/g.c n\n"
                     "changes: skip\n"
                     "changes: b.c\n"
                     "changes: d d/e.c\n"
                     "changes: d d/e.c\n");
}

}  // namespace
}  // namespace e2e
