// check-cache, refresh-cache and remind-store: which file they ask about, when each speaks, the
// exact hint in each agent's form, and the inputs and answers that end a run early.
#include "harness.hpp"

namespace e2e {
namespace {

const std::string kRecallKey = "query-understand-recall";

// The hints for "src/app/my file.py", each in one agent's form.
const std::string kRecallClaude =
    "{\"hookSpecificOutput\": {\"hookEventName\": \"PreToolUse\", \"additionalContext\": \"Cached "
    "understanding exists for `src/app/my file.py` \\u2014 consider "
    "`understand(action=\\\"recall\\\", "
    "target=\\\"src/app/my file.py\\\")` before reading the full file (saves tokens).\"}}\n";
const std::string kRecallCopilot =
    "{\"message\": \"Cached understanding exists for `src/app/my file.py` \\u2014 consider "
    "`understand(action=\\\"recall\\\", target=\\\"src/app/my file.py\\\")` before reading the "
    "full file (saves tokens).\", \"action\": \"approve\"}\n";
const std::string kStaleWindsurf =
    "Cached understanding exists for `src/app/my file.py` but is **stale** (the file changed since "
    "it was cached). After reading, refresh it with `understand(action=\"store\", "
    "target=\"src/app/my file.py\", ...)`.\n";
const std::string kRefreshClaude =
    "{\"hookSpecificOutput\": {\"hookEventName\": \"PostToolUse\", \"additionalContext\": \"You "
    "modified `src/app/my file.py`, which has a model-authored cached understanding; your edit may "
    "have made it outdated. If so, refresh it with `understand(action=\\\"store\\\", "
    "scope=\\\"file\\\", target=\\\"src/app/my file.py\\\", purpose=\\\"...\\\", key_points=[...], "
    "gotchas=[...])` so future sessions stay accurate.\"}}\n";
const std::string kStoreCopilot =
    "{\"message\": \"## Remember to Cache: src/app/my file.py\\n\\nAfter analyzing this file:\\n- "
    "`understand(action='store', scope='file', target='src/app/my file.py', purpose='...', "
    "key_points=[...], gotchas=[...])` to cache insights\\n- `remember(action='store', key='...', "
    "value='...')` for key decisions\\n- `understand(action=\\\"recall\\\")` to find related "
    "cached understanding\"}\n";

using FileHints = HookTest;
using Calls = std::vector<std::vector<std::string>>;

std::vector<std::string> recall(const std::string& target) {
    return {"query", "understand", "--action=recall", "--target=" + target};
}

// Each agent names the file in its own member, here by its absolute path; the service is asked
// about the relative one (a space and all, in one argument), which the hint shows twice.
TEST_F(FileHints, WhenEachHookSpeaks) {
    const std::string model = R"({"found": true, "understanding": {"purpose": "x"}})";
    const std::string automatic = R"({"found": true, "understanding": {"auto_generated": true}})";
    const struct {
        std::string agent, hook, answer;
        int rc;
        std::string out;
    } rows[] = {
        {"claude", "check-cache", model, 0, kRecallClaude},  // no "fresh": fresh
        {"windsurf", "check-cache", R"({"found": true, "fresh": null})", 0, kStaleWindsurf},
        {"copilot", "check-cache", model, 0, kRecallCopilot},
        {"claude", "check-cache", automatic, 0, ""},
        // Only the boolean true marks the indexer's own entry.
        {"claude", "check-cache", R"({"found": true, "understanding": {"auto_generated": 1}})", 0,
         kRecallClaude},
        {"claude", "check-cache", R"({"found": true, "understanding": {"auto_generated": "true"}})",
         0, kRecallClaude},
        {"claude", "check-cache", R"({"found": true, "understanding": null})", 0, kRecallClaude},
        {"claude", "check-cache", R"({"found": false})", 0, ""},
        {"claude", "check-cache", "{}", 0, ""},
        {"claude", "check-cache", model, 1, ""},  // host down: its output is ignored
        {"claude", "refresh-cache", R"({"found": true, "fresh": false})", 0, kRefreshClaude},
        {"claude", "refresh-cache", automatic, 0, ""},
        {"claude", "refresh-cache", model, 1, ""},
        {"copilot", "remind-store", automatic, 0, ""},
        {"copilot", "remind-store", R"({"fresh": true})", 0, kStoreCopilot},
        {"copilot", "remind-store", model, 1, kStoreCopilot},
    };
    const std::string absolute = (repo_ / "src/app/my file.py").string();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.agent + " " + row.hook + " " + row.answer +
                     " rc=" + std::to_string(row.rc));
        answer(kRecallKey, row.answer, row.rc);
        expect_clean(hook(row.hook, input_with_path(row.agent, absolute), {"--agent", row.agent}),
                     row.out);
    }
    EXPECT_EQ(host_calls(), Calls(std::size(rows), recall("src/app/my file.py")))
        << "exactly one recall per run";
}

// Where each agent's input names the file, in order, and how the path is kept inside the
// repository: links are resolved (a ".." after one leaves its target), anything outside is refused
// with one debug line. POSIX path rules; WindowsPaths has Windows's.
TEST_F(FileHints, PathIsFoundAndKeptInsideTheRepository) {
    if (windows_build()) GTEST_SKIP() << "POSIX paths (WindowsPaths covers the Windows build)";
    answer(kRecallKey, R"({"found": false})");
    for (const char* dir : {"repo/src", "repo2", "other"}) fs::create_directories(root_ / dir);
    fs::create_directory_symlink(root_ / "other", repo_ / "out");
    fs::create_directory_symlink("src", repo_ / "lib");
    fs::create_symlink("loop_b", repo_ / "loop_a");
    fs::create_symlink("loop_a", repo_ / "loop_b");
    const std::string real_root = fs::canonical(root_).string();  // /tmp may be a link
    const std::string outside = real_root + "/other/x.py";
    const std::string sibling = real_root + "/repo2/a.py";
    const std::string rejected = "extract_file_path rejected (outside cwd): ";
    const std::string invalid = "extract_file_path validation failed: ";
    const struct {
        std::string input;
        std::string target;  // "": no query
        std::string log;     // the debug line between the dispatcher's two, or its start (": ")
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
        {R"({"filePath": )" + json_string(repo_.string()) + "}", ".", ""},
        {R"({"filePath": )" + json_string((repo_ / "./lib").string()) + "}", "src", ""},
        {R"({"tool_input": {}, "tool_info": {}, "toolArgs": null})", "", ""},
        {R"({"filePath": "../other/x.py"})", "", rejected + outside},
        {R"({"filePath": )" + json_string(sibling) + "}", "", rejected + sibling},
        {R"({"filePath": "out/x.py"})", "", rejected + outside},
        // Links in existing parts are resolved even after a missing part that ".." stepped back.
        {R"({"filePath": "missing/../out/x.py"})", "", rejected + outside},
        {R"({"filePath": "a\u0000b.py"})", "", invalid},
        {R"({"filePath": "loop_a/x.py"})", "", invalid},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input);
        forget_runs();
        expect_clean(hook("check-cache", row.input), "");
        EXPECT_EQ(host_calls(), row.target.empty() ? Calls{} : Calls{recall(row.target)});
        expect_debug_line(row.log);
    }
    // With the root as the working directory, everything is inside.
    for (const auto& [path, target] : {std::pair{outside, outside.substr(1)},
                                       std::pair{std::string("/..//../"), std::string(".")}}) {
        SCOPED_TRACE(path);
        forget_runs();
        expect_clean(run({"hooks", "check-cache"},
                         {.stdin_data = R"({"filePath": )" + json_string(path) + "}", .cwd = "/"}),
                     "");
        EXPECT_EQ(host_calls(), Calls{recall(target)});
        EXPECT_EQ(debug_messages().size(), 2u) << debug_log();
    }
}

TEST_F(FileHints, NoUsablePathStartsNoChild) {
    // A link inside the repository that leads out of it is resolved before the test.
    fs::create_directory_symlink(root_ / "home", repo_ / "out");
    for (const std::string input :
         {"", "{}", R"({"tool_input": {"file_path": ""}, "toolArgs": 0})",
          R"({"filePath": "../other/x.py"})", R"({"filePath": "out/x.py"})"}) {
        for (const char* name : {"check-cache", "refresh-cache", "remind-store"}) {
            SCOPED_TRACE(std::string(name) + " " + input);
            expect_clean(hook(name, input), "");
        }
    }
    EXPECT_TRUE(host_calls().empty());
}

TEST_F(FileHints, NonObjectInputOrAnswerEndsThroughTheGuard) {
    expect_guarded(hook("check-cache", R"({"tool_input": null, "filePath": "a.py"})"),
                   "check-cache");
    EXPECT_TRUE(host_calls().empty());

    answer(kRecallKey, "[1]");
    for (const char* name : {"check-cache", "refresh-cache", "remind-store"}) {
        SCOPED_TRACE(name);
        expect_guarded(hook(name, R"({"filePath": "a.py"})"), name);
    }
    // An understanding that is no object cannot be read from.
    answer(kRecallKey, R"({"found": true, "understanding": [1]})");
    expect_guarded(hook("check-cache", R"({"filePath": "a.py"})"), "check-cache");
    EXPECT_EQ(host_calls().size(), 4u);
}

}  // namespace
}  // namespace e2e
