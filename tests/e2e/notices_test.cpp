// persist-learnings and inject-context: when they speak, in which form, which host queries they
// make; and that none of the three notices waits for standard input.
#include "harness.hpp"

namespace e2e {
namespace {

using Calls = std::vector<std::vector<std::string>>;

const std::vector<std::string> kStatsCall = {"query", "understand", "--action=stats", "--limit=10"};
const Calls kInjectCalls = {{"conversation", "list", "--days=1", "--status=active", "--json"},
                            {"conversation", "context", "s1", "--strategy=balanced", "--json"},
                            kStatsCall};

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

class Notices : public HookTest {
  protected:
    void conversation(bool present) {
        answer("conversation-list", present ? R"({"sessions": [{"id": "s1"}]})" : "",
               present ? 0 : 1);
        answer("conversation-context", R"({"goals": ["Fix the parser"]})");
    }
    // "": the host is down.
    void stats(const std::string& answer_json) {
        answer("query-understand-stats", answer_json, answer_json.empty() ? 1 : 0);
    }
};

TEST_F(Notices, PersistLearningsSpeaksOnlyWithCachedEntries) {
    const struct {
        std::string stats, text;  // text "": silent
        bool guarded;
    } rows[] = {
        {R"({"total": 12, "by_scope": {}})", kSummary12, false},
        {R"({"total": 0})", "", false},
        {R"({"by_scope": {}})", "", false},
        {"{}", "", false},
        {"", "", false},
        {R"({"total": null})", "", true},  // a total that is no number
        {R"({"total": "3"})", "", true},
    };
    for (const auto& row : rows) {
        stats(row.stats);
        for (const std::string agent : {"claude", "copilot", "cursor", "windsurf"}) {
            SCOPED_TRACE(row.stats + " " + agent);
            fs::remove(scenario_ / "calls.log");
            const HookRun r = hook("persist-learnings", "{}", {"--agent", agent});
            EXPECT_EQ(host_calls(), Calls{kStatsCall}) << "only the total is needed";
            if (row.guarded) {
                expect_guarded(r, "persist-learnings");
                continue;
            }
            EXPECT_EQ(r.out, row.text.empty() ? "" : system_message(agent, row.text));
            EXPECT_EQ(r.err, "");
            EXPECT_EQ(r.status, 0);
        }
    }
}

TEST_F(Notices, InjectContextJoinsConversationAndCacheLine) {
    const std::string both = kC + "\n\n" + cache_line("7");
    const struct {
        const char* name;
        bool conversation;
        std::string stats, context;  // context "": silent
    } rows[] = {
        {"both", true, R"({"total": 7})", both},
        {"cache line only", false, R"({"total": 3})", cache_line("3")},
        {"conversation only", true, R"({"total": 0})", kC},
        {"host down", true, "", kC},
        {"neither", false, R"({"total": 0})", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        conversation(row.conversation);
        stats(row.stats);
        const HookRun r = hook("inject-context", "{}");  // no --agent: Windsurf's plain text
        EXPECT_EQ(r.out, row.context.empty() ? "" : row.context + "\n");
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
    }
    // The conversation is asked for before the statistics.
    conversation(true);
    stats(R"({"total": 7})");
    for (const std::string agent : {"claude", "copilot", "cursor", "windsurf"}) {
        SCOPED_TRACE(agent);
        fs::remove(scenario_ / "calls.log");
        EXPECT_EQ(hook("inject-context", "{}", {"--agent", agent}).out,
                  response(agent, "pre_prompt", both));
        EXPECT_EQ(host_calls(), kInjectCalls);
    }
}

// A stdin that never closes would hang any of them that read it; the input is ignored anyway.
TEST_F(Notices, NoneOfTheNoticesReadsStandardInput) {
    conversation(true);
    stats(R"({"total": 12})");
    for (const std::string hook_name : {"persist-learnings", "save-compact", "inject-context"}) {
        SCOPED_TRACE(hook_name);
        RunOptions options;
        options.stdin_never_closes = true;
        const HookRun r = run({"hooks", hook_name}, options);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err, "");
        EXPECT_NE(r.out, "");
        EXPECT_EQ(r.out, hook(hook_name, R"({"source": "compact"})").out);
    }
}

}  // namespace
}  // namespace e2e
