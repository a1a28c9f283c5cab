// Finding the file path in any agent's hook input, keeping it inside the repository, and making it
// relative again. Each test runs inside a fresh repository directory under /tmp.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "cli_hooks/command/file_path.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"

namespace {

namespace fs = std::filesystem;
using cli_hooks::extract_file_path;
using cli_hooks::get_relative_path;
using cli_hooks::Json;

const std::string kRejected = "extract_file_path rejected (outside cwd): ";
const std::string kInvalid = "extract_file_path validation failed: ";
const std::string kNotUnder = "get_relative_path: not under cwd, using as-is (";

class FilePathTest : public ::testing::Test {
  protected:
    void SetUp() override {
        original_cwd_ = fs::current_path();
        char pattern[] = "/tmp/orvane-paths-XXXXXX";
        root_ = fs::canonical(::mkdtemp(pattern));  // /tmp itself may be reached through a link
        repo_ = root_ / "repo";
        for (const char* dir : {"repo/src/inner", "repo2", "other", "logs"}) {
            fs::create_directories(root_ / dir);
        }
        fs::create_directory_symlink(root_ / "other", repo_ / "out");
        fs::create_directory_symlink("src", repo_ / "lib");
        fs::create_directory_symlink("src/inner", repo_ / "deep");
        fs::create_symlink("loop_b", repo_ / "loop_a");
        fs::create_symlink("loop_a", repo_ / "loop_b");
        for (const char* name : {"ORVANE_HOOK_DEBUG", "ORVANE_TAMBLO_LOG_DIR"}) {
            const char* value = ::getenv(name);
            saved_env_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
        }
        ::setenv("ORVANE_HOOK_DEBUG", "1", 1);
        ::setenv("ORVANE_TAMBLO_LOG_DIR", (root_ / "logs").c_str(), 1);
        fs::current_path(repo_);
    }

    void TearDown() override {
        fs::current_path(original_cwd_);
        for (const auto& [name, value] : saved_env_) {
            value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
        }
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    // The debug log written since the last call, emptied; without the "HH:MM:SS " prefixes.
    std::string take_log() {
        const fs::path path = root_ / "logs" / "hook_debug.log";
        std::ifstream in(path);
        std::string line, out;
        while (std::getline(in, line)) out += line.substr(9) + "\n";
        in.close();
        fs::remove(path);
        return out;
    }

    fs::path original_cwd_, root_, repo_;
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_env_;
};

TEST_F(FilePathTest, ExtractSearchesFivePlacesAndKeepsThePathInsideTheRepository) {
    const std::string outside = (root_ / "other" / "x.py").string();
    const std::string sibling = (root_ / "repo2" / "a.py").string();
    const struct {
        std::string input;
        std::optional<std::string> expected;  // relative to the repository
        std::string log;                      // the whole debug line, or a prefix ending in ": "
    } rows[] = {
        {R"({"tool_input": {"file_path": "src/a.py"}, "file_path": "b.py"})", "src/a.py", ""},
        {R"({"file_path": "b.py", "tool_info": {"file_path": "c.py"}})", "b.py", ""},
        {R"({"toolArgs": "t.py", "tool_info": {"file_path": "w.py"}})", "w.py", ""},
        {R"({"filePath": "c.py", "toolArgs": "t.py"})", "t.py", ""},
        {R"({"tool_input": {"file_path": ""}, "filePath": "d.py"})", "d.py", ""},
        {R"({"tool_input": {"file_path": 0}, "file_path": false, "tool_info": {"file_path": null},
            "toolArgs": [], "filePath": "e.py"})",
         "e.py", ""},
        {R"({"toolArgs": {}, "filePath": "f.py"})", "f.py", ""},
        {R"({"toolArgs": 5})", "5", ""},
        {R"({"toolArgs": "{\"file_path\": \"x.py\"}"})", R"({"file_path": "x.py"})", ""},
        {R"({"file_path": "a.py", "tool_info": "oops"})", "a.py", ""},
        {R"({"filePath": "src//./a/../b.py"})", "src/b.py", ""},
        {R"({"filePath": "new/dir/file.py"})", "new/dir/file.py", ""},
        {R"({"filePath": "lib/a.py"})", "src/a.py", ""},
        {R"({"filePath": "deep/../x.py"})", "src/x.py", ""},
        {R"({"filePath": ")" + repo_.string() + R"("})", ".", ""},
        {R"({"filePath": ")" + (repo_ / "lib").string() + R"("})", "src", ""},
        {"{}", std::nullopt, ""},
        {R"({"tool_input": {}, "tool_info": {"file_path": ""}, "toolArgs": null})", std::nullopt,
         ""},
        {R"({"filePath": "../other/x.py"})", std::nullopt, kRejected + outside + "\n"},
        {R"({"filePath": ")" + sibling + R"("})", std::nullopt, kRejected + sibling + "\n"},
        {R"({"filePath": "out/x.py"})", std::nullopt, kRejected + outside + "\n"},
        {R"({"filePath": "a\u0000b.py"})", std::nullopt, kInvalid},
        {R"({"filePath": "loop_a/x.py"})", std::nullopt, kInvalid},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input);
        const std::optional<std::string> got = extract_file_path(Json::parse(row.input));
        if (row.expected) {
            const fs::path expected = *row.expected == "." ? repo_ : repo_ / *row.expected;
            EXPECT_EQ(got, expected.string());
        } else {
            EXPECT_EQ(got, std::nullopt);
        }
        const std::string log = take_log();
        if (row.log.ends_with(": ")) {
            EXPECT_EQ(log.rfind(row.log, 0), 0u) << log;
            EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
        } else {
            EXPECT_EQ(log, row.log);
        }
    }
}

// A part that exists is resolved even when an earlier part was missing and ".." stepped back.
TEST_F(FilePathTest, LinkAfterAMissingPartIsStillResolved) {
    const std::string outside = (root_ / "other" / "x.py").string();
    EXPECT_EQ(platform::canonical_path("missing/../out/x.py"), outside);
    EXPECT_EQ(extract_file_path(Json::parse(R"({"filePath": "missing/../out/x.py"})")),
              std::nullopt);
    EXPECT_EQ(take_log(), kRejected + outside + "\n");
}

TEST_F(FilePathTest, ExtractFailsOnANonObjectWhereItLooks) {
    for (const char* input : {R"({"tool_input": null, "filePath": "a.py"})",
                              R"({"tool_info": [1], "toolArgs": "a.py"})"}) {
        SCOPED_TRACE(input);
        EXPECT_ANY_THROW(extract_file_path(Json::parse(input)));
    }
}

TEST_F(FilePathTest, RelativePathIsLexical) {
    const std::string repo = repo_.string();
    const std::string sibling = (root_ / "repo2" / "a.py").string();
    const struct {
        std::string path, expected;
        bool logs = false;
    } rows[] = {
        {"src/a.py", "src/a.py"},
        {"../x.py", "../x.py"},
        {repo + "/src/app/main.py", "src/app/main.py"},
        {repo + "//src/./a.py/", "src/a.py"},
        {repo + "/", "."},
        {repo + "/.", "."},
        {repo + "/src/../b.py", "src/../b.py"},
        {repo + "/lib/a.py", "lib/a.py"},  // links are not resolved here
        {sibling, sibling, true},
        {"/etc/x", "/etc/x", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(get_relative_path(row.path), row.expected);
        const std::string log = take_log();
        if (row.logs) {
            EXPECT_EQ(log.rfind(kNotUnder, 0), 0u) << log;
            EXPECT_NE(log.find(row.path), std::string::npos) << log;
            EXPECT_NE(log.find(repo), std::string::npos) << log;
            EXPECT_TRUE(log.ends_with(")\n")) << log;
        } else {
            EXPECT_EQ(log, "");
        }
    }
}

TEST_F(FilePathTest, RootWorkingDirectoryHoldsEverything) {
    fs::current_path("/");
    const std::string outside = (root_ / "other" / "x.py").string();
    EXPECT_EQ(extract_file_path(Json::parse(R"({"filePath": ")" + outside + R"("})")), outside);
    EXPECT_EQ(extract_file_path(Json::parse(R"({"filePath": "/"})")), "/");
    EXPECT_EQ(get_relative_path("/etc/x"), "etc/x");
    EXPECT_EQ(get_relative_path("/"), ".");
    EXPECT_EQ(take_log(), "");
}

TEST_F(FilePathTest, CanonicalPath) {
    const struct {
        std::string path;
        fs::path expected;
    } rows[] = {
        {"", repo_},
        {".", repo_},
        {"src//./a/../b.py", repo_ / "src/b.py"},
        {"/..//../", "/"},
        {"lib/inner/../../a.py", repo_ / "a.py"},  // ".." after a link leaves its target
        {"out", root_ / "other"},
        {"missing/more/../x", repo_ / "missing/x"},
        {(root_ / "repo/./lib").string(), repo_ / "src"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(platform::canonical_path(row.path), row.expected.string());
    }
    EXPECT_THROW(platform::canonical_path(std::string("a\0b", 3)), std::invalid_argument);
    EXPECT_THROW(platform::canonical_path("loop_a"), platform::OsError);
}

}  // namespace
