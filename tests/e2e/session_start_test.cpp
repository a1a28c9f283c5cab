// session-start and restore-compact: the brief, the conversation summary and the AI cache section,
// the host queries behind them and how a failing query shows.
#include <algorithm>
#include <optional>

#include "harness.hpp"

namespace e2e {
namespace {

using Calls = std::vector<std::vector<std::string>>;

const std::vector<std::string> kListCall = {"conversation", "list", "--days=1", "--status=active",
                                            "--json"};
const std::vector<std::string> kStatsCall = {"query", "understand", "--action=stats", "--limit=20",
                                             "--include-fresh"};

const std::string kRunnerFailure = "_run_query_json failed: ";

const std::string kWarning =
    "## AI Cache Warning\n\n[!] orvane-tamblo daemon not responding. Run `orvane-tamblo serve` or "
    "any orvane-tamblo command to auto-start.";
const std::string kNothingCached =
    "## AI Cache Status\n\nNo cached understanding available. Start with:\n"
    "- `explore(query=\"...\")` to search the codebase\n"
    "- `understand(action='store')` after analyzing files to cache insights\n"
    "- `remember(action='store', key='...', value='...')` for key decisions";

std::string status_text(const std::string& total, const std::string& entries) {
    return "## AI Cache Status\n\n**" + total +
           " entries cached.** Use `understand(action=\"recall\", target=\"...\")` before reading "
           "files.\n\n### Cached Entries:\n" +
           entries +
           "\n\n### Quick Start:\n"
           "- `understand(action=\"recall\")` for semantic search across cache\n"
           "- `explore(query=\"...\")` for multi-strategy code exploration\n"
           "- `remember(action='list')` to see stored project memories";
}

// The worked example, written out whole rather than from the pieces above.
const std::string kC =
    "### Session Goals\n1. Fix the parser";  // what the context answer renders to
const std::string kExampleStats = R"({"total": 3, "by_scope": {
    "file": {"entries": [{"importance": "high", "target": "src/a.py", "fresh": true},
                         {"importance": "low", "target": "src/b.py", "fresh": false}]},
    "module": {"entries": [{"target": "src"}]}}})";
const std::string kExampleCache = R"--(## AI Cache Status

**3 entries cached.** Use `understand(action="recall", target="...")` before reading files.

### Cached Entries:
- [high] src/a.py (file)
- [low] src/b.py (file) [STALE]
- [unknown] src (module)

### Quick Start:
- `understand(action="recall")` for semantic search across cache
- `explore(query="...")` for multi-strategy code exploration
- `remember(action='list')` to see stored project memories)--";

// Enough of the JSON string form for the ASCII texts these tests compare.
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

std::string response(const std::string& agent, const std::string& context) {
    if (agent == "windsurf") return context + "\n";
    if (agent == "copilot") return "{\"message\": " + json_string(context) + "}\n";
    if (agent == "cursor") return "{\"output\": " + json_string(context) + "}\n";
    return R"({"hookSpecificOutput": {"hookEventName": "SessionStart", "additionalContext": )" +
           json_string(context) + "}}\n";
}

std::string repeat(const std::string& piece, int n) {
    std::string out;
    for (int i = 0; i < n; ++i) out += piece;
    return out;
}

// ["<prefix>1", ..., "<prefix><n>"] as JSON, or its items joined with `separator`.
std::string numbered(const std::string& prefix, int n, const std::string& separator = "") {
    const bool json = separator.empty();
    std::string out = json ? "[" : "";
    for (int i = 1; i <= n; ++i) {
        if (i > 1) out += json ? ", " : separator;
        out += json ? "\"" + prefix + std::to_string(i) + "\"" : prefix + std::to_string(i);
    }
    return json ? out + "]" : out;
}

std::string lines(const std::vector<std::string>& items) {
    std::string out;
    for (std::size_t i = 0; i < items.size(); ++i) out += (i > 0 ? "\n" : "") + items[i];
    return out;
}

class SessionStart : public HookTest {
  protected:
    void SetUp() override {
        HookTest::SetUp();
        brief("B");
    }

    void brief(const std::string& text) {
        fs::create_directories(repo_ / ".orvane-tamblo");
        write_file(repo_ / ".orvane-tamblo/brief.md", text);
    }

    // An active session "s1" whose context answer is `context_json`.
    void conversation(const std::string& context_json) {
        answer("conversation-list", R"({"sessions": [{"id": "s1"}]})");
        answer("conversation-context", context_json);
    }

    // The context Windsurf receives as plain text, without the closing line feed.
    std::string windsurf(const std::string& input = "{}",
                         const std::string& hook_name = "session-start") {
        const HookRun r = hook(hook_name, input, {"--agent", "windsurf"});
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err, "");
        if (r.out.empty() || r.out.back() != '\n') {
            ADD_FAILURE() << "no closing line feed: " << r.out;
            return r.out;
        }
        return r.out.substr(0, r.out.size() - 1);
    }

    void forget_runs() {
        fs::remove(scenario_ / "calls.log");
        fs::remove(logs_ / "hook_debug.log");
    }

    std::vector<std::string> runner_failures() const {
        std::vector<std::string> found;
        for (const auto& m : debug_messages()) {
            if (m.rfind(kRunnerFailure, 0) == 0) found.push_back(m);
        }
        return found;
    }
};

TEST_F(SessionStart, WorkedExampleForClaudeAndWindsurf) {
    conversation(R"({"goals": ["Fix the parser"]})");
    answer("query-understand-stats", kExampleStats);
    const std::string context = "B\n\n" + kC + "\n\n" + kExampleCache;
    EXPECT_EQ(windsurf(R"({"source": "startup"})"), context);
    const HookRun claude = hook("session-start", R"({"source": "startup"})");
    EXPECT_EQ(claude.out, response("claude", context));
    EXPECT_EQ(claude.err, "");
    EXPECT_EQ(claude.status, 0);
}

TEST_F(SessionStart, CompactionLeavesTheBriefOutAndHeadsTheConversation) {
    conversation(R"({"goals": ["Fix the parser"]})");
    answer("query-understand-stats", kExampleStats);
    const std::string context =
        "## Context Restored After Compaction\n\n\n" + kC + "\n\n" + kExampleCache;
    // restore-compact forces the source whatever the input says.
    for (const auto& [hook_name, input] : std::vector<std::pair<std::string, std::string>>{
             {"restore-compact", R"({"source": "startup"})"},
             {"session-start", R"({"source": "compact"})"}}) {
        SCOPED_TRACE(hook_name);
        EXPECT_EQ(windsurf(input, hook_name), context);
        EXPECT_EQ(hook(hook_name, input).out, response("claude", context));
    }
    // Without a conversation there is no heading either: only the cache section.
    answer("conversation-list", "", 1);
    EXPECT_EQ(hook("restore-compact", "{}").out, response("claude", kExampleCache));
}

TEST_F(SessionStart, ConversationSummaryLinesAndCuts) {
    const std::string b200 = repeat("b", 200), e200 = repeat("\u00e9", 200);
    const struct {
        std::string context_json;
        std::vector<std::string> summary;  // empty: no conversation section
    } rows[] = {
        {R"({"goals": ["first goal", ")" + b200 + R"(b"],
             "recent_activity": ["first activity", "second activity"],
             "files_involved": ["src/a.py", "src/b.py"]})",
         {"### Session Goals", "1. first goal", "2. " + b200 + "...", "", "### Recent Activity",
          "- first activity", "- second activity", "", "### Files Worked On: src/a.py, src/b.py"}},
        {R"({"goals": [")" + b200 + R"(", "g2", "g3", "g4", "g5"]})",
         {"### Session Goals", "1. " + b200, "2. g2", "3. g3"}},
        {R"({"goals": [")" + e200 + "\u00e9\"]}", {"### Session Goals", "1. " + e200 + "..."}},
        {R"({"recent_activity": )" + numbered("a", 7) + "}",
         {"", "### Recent Activity", "- a1", "- a2", "- a3", "- a4", "- a5"}},
        {R"({"files_involved": )" + numbered("f", 12) + "}",
         {"", "### Files Worked On: " + numbered("f", 10, ", ")}},
        {R"({"goals": ["g"], "recent_activity": [], "files_involved": ["f"]})",
         {"### Session Goals", "1. g", "", "### Files Worked On: f"}},
        {"{}", {}},
        {R"({"goals": [], "recent_activity": [], "files_involved": []})", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.context_json);
        conversation(row.context_json);
        const std::string expected = row.summary.empty()
                                         ? "B\n\n" + kWarning
                                         : "B\n\n" + lines(row.summary) + "\n\n" + kWarning;
        EXPECT_EQ(windsurf(), expected);
    }
    // The session ended between the two queries: no summary at all.
    answer("conversation-context", R"({"goals": ["g"]})", 1);
    EXPECT_EQ(windsurf(), "B\n\n" + kWarning);
}

TEST_F(SessionStart, HostSeesExactArgumentVectors) {
    answer("conversation-list", R"({"sessions": [{"id": "weird id/with space"}, {"id": "s2"}]})");
    answer("conversation-context", R"({"goals": ["g"]})");
    answer("query-understand-stats", R"({"total": 0})");
    EXPECT_EQ(windsurf(), "B\n\n### Session Goals\n1. g\n\n" + kNothingCached);
    const Calls expected = {
        kListCall,
        {"conversation", "context", "weird id/with space", "--strategy=balanced", "--json"},
        kStatsCall};
    EXPECT_EQ(host_calls(), expected);
}

TEST_F(SessionStart, NoSessionIdMeansNoContextQuery) {
    answer("conversation-context", R"({"goals": ["never shown"]})");
    answer("query-understand-stats", R"({"total": 0})");
    const struct {
        std::string list;
        int rc;
    } rows[] = {
        {R"({"sessions": [{"id": "s1"}]})", 1},  // the list query has no answer
        {"{}", 0},
        {R"({"sessions": []})", 0},
        {R"({"sessions": [{"name": "first"}, {"id": "s2"}]})", 0},
        {R"({"sessions": [{"id": ""}, {"id": "s2"}]})", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.list);
        forget_runs();
        answer("conversation-list", row.list, row.rc);
        EXPECT_EQ(windsurf(), "B\n\n" + kNothingCached);
        EXPECT_EQ(host_calls(), (Calls{kListCall, kStatsCall}));
    }
}

// The statistics query shows the runner's outcome: an answer, or no answer and the warning.
TEST_F(SessionStart, QueryRunnerOutcomes) {
    scenario_file("query-understand-stats.stderr", "child complaint\n");
    const struct {
        std::string out;
        int rc;
        std::string cache;
        bool logged;
    } rows[] = {
        {"{\"total\": 0}\n", 0, kNothingCached, false},
        {"{\"total\": 0}\n", 1, kWarning, false},
        {"\n", 0, kWarning, false},
        {" \t\n ", 0, kWarning, false},
        {"null", 0, kWarning, false},
        {"not json", 0, kWarning, true},
        {"{\"total\": 0}{\"total\": 0}", 0, kWarning, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.out) + " rc " + std::to_string(row.rc));
        forget_runs();
        answer("query-understand-stats", row.out, row.rc);
        EXPECT_EQ(windsurf(), "B\n\n" + row.cache);  // also: nothing of the child's stderr
        EXPECT_EQ(runner_failures().size(), row.logged ? 1u : 0u);
        EXPECT_EQ(debug_log().find("child complaint"), std::string::npos);
    }
}

TEST_F(SessionStart, HostMissingFromPath) {
    answer("query-understand-stats", R"({"total": 0})");
    RunOptions options;
    options.stdin_data = "{}";
    options.env["PATH"] = "/usr/bin:/bin";
    const HookRun r = run({"hooks", "session-start", "--agent", "windsurf"}, options);
    EXPECT_EQ(r.out, "B\n\n" + kWarning + "\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(host_calls().empty());
    EXPECT_EQ(runner_failures().size(), 2u) << "the list and the statistics, nothing else";
}

// Takes the list query's 10-second limit.
TEST_F(SessionStart, SlowListQueryIsKilledAtItsLimit) {
    conversation(R"({"goals": ["too late"]})");
    scenario_file("conversation-list.sleep", "30");
    answer("query-understand-stats", R"({"total": 0})");
    EXPECT_EQ(windsurf(), "B\n\n" + kNothingCached);
    EXPECT_EQ(host_calls(), (Calls{kListCall, kStatsCall}));
    const auto failures = runner_failures();
    ASSERT_EQ(failures.size(), 1u);
    for (const char* word : {"conversation", "time", "10"}) {
        EXPECT_NE(failures[0].find(word), std::string::npos) << failures[0];
    }
}

TEST_F(SessionStart, FloodOnBothPipesIsDrained) {
    scenario_file("query-understand-stats.flood", "3000000");
    answer("query-understand-stats", "", 0);
    EXPECT_EQ(windsurf(), "B\n\n" + kWarning);
    EXPECT_EQ(runner_failures().size(), 1u);
}

TEST_F(SessionStart, SourceDecidesWhetherAndWhatToAnswer) {
    const std::string normal = "B\n\n" + kWarning;
    const struct {
        std::string agent, input, context;  // context "": nothing written, no query made
    } rows[] = {
        {"claude", R"({"source": "other"})", ""},
        {"claude", R"({"source": null})", ""},
        {"claude", R"({"source": ""})", ""},
        {"claude", R"({"source": "Startup"})", ""},
        {"claude", R"({"source": "resume"})", normal},
        {"claude", "{}", normal},
        {"claude", "not json", normal},
        {"claude", R"({"source": "compact"})", kWarning},
        {"copilot", R"({"source": "other"})", normal},
        {"cursor", R"({"source": null})", normal},
        {"windsurf", R"({"source": ""})", normal},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.agent + " " + row.input);
        forget_runs();
        const HookRun r = hook("session-start", row.input, {"--agent", row.agent});
        EXPECT_EQ(r.out, row.context.empty() ? "" : response(row.agent, row.context));
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(host_calls().empty(), row.context.empty());
    }
}

TEST_F(SessionStart, CacheSectionFromStatistics) {
    std::string twelve_module_entries = "[", module_lines;
    for (int i = 1; i <= 12; ++i) {
        const std::string n = std::to_string(i);
        if (i > 1) twelve_module_entries += ", ";
        twelve_module_entries += R"({"importance": "mid", "target": "m)" + n + "\"}";
        if (i <= 10) module_lines += "- [mid] m" + n + " (module)\n";
    }
    twelve_module_entries += "]";
    const struct {
        std::string stats;
        std::string cache;
    } rows[] = {
        {"{}", kWarning},
        {"[]", kWarning},
        {R"({"total": 0})", kNothingCached},
        {R"({"total": 0.0})", kNothingCached},
        {R"({"total": false})", kNothingCached},
        {R"({"by_scope": {"file": {"entries": [{"target": "a"}]}}})", kNothingCached},
        {R"({"total": 5})", status_text("5", "None")},
        {R"({"total": 5, "by_scope": {"file": {"entries": []}, "module": {}}})",
         status_text("5", "None")},
        // Scopes in the answer's order, not sorted; 10 lines per scope.
        {R"({"total": 14, "by_scope": {"module": {"entries": )" + twelve_module_entries +
             R"(}, "file": {"entries": [{"importance": "low", "target": "f"}]}}})",
         status_text("14", module_lines + "- [low] f (file)")},
        {R"({"total": 3, "by_scope": {"file": {"entries": [{}, {"target": "a", "fresh": null},
             {"importance": "high", "target": "b", "fresh": false}]}}})",
         status_text("3",
                     "- [unknown] unknown (file)\n- [unknown] a (file) [STALE]\n"
                     "- [high] b (file) [STALE]")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stats);
        answer("query-understand-stats", row.stats);
        EXPECT_EQ(windsurf(), "B\n\n" + row.cache);
    }
}

TEST_F(SessionStart, EmptyBriefLeavesNoSection) {
    brief("");
    conversation(R"({"goals": ["g"]})");
    answer("query-understand-stats", R"({"total": 0})");
    EXPECT_EQ(windsurf(), "### Session Goals\n1. g\n\n" + kNothingCached);
}

TEST_F(SessionStart, StatisticsOfTheWrongShapeEndThroughTheGuard) {
    for (const std::string stats : {
             R"([1])",
             R"({"total": 1, "by_scope": null})",
             R"({"total": 1, "by_scope": {"file": {"entries": 3}}})",
             R"({"total": 1, "by_scope": {"file": {"entries": ["src/a.py"]}}})",
         }) {
        SCOPED_TRACE(stats);
        answer("query-understand-stats", stats);
        const HookRun r = hook("session-start", "{}");
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err.rfind("orvane-tamblo hook session-start error: ", 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
}

}  // namespace
}  // namespace e2e
