// Finding the file path in any agent's hook input, keeping it inside the repository, and making it
// relative again. Each test runs inside a fresh repository directory under /tmp.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <utility>

#include "cli_hooks/command/file_path.hpp"

namespace {

namespace fs = std::filesystem;
using cli_hooks::extract_file_path;
using cli_hooks::get_relative_path;
using cli_hooks::Json;

const std::string kRejected = "extract_file_path rejected (outside cwd): ";
const std::string kInvalid = "extract_file_path validation failed: ";

class FilePathTest : public ::testing::Test {
  protected:
    void SetUp() override {
        original_cwd_ = fs::current_path();
        char pattern[] = "/tmp/orvane-paths-XXXXXX";
        root_ = fs::canonical(::mkdtemp(pattern));  // /tmp itself may be reached through a link
        repo_ = root_ / "repo";
        for (const char* dir : {"repo/src", "repo2", "other", "logs"}) {
            fs::create_directories(root_ / dir);
        }
        fs::create_directory_symlink(root_ / "other", repo_ / "out");
        fs::create_directory_symlink("src", repo_ / "lib");
        fs::create_symlink("loop_b", repo_ / "loop_a");
        fs::create_symlink("loop_a", repo_ / "loop_b");
        ::setenv("ORVANE_HOOK_DEBUG", "1", 1);
        ::setenv("ORVANE_TAMBLO_LOG_DIR", (root_ / "logs").c_str(), 1);
        fs::current_path(repo_);
    }

    void TearDown() override {
        fs::current_path(original_cwd_);
        ::unsetenv("ORVANE_HOOK_DEBUG");
        ::unsetenv("ORVANE_TAMBLO_LOG_DIR");
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    // The debug log written since the last call, emptied; without the "HH:MM:SS " prefixes.
    std::string take_log() {
        const fs::path path = root_ / "logs" / "hook_debug.log";
        std::ifstream in(path);
        std::string line, out;
        while (std::getline(in, line)) out += line.substr(9) + "\n";
        fs::remove(path);
        return out;
    }

    fs::path original_cwd_, root_, repo_;
};

// Each row is also made relative again, as the hooks do with what extract_file_path accepts.
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
        {R"({"tool_input": {"file_path": 0}, "file_path": false, "tool_info": {"file_path": []},
            "toolArgs": {}, "filePath": "e.py"})",
         "e.py", ""},
        {R"({"toolArgs": 5})", "5", ""},
        {R"({"toolArgs": "{\"file_path\": \"x.py\"}"})", R"({"file_path": "x.py"})", ""},
        {R"({"file_path": "a.py", "tool_info": "oops"})", "a.py", ""},  // never looked at
        {R"({"filePath": "src//./a/../b.py"})", "src/b.py", ""},
        {R"({"filePath": "new/dir/../file.py"})", "new/file.py", ""},
        {R"({"filePath": "lib/a.py"})", "src/a.py", ""},
        {R"({"filePath": "out/../repo/x.py"})", "x.py", ""},  // ".." leaves the link's target
        {R"({"filePath": ")" + repo_.string() + R"("})", ".", ""},
        {R"({"filePath": ")" + (repo_ / "./lib").string() + R"("})", "src", ""},
        {R"({"tool_input": {}, "tool_info": {}, "toolArgs": null})", std::nullopt, ""},
        {R"({"filePath": "../other/x.py"})", std::nullopt, kRejected + outside + "\n"},
        {R"({"filePath": ")" + sibling + R"("})", std::nullopt, kRejected + sibling + "\n"},
        {R"({"filePath": "out/x.py"})", std::nullopt, kRejected + outside + "\n"},
        // Links in existing parts are resolved even after a missing part that ".." stepped back.
        {R"({"filePath": "missing/../out/x.py"})", std::nullopt, kRejected + outside + "\n"},
        {R"({"filePath": "a\u0000b.py"})", std::nullopt, kInvalid},
        {R"({"filePath": "loop_a/x.py"})", std::nullopt, kInvalid},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input);
        const std::optional<std::string> got = extract_file_path(support::parse_json(row.input));
        if (row.expected) {
            EXPECT_EQ(got, (*row.expected == "." ? repo_ : repo_ / *row.expected).string());
            if (got) {
                EXPECT_EQ(get_relative_path(*got), *row.expected);
            }
        } else {
            EXPECT_EQ(got, std::nullopt);
        }
        const std::string log = take_log();
        EXPECT_TRUE(row.log.ends_with(": ")
                        ? log.starts_with(row.log) && std::count(log.begin(), log.end(), '\n') == 1
                        : log == row.log)
            << log;
    }
}

TEST_F(FilePathTest, RootWorkingDirectoryHoldsEverything) {
    fs::current_path("/");
    const std::string outside = (root_ / "other" / "x.py").string();
    EXPECT_EQ(extract_file_path(support::parse_json(R"({"filePath": ")" + outside + R"("})")),
              outside);
    EXPECT_EQ(extract_file_path(support::parse_json(R"({"filePath": "/..//../"})")), "/");
    EXPECT_EQ(get_relative_path("/etc/x"), "etc/x");
    EXPECT_EQ(get_relative_path("/"), ".");
    EXPECT_EQ(take_log(), "");
}

}  // namespace
