// persist-learnings and inject-context: when they speak, in which form, which host queries they
// make; and that none of the three notices waits for standard input.
#include "harness.hpp"

namespace e2e {
namespace {

using Calls = std::vector<std::vector<std::string>>;

const std::vector<std::string> kStatsCall = {"query", "understand", "--action=stats", "--limit=10"};

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

// A notice for the user: Claude Code shows it as a system message.
TEST_F(Notices, PersistLearningsSpeaksOnlyWithCachedEntries) {
    const struct {
        std::string stats;
        std::optional<std::string> out;  // nullopt: ends through the guard
    } rows[] = {
        {R"({"total": 12, "by_scope": {}})",
         "{\"systemMessage\": \"## Session Summary\\n\\n**12 entries** in AI cache. Your analysis "
         "will be available in future sessions.\\n\\nBefore ending, consider persisting key "
         "insights:\\n- `remember(action='store', key='...', value='...')` for "
         "decisions/learnings\\n- `understand(action='store')` for any files analyzed but not yet "
         "cached\"}\n"},
        {R"({"total": 0})", ""},
        {R"({"by_scope": {}})", ""},
        {"{}", ""},
        {"", ""},
        {R"({"total": null})", std::nullopt},  // a total that is no number
        {R"({"total": "3"})", std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stats);
        stats(row.stats);
        const HookRun r = hook("persist-learnings", "{}");
        row.out ? expect_clean(r, *row.out) : expect_guarded(r, "persist-learnings");
    }
    EXPECT_EQ(host_calls(), Calls(std::size(rows), kStatsCall)) << "only the total is needed";
}

TEST_F(Notices, InjectContextJoinsConversationAndCacheLine) {
    const std::string goals = "### Session Goals\n1. Fix the parser";
    const std::string line7 =
        "AI Cache: 7 entries available. Use understand(action='recall') before reading files.";
    const struct {
        const char* name;
        bool conversation;
        std::string stats, out;
    } rows[] = {
        {"both", true, R"({"total": 7})", goals + "\n\n" + line7 + "\n"},
        {"cache line only", false, R"({"total": 3})",
         "AI Cache: 3 entries available. Use understand(action='recall') before reading files.\n"},
        {"conversation only", true, R"({"total": 0})", goals + "\n"},
        {"host down", true, "", goals + "\n"},
        {"neither", false, R"({"total": 0})", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        conversation(row.conversation);
        stats(row.stats);
        const HookRun r = hook("inject-context", "{}");  // no --agent: Windsurf's plain text
        expect_clean(r, row.out);
    }
    // "pre_prompt" is no context event for Claude Code; the conversation is asked for first.
    conversation(true);
    stats(R"({"total": 7})");
    fs::remove(scenario_ / "calls.log");
    EXPECT_EQ(hook("inject-context", "{}", {"--agent", "claude"}).out,
              "{\"systemMessage\": \"### Session Goals\\n1. Fix the parser\\n\\nAI Cache: 7 "
              "entries available. Use understand(action='recall') before reading files.\"}\n");
    EXPECT_EQ(host_calls(),
              (Calls{{"conversation", "list", "--days=1", "--status=active", "--json"},
                     {"conversation", "context", "s1", "--strategy=balanced", "--json"},
                     kStatsCall}));
}

// A stdin that never closes would hang any of them that read it; the input is ignored anyway.
TEST_F(Notices, NoneOfTheNoticesReadsStandardInput) {
    conversation(true);
    stats(R"({"total": 12})");
    for (const std::string hook_name : {"persist-learnings", "save-compact", "inject-context"}) {
        SCOPED_TRACE(hook_name);
        const HookRun r = run({"hooks", hook_name}, {.stdin_never_closes = true});
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err, "");
        EXPECT_NE(r.out, "");
        EXPECT_EQ(r.out, hook(hook_name, R"({"source": "compact"})").out);
    }
}

}  // namespace
}  // namespace e2e
