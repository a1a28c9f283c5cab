// check-cache, refresh-cache and remind-store: which file they ask about, when each speaks, the
// exact hint in every agent's form, and the inputs and answers that end a run early.
#include "harness.hpp"

namespace e2e {
namespace {

using Message = std::string (*)(const std::string&);

const std::string kRecallKey = "query-understand-recall";

// "\xE2\x80\x94" is the em dash (U+2014) in UTF-8.
std::string recall_hint(const std::string& p) {
    return "Cached understanding exists for `" + p +
           "` \xE2\x80\x94 consider `understand(action=\"recall\", target=\"" + p +
           "\")` before reading the full file (saves tokens).";
}
std::string stale_hint(const std::string& p) {
    return "Cached understanding exists for `" + p +
           "` but is **stale** (the file changed since it was cached). After reading, refresh it "
           "with `understand(action=\"store\", target=\"" +
           p + "\", ...)`.";
}
std::string refresh_hint(const std::string& p) {
    return "You modified `" + p +
           "`, which has a model-authored cached understanding; your edit may have made it "
           "outdated. If so, refresh it with `understand(action=\"store\", scope=\"file\", "
           "target=\"" +
           p +
           "\", purpose=\"...\", key_points=[...], gotchas=[...])` so future sessions stay "
           "accurate.";
}
std::string store_reminder(const std::string& p) {
    return "## Remember to Cache: " + p +
           "\n\nAfter analyzing this file:\n- `understand(action='store', scope='file', target='" +
           p +
           "', purpose='...', key_points=[...], gotchas=[...])` to cache insights\n"
           "- `remember(action='store', key='...', value='...')` for key decisions\n"
           "- `understand(action=\"recall\")` to find related cached understanding";
}

std::vector<std::string> recall_call(const std::string& target) {
    return {"query", "understand", "--action=recall", "--target=" + target};
}

using FileHints = HookTest;

// The input names the file by its absolute path; the service is asked about the relative one.
TEST_F(FileHints, EveryAgentGetsTheSameTextInItsOwnForm) {
    const std::string absolute = (repo_ / "src" / "app" / "main.py").string();
    const struct {
        std::string hook, answer, event;
        Message message;
    } hints[] = {
        {"check-cache", R"({"found": true, "fresh": true})", "PreToolUse", recall_hint},
        {"check-cache", R"({"found": true, "fresh": false})", "PreToolUse", stale_hint},
        {"refresh-cache", R"({"found": true})", "PostToolUse", refresh_hint},
        {"remind-store", R"({"found": false})", "PostToolUse", store_reminder},
    };
    for (const std::string agent : {"claude", "copilot", "cursor", "windsurf"}) {
        for (const auto& h : hints) {
            SCOPED_TRACE(agent + " " + h.hook + " " + h.answer);
            answer(kRecallKey, h.answer);
            const HookRun r = hook(h.hook, input_with_path(agent, absolute), {"--agent", agent});
            EXPECT_EQ(r.out, response(agent, h.event, h.message("src/app/main.py")));
            EXPECT_EQ(r.err, "");
            EXPECT_EQ(r.status, 0);
            EXPECT_EQ(host_calls().back(), recall_call("src/app/main.py"));
        }
    }
}

TEST_F(FileHints, WhenEachHookSpeaks) {
    const std::string model = R"({"found": true, "understanding": {"purpose": "x"}})";
    const std::string automatic = R"({"found": true, "understanding": {"auto_generated": true}})";
    const struct {
        std::string hook, answer;
        int rc;
        Message message;  // nullptr: silent
    } rows[] = {
        {"check-cache", model, 0, recall_hint},  // no "fresh": fresh
        {"check-cache", automatic, 0, nullptr},
        {"check-cache", R"({"found": false})", 0, nullptr},
        {"check-cache", model, 1, nullptr},  // host down: its output is ignored
        {"refresh-cache", R"({"found": true, "fresh": false})", 0, refresh_hint},
        {"refresh-cache", automatic, 0, nullptr},
        {"remind-store", automatic, 0, nullptr},
        {"remind-store", R"({"fresh": true})", 0, store_reminder},
        {"remind-store", model, 1, store_reminder},
    };
    // A space in the path must reach the host inside the one --target argument.
    const std::string path = "src/my file.py";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.hook + " " + row.answer + " rc=" + std::to_string(row.rc));
        answer(kRecallKey, row.answer, row.rc);
        const HookRun r = hook(row.hook, input_with_path("claude", path));
        const std::string event = row.hook == "check-cache" ? "PreToolUse" : "PostToolUse";
        EXPECT_EQ(r.out, row.message ? response("claude", event, row.message(path)) : "");
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(host_calls().back(), recall_call(path));
    }
    EXPECT_EQ(host_calls().size(), std::size(rows)) << "exactly one recall per run";
}

TEST_F(FileHints, NoUsablePathStartsNoChild) {
    // A link inside the repository that leads out of it is resolved before the test.
    fs::create_directory_symlink(root_ / "home", repo_ / "out");
    for (const std::string input :
         {"", "{}", R"({"tool_input": {"file_path": ""}, "toolArgs": 0})",
          R"({"filePath": "../other/x.py"})", R"({"filePath": "out/x.py"})"}) {
        for (const char* name : {"check-cache", "refresh-cache", "remind-store"}) {
            SCOPED_TRACE(std::string(name) + " " + input);
            const HookRun r = hook(name, input);
            EXPECT_EQ(r.out, "");
            EXPECT_EQ(r.err, "");
            EXPECT_EQ(r.status, 0);
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
    EXPECT_EQ(host_calls().size(), 3u);
}

}  // namespace
}  // namespace e2e
