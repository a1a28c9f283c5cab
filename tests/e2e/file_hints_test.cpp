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
    "cached "
    "understanding\"}\n";

using FileHints = HookTest;

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
    const std::vector<std::string> call = {"query", "understand", "--action=recall",
                                           "--target=src/app/my file.py"};
    EXPECT_EQ(host_calls(), std::vector(std::size(rows), call)) << "exactly one recall per run";
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
