// Windows paths: drive letters, the lower-cased case form with either separator, the \\?\ and UNC
// forms, other drives never inside the working directory, and the log directory's default.
#include <sys/file.h>

#include "harness.hpp"

namespace e2e {
namespace {

using Args = std::vector<std::string>;

// Hooks run in C:\repo, which every run of these tests shares: a lock keeps them one at a time.
class WindowsPaths : public HookTest {
  protected:
    void SetUp() override {
        if (!windows_build()) GTEST_SKIP() << "drive letters and the case form are Windows's own";
        HookTest::SetUp();
        lock_ = ::open((wine_drive_c() / "repo.lock").c_str(), O_CREAT | O_RDWR, 0644);
        ASSERT_GE(lock_, 0);
        ::flock(lock_, LOCK_EX);
        fs::remove_all(wine_drive_c() / "repo");
        fs::create_directories(wine_drive_c() / "repo" / "Src");
        write_file(wine_drive_c() / "repo" / "Src" / "A.py", "");
    }
    void TearDown() override {
        if (lock_ < 0) return;
        fs::remove_all(wine_drive_c() / "repo");
        ::close(lock_);  // releases the lock
        HookTest::TearDown();
    }

    HookRun check_cache(const std::string& path) {
        return run({"hooks", "check-cache"},
                   {.stdin_data = input_with_path("claude", path), .cwd = wine_drive_c() / "repo"});
    }

    int lock_ = -1;
};

TEST_F(WindowsPaths, CaseFormAndDrivesDecideWhatIsInside) {
    answer("query-understand-recall", R"({"found": false})");
    const struct {
        std::string path;
        std::string target;  // "": refused as outside C:\repo
    } rows[] = {
        {R"(C:\repo\Src\A.py)", "Src/A.py"},
        {R"(c:\REPO\src\a.py)", "Src/A.py"},  // the names as they are on disk
        {R"(C:/repo/Src/New File.py)", "Src/New File.py"},
        {R"(c:\repo\SRC\New.PY)", "Src/New.PY"},  // a missing name keeps its case
        {R"(\\?\C:\repo\Src\A.py)", "Src/A.py"},
        {R"(Src\A.py)", "Src/A.py"},
        {R"(\repo\Src\..\Src\A.py)", "Src/A.py"},  // the current drive's root
        {R"(C:\repo)", "."},
        {R"(D:\x)", ""},
        {R"(C:\repo2\a.py)", ""},
        {R"(C:\)", ""},
        {R"(Z:\repo\Src\A.py)", ""},
        {R"(\\server\share\repo\a.py)", ""},
        {R"(\\.\pipe\repo)", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        forget_runs();
        const HookRun r = check_cache(row.path);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        if (row.target.empty()) {
            EXPECT_TRUE(host_calls().empty());
            EXPECT_NE(debug_log().find("extract_file_path rejected (outside cwd): "),
                      std::string::npos)
                << debug_log();
        } else {
            EXPECT_EQ(host_calls(), (std::vector<Args>{{"query", "understand", "--action=recall",
                                                        "--target=" + row.target}}));
        }
    }
    // The rejected path is named as the system resolved it.
    check_cache(R"(d:/x/../y)");
    EXPECT_NE(debug_log().find("extract_file_path rejected (outside cwd): d:\\y\n"),
              std::string::npos)
        << debug_log();
}

TEST_F(WindowsPaths, DefaultLogDirectoryIsUnderLocalAppData) {
    // Wine sets %LOCALAPPDATA% itself, to its user's folder in the prefix.
    const RunOptions options = {.env = {{"ORVANE_TAMBLO_LOG_DIR", std::nullopt}}};
    std::vector<fs::path> logs;
    for (const auto& user : fs::directory_iterator(wine_drive_c() / "users")) {
        if (!user.is_directory()) continue;
        logs.push_back(user.path() / "AppData/Local/orvane-tamblo");
        fs::remove_all(logs.back());
    }
    ASSERT_EQ(run({"hooks", "save-compact"}, options).status, 0);
    int found = 0;
    for (const auto& dir : logs) {
        found += fs::exists(dir / "logs/hook_debug.log");
        fs::remove_all(dir);
    }
    EXPECT_EQ(found, 1);
}

}  // namespace
}  // namespace e2e
