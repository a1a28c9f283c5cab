// The repository walk through each build's own listing of directories (the Windows one under
// Wine): kinds, sizes beyond 32 bits, times, ignore files and what is never entered.
#include "harness.hpp"

namespace e2e {
namespace {

class RepoWalkListing : public HookTest {};

TEST_F(RepoWalkListing, ListsWhatGitWouldTrack) {
    const fs::path outside = root_ / "outside";
    for (const auto& [path, content] : std::vector<std::pair<fs::path, std::string>>{
             {repo_ / ".gitignore", "*.LOG\nbuild/\n/docs/*\n!/docs/keep.md\n"},
             {repo_ / "src/.gitignore", "*.tmp\n!keep.tmp\n"},
             {repo_ / ".git/info/exclude", "*.bak\n"},
             {repo_ / ".git/HEAD", "ref: refs/heads/main\n"},
             {repo_ / "a.c", "abc"},
             {repo_ / "x.log", ""},
             {repo_ / "n.bak", ""},
             {repo_ / "build/o.c", ""},
             {repo_ / "docs/a.md", ""},
             {repo_ / "docs/keep.md", "k"},
             {repo_ / "src/m.tmp", ""},
             {repo_ / "src/keep.tmp", "kk"},
             {repo_ / "\xC3\xBCn\xC3\xAF/\xC3\xA9.c", "\xC3\xA9"},
             {repo_ / "nested/.git/HEAD", ""},
             {repo_ / "nested/n.c", ""},
             {outside / "secret.c", ""},
         }) {
        fs::create_directories(path.parent_path());
        write_file(path, content);
    }
    fs::create_directory_symlink(outside, repo_ / "out");
    write_file(repo_ / "big.bin", "");
    fs::resize_file(repo_ / "big.bin", 5'000'000'123);  // sparse: no disk is spent
    const auto time = fs::file_time_type::clock::from_sys(
        std::chrono::sys_seconds(std::chrono::seconds(1'000'000'000)));
    for (const auto& entry : fs::recursive_directory_iterator(repo_)) {
        if (entry.is_regular_file()) fs::last_write_time(entry.path(), time);
    }

    const fs::path lister = fs::path(fake_host_dir()).parent_path() /
                            (windows_build() ? "list_files.exe" : "list_files");
    const std::string common =
        ".gitignore 36 1000000000\n"
        "a.c 3 1000000000\n"
        "big.bin 5000000123 1000000000\n"
        "docs/keep.md 1 1000000000\n"
        "src/.gitignore 16 1000000000\n"
        "src/keep.tmp 2 1000000000\n";
    const std::string names = "\xC3\xBCn\xC3\xAF/\xC3\xA9.c 2 1000000000\n";
    // Windows compares names without regard to case, so "*.LOG" takes x.log there.
    expect_clean(run({native(repo_)}, {.program = lister.string()}),
                 windows_build() ? common + names : common + "x.log 0 1000000000\n" + names);
}

}  // namespace
}  // namespace e2e
