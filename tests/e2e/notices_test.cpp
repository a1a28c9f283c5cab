// persist-learnings and inject-context: when they speak, in which form, which host queries they
// make; and that none of the three notices waits for standard input.
#include <algorithm>

#include "harness.hpp"

namespace e2e {
namespace {

using Calls = std::vector<std::vector<std::string>>;

const std::vector<std::string> kStatsCall = {"query", "understand", "--action=stats", "--limit=10"};
const std::vector<std::string> kListCall = {"conversation", "list", "--days=1", "--status=active",
                                            "--json"};
const std::vector<std::string> kContextCall = {"conversation", "context", "s1",
                                               "--strategy=balanced", "--json"};

const std::string kSummary12 =
    "## Session Summary\n\n**12 entries** in AI cache. Your analysis will be available in future "
    "sessions.\n\nBefore ending, consider persisting key insights:\n"
    "- `remember(action='store', key='...', value='...')` for decisions/learnings\n"
    "- `understand(action='store')` for any files analyzed but not yet cached";

const std::string kC =
    "### Session Goals\n1. Fix the parser";  // what the context answer renders to

std::string cache_line(const std::string& total) {
    return "AI Cache: " + total +
           " entries available. Use understand(action='recall') before reading files.";
}

// Enough of the JSON string form for the ASCII texts compared here.
std::string json_string(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '\n') {
            out += "\\n";
        } else {
            if (c == '"' || c == '\\') out += '\\';
            out += c;
        }
    }
    return out + "\"";
}

class Notices : public HookTest {
  protected:
    void conversation(bool present) {
        answer("conversation-list", present ? R"({"sessions": [{"id": "s1"}]})" : "",
               present ? 0 : 1);
        answer("conversation-context", R"({"goals": ["Fix the parser"]})");
    }
    void stats(const std::string& answer_json) {
        answer("query-understand-stats", answer_json, answer_json.empty() ? 1 : 0);
    }
    void forget_calls() { fs::remove(scenario_ / "calls.log"); }
};

TEST_F(Notices, PersistLearningsSummaryInEachAgentsForm) {
    stats(R"({"total": 12, "by_scope": {}})");
    const struct {
        std::vector<std::string> args;
        std::string expected;
    } cases[] = {
        {{}, "{\"systemMessage\": " + json_string(kSummary12) + "}\n"},
        {{"--agent", "copilot"}, "{\"message\": " + json_string(kSummary12) + "}\n"},
        {{"--agent", "cursor"}, "{\"output\": " + json_string(kSummary12) + "}\n"},
        {{"--agent", "windsurf"}, kSummary12 + "\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        forget_calls();
        const HookRun r = hook("persist-learnings", "{}", c.args);
        EXPECT_EQ(r.out, c.expected);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(host_calls(), Calls{kStatsCall}) << "only the total is needed";
    }
}

TEST_F(Notices, PersistLearningsQuietWithoutCachedEntries) {
    for (const std::string answer_json : {R"({"total": 0})", R"({"by_scope": {}})", "{}", ""}) {
        SCOPED_TRACE(answer_json.empty() ? "host down" : answer_json);
        stats(answer_json);
        const HookRun r = hook("persist-learnings", "{}");
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
    }
}

TEST_F(Notices, TotalThatIsNoNumberEndsThroughTheGuard) {
    for (const std::string answer_json : {R"({"total": null})", R"({"total": "3"})"}) {
        SCOPED_TRACE(answer_json);
        stats(answer_json);
        const HookRun r = hook("persist-learnings", "{}");
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err.rfind("orvane-tamblo hook persist-learnings error: ", 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
}

TEST_F(Notices, InjectContextJoinsConversationAndCacheLine) {
    const std::string both = kC + "\n\n" + cache_line("7");
    const struct {
        const char* name;
        bool conversation;
        std::string stats;
        std::vector<std::string> args;
        std::string expected;
    } cases[] = {
        {"both, Windsurf by default", true, R"({"total": 7})", {}, both + "\n"},
        {"cache line only", false, R"({"total": 3})", {}, cache_line("3") + "\n"},
        {"conversation only", true, R"({"total": 0})", {}, kC + "\n"},
        {"host down", true, "", {}, kC + "\n"},
        {"neither", false, R"({"total": 0})", {}, ""},
        // pre_prompt carries no model context for Claude, so it becomes a system message.
        {"claude",
         true,
         R"({"total": 7})",
         {"--agent", "claude"},
         "{\"systemMessage\": " + json_string(both) + "}\n"},
        {"copilot",
         true,
         R"({"total": 7})",
         {"--agent", "copilot"},
         "{\"message\": " + json_string(both) + "}\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        conversation(c.conversation);
        stats(c.stats);
        const HookRun r = hook("inject-context", "{}", c.args);
        EXPECT_EQ(r.out, c.expected);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
    }
}

TEST_F(Notices, InjectContextAsksConversationBeforeStats) {
    conversation(true);
    stats(R"({"total": 7})");
    ASSERT_EQ(hook("inject-context", "{}").status, 0);
    EXPECT_EQ(host_calls(), (Calls{kListCall, kContextCall, kStatsCall}));
}

TEST_F(Notices, NoneOfTheNoticesReadsStandardInput) {
    conversation(true);
    stats(R"({"total": 12})");
    const struct {
        std::string hook;
        std::string expected;
    } cases[] = {
        {"persist-learnings", "{\"systemMessage\": " + json_string(kSummary12) + "}\n"},
        {"save-compact",
         "{\"systemMessage\": " +
             json_string("## Context Compaction Imminent\n\nBefore context is reduced, persist "
                         "important insights:\n- `understand(action='store')` for file/module "
                         "analysis\n- `remember(action='store', key='...', value='...')` for "
                         "decisions and insights") +
             "}\n"},
        {"inject-context", kC + "\n\n" + cache_line("12") + "\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.hook);
        RunOptions options;
        options.stdin_never_closes = true;
        const HookRun r = run({"hooks", c.hook}, options);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.out, c.expected);
    }
}

}  // namespace
}  // namespace e2e
