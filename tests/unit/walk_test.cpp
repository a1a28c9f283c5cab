// The walk against git itself: in a repository built here, the walk lists what
// `git ls-files --cached --others --exclude-standard` lists, less links (which git stores as
// links) and the nested repository's entry, whatever the user's global excludes setting.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engines/index/walk.hpp"

namespace {

namespace fs = std::filesystem;
using Paths = std::vector<std::string>;

void put(const fs::path& path, const std::string& content = "x") {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

class RepoWalk : public ::testing::Test {
  protected:
    void SetUp() override {
        if (std::system("git --version >/dev/null 2>&1") != 0) {
            GTEST_SKIP() << "git is missing, and it is what the walk is checked against";
        }
        char pattern[] = "/tmp/orvane-walk-XXXXXX";
        root_ = ::mkdtemp(pattern);
        repo_ = root_ / "repo";
        fs::create_directories(repo_);
        ASSERT_EQ(std::system(("git init -q " + repo_.string()).c_str()), 0);
        put(repo_ / ".gitignore",
            "# build output\n*.o\n/build/\nnode_modules\n.*\n!.gitignore\ndocs/**/*.html\n"
            "!docs/**/keep.html\ngen*/\na/**/b\ndata/*\n!data/keep/\nname\\ \n");
        put(repo_ / "src/.gitignore", "!special.o\n/local.txt\ntmp/\n");
        put(repo_ / "src/deep/.gitignore", "*\n!*/\n!*.h\n");
        put(repo_ / ".git/info/exclude", "*.bak\n");
        for (const char* file : {"a.c",
                                 "a.o",
                                 ".hidden",
                                 "build/x.c",
                                 "src/build/y.c",
                                 "node_modules/p/i.js",
                                 "src/node_modules/q.js",
                                 "docs/x.html",
                                 "docs/a/b.html",
                                 "docs/a/keep.html",
                                 "docs/readme.md",
                                 "gen1/g.c",
                                 "src/gen2/g.c",
                                 "genfile.c",
                                 "a/b",
                                 "a/x/y/b/z.c",
                                 "a/xb",
                                 "data/d.txt",
                                 "data/keep/k.txt",
                                 "data/sub/s.txt",
                                 "src/special.o",
                                 "src/other.o",
                                 "src/local.txt",
                                 "local.txt",
                                 "src/tmp/t.c",
                                 "src/x/tmp/t.c",
                                 "src/deep/d.c",
                                 "src/deep/d.h",
                                 "src/deep/in/e.h",
                                 "src/deep/in/e.c",
                                 "notes.bak",
                                 "editor.swp",
                                 "editor.swo",
                                 "scratch.tmp",
                                 "a.xyz",
                                 "name ",
                                 "name",
                                 "\xC3\xBC.c",
                                 "nested/n.c",
                                 "locked/f.c",
                                 "outside/secret.c"}) {
            put(repo_ / file);
        }
        fs::rename(repo_ / "outside", root_ / "outside");
        fs::create_directory_symlink("../outside", repo_ / "link_out");
        fs::create_symlink("a.c", repo_ / "link_file");
        fs::create_symlink("missing", repo_ / "dangling");
        put(root_ / "outside/rules", "*\n");  // a linked .gitignore is not read
        fs::create_symlink("../../outside/rules", repo_ / "docs/.gitignore");
        ASSERT_EQ(std::system(("git init -q " + (repo_ / "nested").string()).c_str()), 0);
        fs::permissions(repo_ / "locked", fs::perms::none);
    }

    void TearDown() override {
        if (root_.empty()) return;
        fs::permissions(repo_ / "locked", fs::perms::owner_all);
        fs::remove_all(root_);
    }

    // The user's configuration for this case, for git and for the walk alike.
    void home(const std::vector<std::pair<std::string, std::string>>& files, bool xdg) {
        fs::remove_all(root_ / "home");
        fs::remove_all(root_ / "xdg");
        for (const auto& [name, content] : files) put(root_ / name, content);
        ::setenv("HOME", (root_ / "home").c_str(), 1);
        if (xdg) {
            ::setenv("XDG_CONFIG_HOME", (root_ / "xdg").c_str(), 1);
        } else {
            ::unsetenv("XDG_CONFIG_HOME");
        }
    }

    Paths git_files() const {
        const std::string command = "cd '" + repo_.string() +
                                    "' && GIT_CONFIG_NOSYSTEM=1 git ls-files -z --cached "
                                    "--others --exclude-standard 2>/dev/null";
        FILE* pipe = ::popen(command.c_str(), "r");
        std::string out;
        for (int c; (c = std::fgetc(pipe)) != EOF;) out += static_cast<char>(c);
        ::pclose(pipe);
        Paths paths;
        for (std::size_t start = 0, end; (end = out.find('\0', start)) != out.npos;
             start = end + 1) {
            const std::string path = out.substr(start, end - start);
            if (!path.ends_with('/') && !fs::is_symlink(repo_ / path)) paths.push_back(path);
        }
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    fs::path root_, repo_;
};

TEST_F(RepoWalk, ListsWhatGitWouldTrack) {
    const bool root_reads_all = ::geteuid() == 0;  // permissions do not stop root
    const struct {
        const char* name;
        std::vector<std::pair<std::string, std::string>> files;
        bool xdg;
    } cases[] = {
        {"default global file", {{"home/.config/git/ignore", "*.swp\n"}}, false},
        {"XDG_CONFIG_HOME",
         {{"xdg/git/ignore", "*.swo\n"}, {"home/.config/git/ignore", "*.swp\n"}},
         true},
        {"core.excludesFile, ~/.gitconfig winning",
         {{"xdg/git/config", "[core]\n\texcludesFile = ~/other\n"},
          {"home/.gitconfig", "[user]\nname = x\n[core] excludesfile = \"~/my ignores\" ; why\n"},
          {"home/my ignores", "*.tmp\n"},
          {"home/other", "*.c\n"},
          {"xdg/git/ignore", "*.swo\n"}},
         true},
        {"included configuration",
         {{"home/.gitconfig", "[include]\n\tpath = more.cfg\n[core \"x\"]\nexcludesFile = ~/n\n"},
          {"home/more.cfg", "[Core]\n  ExcludesFile = ~/x.\\\n ignore\n"},
          {"home/x. ignore", "*.xyz\n"},
          {"home/n", "*.c\n"}},
         false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        home(c.files, c.xdg);
        const Paths expected = git_files();
        code_index::RepositoryFilter filter(repo_.string());
        Paths walked;
        std::int64_t unreadable = 0;
        code_index::walk_repository(
            filter, [&](code_index::RepoFile&& file) { walked.push_back(file.path); }, &unreadable);
        std::sort(walked.begin(), walked.end());
        EXPECT_EQ(walked, expected);
        EXPECT_EQ(unreadable, root_reads_all ? 0 : 1);

        // A single path gets the walk's answer, every file of the tree asked for.
        for (auto it = fs::recursive_directory_iterator(
                 repo_, fs::directory_options::skip_permission_denied);
             it != fs::recursive_directory_iterator(); ++it) {
            if (it->path().filename() == ".git") it.disable_recursion_pending();
            if (it->is_symlink() || !it->is_regular_file()) continue;
            const std::string path = fs::relative(it->path(), repo_).string();
            const auto file = filter.lookup(path);
            EXPECT_EQ(file.has_value(), std::binary_search(expected.begin(), expected.end(), path))
                << path;
        }
        for (const char* path : {"link_file", "link_out/secret.c", "a.c/", "../repo/a.c"}) {
            EXPECT_FALSE(filter.lookup(path)) << path;
        }
    }
}

// After a .gitignore changes, a single path keeps the old answer until its directory is
// forgotten, then gets the new one.
TEST_F(RepoWalk, ForgetsAChangedIgnoreFile) {
    home({}, false);
    code_index::RepositoryFilter filter(repo_.string());
    EXPECT_FALSE(filter.excluded("src/build/y.c", false));
    put(repo_ / "src/.gitignore", "*.c\n");
    put(repo_ / ".gitignore", "*.md\n");
    EXPECT_FALSE(filter.excluded("src/build/y.c", false));
    filter.forget("src");
    EXPECT_TRUE(filter.excluded("src/build/y.c", false));
    EXPECT_FALSE(filter.excluded("docs/readme.md", false));
    filter.forget("");
    EXPECT_TRUE(filter.excluded("docs/readme.md", false));
}

}  // namespace
