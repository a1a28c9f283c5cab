// session-start and restore-compact: the brief, the conversation summary and the AI cache section,
// the host queries behind them and how a failing query shows.
#include <functional>

#include "harness.hpp"

namespace e2e {
namespace {

using Calls = std::vector<std::vector<std::string>>;

const std::vector<std::string> kListCall = {"conversation", "list", "--days=1", "--status=active",
                                            "--json"};
const std::vector<std::string> kStatsCall = {"query", "understand", "--action=stats", "--limit=20",
                                             "--include-fresh"};

// One whole start written out byte for byte: the only check of the text that shares nothing with
// the pieces below. Brief "B", a conversation with one goal, three entries over two scopes.
const std::string kExampleStats = R"({"total": 3, "by_scope": {
    "file": {"entries": [{"importance": "high", "target": "src/a.py", "fresh": true},
                         {"importance": "low", "target": "src/b.py", "fresh": false}]},
    "module": {"entries": [{"target": "src"}]}}})";
const std::string kExample = R"--(B

### Session Goals
1. Fix the parser

## AI Cache Status

**3 entries cached.** Use `understand(action="recall", target="...")` before reading files.

### Cached Entries:
- [high] src/a.py (file)
- [low] src/b.py (file) [STALE]
- [unknown] src (module)

### Quick Start:
- `understand(action="recall")` for semantic search across cache
- `explore(query="...")` for multi-strategy code exploration
- `remember(action='list')` to see stored project memories)--";

std::string status_text(const std::string& total, const std::string& entries) {
    return "## AI Cache Status\n\n**" + total +
           " entries cached.** Use `understand(action=\"recall\", target=\"...\")` before reading "
           "files.\n\n### Cached Entries:\n" +
           entries + kExample.substr(kExample.find("\n\n### Quick Start:"));
}

class SessionStart : public HookTest {
  protected:
    void SetUp() override {
        HookTest::SetUp();
        fs::create_directories(repo_ / ".orvane-tamblo");
        write_file(repo_ / ".orvane-tamblo/brief.md", "B");
    }

    // Windsurf's plain-text context, after checking the run was clean.
    std::string windsurf(const std::string& input = "{}") {
        const HookRun r = hook("session-start", input, {"--agent", "windsurf"});
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err, "");
        return r.out;
    }

    std::vector<std::string> runner_failures() const {
        std::vector<std::string> found;
        for (const auto& m : debug_messages()) {
            if (m.rfind("_run_query_json failed: ", 0) == 0) found.push_back(m);
        }
        return found;
    }
};

TEST_F(SessionStart, WorkedExampleAndWhenToAnswer) {
    answer("conversation-list", R"({"sessions": [{"id": "s1"}]})");
    answer("conversation-context", R"({"goals": ["Fix the parser"]})");
    answer("query-understand-stats", kExampleStats);
    EXPECT_EQ(windsurf(R"({"source": "startup"})"), kExample + "\n");
    // No brief, and the heading's own line feed makes three before the conversation;
    // restore-compact forces the source whatever the input says.
    const std::string compact = "## Context Restored After Compaction\n\n\n" + kExample.substr(3);
    EXPECT_EQ(hook("restore-compact", R"({"source": "startup"})", {"--agent", "windsurf"}).out,
              compact + "\n");
    // Without a conversation there is no heading either: only the cache section.
    answer("conversation-list", "", 1);
    EXPECT_EQ(hook("restore-compact", "{}", {"--agent", "windsurf"}).out,
              compact.substr(compact.find("## AI")) + "\n");

    // With the host down, so that the context is short enough to write out in each form; the
    // warning as JSON writes it.
    fs::remove_all(scenario_);
    fs::create_directory(scenario_);
    const std::string warning =
        "## AI Cache Warning\\n\\n[!] orvane-tamblo daemon not responding. Run `orvane-tamblo "
        "serve` or any orvane-tamblo command to auto-start.";
    const std::string claude =
        "{\"hookSpecificOutput\": {\"hookEventName\": \"SessionStart\", \"additionalContext\": \"";
    const struct {
        std::string agent, input, out;  // out "": nothing written, no query made
    } rows[] = {
        {"claude", R"({"source": "other"})", ""},
        {"claude", R"({"source": null})", ""},
        {"claude", R"({"source": ""})", ""},
        {"claude", R"({"source": "resume"})", claude + "B\\n\\n" + warning + "\"}}\n"},
        {"claude", "{}", claude + "B\\n\\n" + warning + "\"}}\n"},
        {"claude", R"({"source": "compact"})", claude + warning + "\"}}\n"},
        {"copilot", R"({"source": "other"})", "{\"message\": \"B\\n\\n" + warning + "\"}\n"},
        {"cursor", R"({"source": null})", "{\"output\": \"B\\n\\n" + warning + "\"}\n"},
        {"windsurf", R"({"source": ""})", "B\n\n" + kWarning + "\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.agent + " " + row.input);
        fs::remove(scenario_ / "calls.log");
        expect_clean(hook("session-start", row.input, {"--agent", row.agent}), row.out);
        EXPECT_EQ(host_calls().empty(), row.out.empty());
    }
}

// Without a brief of the repository's own, the built-in one names the symbol tools only where the
// index marker says the repository is indexed, and otherwise says how to index it.
TEST_F(SessionStart, BuiltInBriefSaysWhetherTheRepositoryIsIndexed) {
    fs::remove_all(repo_ / ".orvane-tamblo");
    const std::string indexed =
        "# orvane-tamblo\n\nThis repository is indexed by orvane-tamblo. Its code index knows the "
        "definitions and references of the code, so find code by name with it rather than with a "
        "text search;";
    const std::string unindexed =
        "The repository has no code index yet, so finding code by name (the `search`, `symbol` "
        "and `explore` tools) waits for it: `orvane-tamblo index`, run in the repository's root, "
        "builds it.\n";
    const fs::path marker = repo_ / "memory/codebase-index/index.db";
    const struct {
        const char* name;
        std::function<void()> make;
        bool is_indexed;
    } rows[] = {
        {"no marker", [] {}, false},
        {"a directory", [&] { fs::create_directories(marker); }, false},
        {"a file", [&] { write_file(marker, ""); }, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(repo_ / "memory");
        fs::create_directories(marker.parent_path());
        row.make();
        const std::string out = windsurf();
        EXPECT_EQ(out.starts_with(indexed), row.is_indexed) << out;
        EXPECT_EQ(out.find("## Code index tools\n- `search(action='symbols', query='getUser')`") !=
                      std::string::npos,
                  row.is_indexed);
        EXPECT_EQ(out.find(unindexed) != std::string::npos, !row.is_indexed) << out;
        EXPECT_TRUE(
            out.ends_with("Both keep their entries in the repository's store, "
                          "memory/codebase-index/orvane.db.\n\n" +
                          kWarning + "\n"));
    }
}

// The summary of the first listed session, and the host queries behind it: the id goes on exactly
// as listed, and without one there is no context query.
TEST_F(SessionStart, ConversationSummaryAndItsQueries) {
    const std::string id = "weird id/with space";
    const std::string listed = R"({"sessions": [{"id": ")" + id + R"("}, {"id": "s2"}]})";
    const std::string b200(200, 'b');
    std::string e200;
    for (int i = 0; i < 200; ++i) e200 += "\u00e9";  // cuts count characters, not bytes
    const struct {
        std::string list, context_json, summary;  // "": no answer; summary "": no section
    } rows[] = {
        {listed, R"({"goals": ["first goal", ")" + b200 + R"(b"],
             "recent_activity": ["first activity", "second activity"],
             "files_involved": ["src/a.py", "src/b.py"]})",
         "### Session Goals\n1. first goal\n2. " + b200 +
             "...\n\n### Recent Activity\n- first activity\n- second activity\n\n"
             "### Files Worked On: src/a.py, src/b.py"},
        {listed, R"({"goals": [")" + b200 + R"(", "g2", "g3", "g4", "g5"]})",
         "### Session Goals\n1. " + b200 + "\n2. g2\n3. g3"},
        {listed, R"({"goals": [")" + e200 + "\u00e9\"]}", "### Session Goals\n1. " + e200 + "..."},
        // Plain text has no escape for a lone surrogate: it shows as U+FFFD.
        {listed, R"({"goals": ["a\ud83d-\ud7ff"]})",
         "### Session Goals\n1. a\xEF\xBF\xBD-\xED\x9F\xBF"},
        {listed, R"({"recent_activity": ["a1", "a2", "a3", "a4", "a5", "a6", "a7"]})",
         "\n### Recent Activity\n- a1\n- a2\n- a3\n- a4\n- a5"},
        {listed,
         R"({"files_involved": ["f1","f2","f3","f4","f5","f6","f7","f8","f9","f10","f11"]})",
         "\n### Files Worked On: f1, f2, f3, f4, f5, f6, f7, f8, f9, f10"},
        {listed, R"({"goals": ["g"], "recent_activity": [], "files_involved": ["f"]})",
         "### Session Goals\n1. g\n\n### Files Worked On: f"},
        {listed, R"({"goals": [], "recent_activity": [], "files_involved": []})", ""},
        {listed, "", ""},  // the session ended between the two queries
        {"", R"({"goals": ["g"]})", ""},
        {R"({"sessions": []})", R"({"goals": ["g"]})", ""},
        {R"({"sessions": [{"name": "first"}, {"id": "s2"}]})", R"({"goals": ["g"]})", ""},
        {R"({"sessions": [{"id": ""}, {"id": "s2"}]})", R"({"goals": ["g"]})", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.list + " " + row.context_json);
        forget_runs();
        answer("conversation-list", row.list, row.list.empty() ? 1 : 0);
        answer("conversation-context", row.context_json, row.context_json.empty() ? 1 : 0);
        const std::string summary = row.summary.empty() ? "" : row.summary + "\n\n";
        EXPECT_EQ(windsurf(), "B\n\n" + summary + kWarning + "\n");
        Calls expected = {kListCall, kStatsCall};
        if (row.list == listed) {
            expected.insert(expected.begin() + 1,
                            {"conversation", "context", id, "--strategy=balanced", "--json"});
        }
        EXPECT_EQ(host_calls(), expected);
    }
    // An empty brief leaves no section, not an empty one.
    write_file(repo_ / ".orvane-tamblo/brief.md", "");
    EXPECT_EQ(windsurf(), kWarning + "\n");
}

// The statistics query's outcome as the cache section shows it: an answer, or no usable answer and
// the warning. Only the runner's caught failures leave a debug line; the child's standard error
// shows nowhere.
TEST_F(SessionStart, CacheSectionFromTheStatisticsQuery) {
    scenario_file("query-understand-stats.stderr", "child complaint\n");
    std::string twelve, module_lines;
    for (int i = 1; i <= 12; ++i) {
        const std::string n = std::to_string(i);
        twelve +=
            std::string(i > 1 ? ", " : "") + R"({"importance": "mid", "target": "m)" + n + "\"}";
        if (i <= 10) module_lines += "- [mid] m" + n + " (module)\n";
    }
    const struct {
        std::string stats;
        int rc;                  // -1: the host is not on PATH
        std::string cache;       // "": ends through the guard, nothing written
        std::size_t logged = 0;  // the runner's failures in the debug log
    } rows[] = {
        {"{\"total\": 0}\n", 0, kNothingCached},
        {"{\"total\": 0}\n", 1, kWarning},
        {" \t\n ", 0, kWarning},
        {"null", 0, kWarning},
        {"not json", 0, kWarning, 1},
        {"{\"total\": 0}{\"total\": 0}", 0, kWarning, 1},
        {"", -1, kWarning, 2},  // list and statistics
        {"{}", 0, kWarning},
        {"[]", 0, kWarning},
        {R"({"total": 0.0})", 0, kNothingCached},
        {R"({"total": false})", 0, kNothingCached},
        {R"({"by_scope": {"file": {"entries": [{"target": "a"}]}}})", 0, kNothingCached},
        {R"({"total": 5})", 0, status_text("5", "None")},
        {R"({"total": 5, "by_scope": {"file": {"entries": []}, "module": {}}})", 0,
         status_text("5", "None")},
        // Scopes in the answer's order, not sorted; 10 lines per scope.
        {R"({"total": 14, "by_scope": {"module": {"entries": [)" + twelve +
             R"(]}, "file": {"entries": [{"importance": "low", "target": "f"}]}}})",
         0, status_text("14", module_lines + "- [low] f (file)")},
        {R"({"total": 3, "by_scope": {"file": {"entries": [{}, {"target": "a", "fresh": null}]}}})",
         0, status_text("3", "- [unknown] unknown (file)\n- [unknown] a (file) [STALE]")},
        {"[1]", 0, ""},
        {R"({"total": 1, "by_scope": null})", 0, ""},
        {R"({"total": 1, "by_scope": {"file": {"entries": 3}}})", 0, ""},
        {R"({"total": 1, "by_scope": {"file": {"entries": ["src/a.py"]}}})", 0, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stats + " rc=" + std::to_string(row.rc));
        forget_runs();
        answer("query-understand-stats", row.stats, row.rc);
        RunOptions options;
        if (row.rc < 0) options.env["PATH"] = "/usr/bin:/bin";
        const HookRun r = run({"hooks", "session-start", "--agent", "windsurf"}, options);
        row.cache.empty() ? expect_guarded(r, "session-start")
                          : expect_clean(r, "B\n\n" + row.cache + "\n");
        EXPECT_EQ(host_calls().empty(), row.rc < 0);
        EXPECT_EQ(runner_failures().size(), row.logged);
        EXPECT_EQ(debug_log().find("child complaint"), std::string::npos);
    }
}

}  // namespace
}  // namespace e2e
