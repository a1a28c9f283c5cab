// Conversation history hooks: log-conversation and finalize hand each turn or session end to
// the host as a child process and never tell the agent anything.
#include <chrono>
#include <regex>

#include "harness.hpp"

namespace e2e {
namespace {

using Args = std::vector<std::string>;

// One hook input and the host call it should make; nullopt means no child at all.
struct Row {
    std::string input;
    std::optional<Args> call;
};

class History : public HookTest {
  protected:
    // Runs every row, checking the hook stays silent and makes exactly the expected call.
    void run_rows(const std::string& name, const Args& extra_args, const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.input.substr(0, 200));
            fs::remove(scenario_ / "calls.log");
            const HookRun r = hook(name, row.input, extra_args);
            EXPECT_EQ(r.out, "");
            EXPECT_EQ(r.err, "");
            EXPECT_EQ(r.status, 0);
            EXPECT_EQ(host_calls(), row.call ? std::vector<Args>{*row.call} : std::vector<Args>{});
        }
    }
};

// A host call "conversation <command> <tail...>", without argv[0].
Args conversation(const std::string& command, Args tail) {
    tail.insert(tail.begin(), {"conversation", command});
    return tail;
}

TEST_F(History, UserTurnArguments) {
    // A failing child that complains is nobody's business: exit 1 and stderr are ignored.
    scenario_file("conversation-log-turn.stderr", "boom\n");
    scenario_file("conversation-log-turn.rc", "1");
    const std::string a100(100, 'a');
    auto turn = [](Args tail) { return conversation("log-turn", std::move(tail)); };
    const Args hi = turn({"--type", "user", "--prompt", "hi"});
    run_rows(
        "log-conversation", {"--type", "user"},
        {
            {R"({"session_id": "s1", "prompt": "hi"})",
             turn({"--session-id=s1", "--type", "user", "--prompt", "hi"})},
            {R"({"prompt": "hi"})", hi},
            {R"({"session_id": "bad id!", "prompt": "hi"})", hi},
            {R"({"session_id": ")" + a100 + R"(", "prompt": "hi"})",
             turn({"--session-id=" + a100, "--type", "user", "--prompt", "hi"})},
            {R"({"session_id": ")" + a100 + R"(a", "prompt": "hi"})", hi},
            {R"({"user_prompt": "a", "prompt": "b"})", turn({"--type", "user", "--prompt", "a"})},
            {R"({"user_prompt": "", "prompt": "b"})", turn({"--type", "user", "--prompt", "b"})},
            {R"({"session_id": "s1", "user_prompt": "", "prompt": null})", std::nullopt},
        });
    EXPECT_EQ(host_log(), "");
    EXPECT_EQ(debug_log().find("subprocess failed"), std::string::npos) << debug_log();
}

TEST_F(History, ToolTurnArguments) {
    const std::string name1500(1500, 'n');
    const std::string x40000(40000, 'x');
    auto turn = [](Args tail) { return conversation("log-turn", std::move(tail)); };
    const Args read = turn({"--type", "tool", "--tool-name", "Read"});
    run_rows(
        "log-conversation", {"--type", "tool"},
        {
            {R"({"session_id": "s1", "tool_name": "Read", "tool_input": {"file_path": "/a/ü.py"},
                 "tool_result": "ok"})",
             turn({"--session-id=s1", "--type", "tool", "--tool-name", "Read", "--tool-input",
                   R"({"file_path": "/a/\u00fc.py"})", "--tool-result", R"("ok")"})},
            {R"({"tool_name": "Read", "tool_input": {}, "tool_result": ""})", read},
            {R"({"tool_name": "Read", "tool_input": [], "tool_result": false})", read},
            {R"({"tool_name": "Read", "tool_result": {"b": 1, "a": 2},
                 "tool_input": {"x": 2.0, "y": 1e2, "z": [1, true, null]}})",
             turn({"--type", "tool", "--tool-name", "Read", "--tool-input",
                   R"({"x": 2.0, "y": 100.0, "z": [1, true, null]})", "--tool-result",
                   R"({"b": 1, "a": 2})"})},
            {R"({"tool_name": "Read", "tool_result": ")" + x40000 + R"("})",
             turn({"--type", "tool", "--tool-name", "Read", "--tool-result",
                   "\"" + x40000.substr(0, 29999)})},
            {R"({"tool_name": ")" + name1500 + R"("})",
             turn({"--type", "tool", "--tool-name", name1500.substr(0, 1000)})},
            {R"({"tool_name": "", "tool_input": {"a": 1}})", std::nullopt},
        });
}

TEST_F(History, FinalizeArguments) {
    auto fin = [](Args tail) { return conversation("finalize", std::move(tail)); };
    std::vector<Row> rows = {
        {R"({"session_id": "s1"})", fin({"--session-id=s1", "--status=completed"})},
        {"{}", fin({"--status=completed"})},
        {R"({"session_id": "a b", "reason": "compact"})", fin({"--status=compacted"})},
        {R"({"session_id": ")" + std::string(101, 'a') + R"("})", fin({"--status=completed"})},
    };
    auto reason = [&rows, &fin](const std::string& json, const std::string& status) {
        rows.push_back({R"({"session_id": "s1", "reason": )" + json + "}",
                        fin({"--session-id=s1", "--status=" + status})});
    };
    for (const char* json : {R"("compact")", R"("compacted")"}) reason(json, "compacted");
    for (const char* json : {R"("task_completed")", R"("user_request")", R"("completed")",
                             R"("other")", R"("Compact")", R"("")", "null", "5"}) {
        reason(json, "completed");
    }
    run_rows("finalize", {}, rows);
    // The agent is irrelevant to the host's history.
    run_rows("finalize", {"--agent", "cursor"}, {rows.front()});
}

TEST_F(History, WrongKindOfValueEndsThroughTheGuardBeforeAnyChild) {
    const struct {
        std::string hook;
        Args extra_args;
        std::string input;
    } cases[] = {
        {"log-conversation", {"--type", "user"}, R"({"session_id": 42, "prompt": "hi"})"},
        // The session id is checked even for a turn that would be dropped anyway.
        {"log-conversation", {"--type", "tool"}, R"({"session_id": true})"},
        {"finalize", {}, R"({"session_id": 42})"},
        {"finalize", {}, R"({"session_id": "s1", "reason": ["a"]})"},
        {"finalize", {}, R"({"reason": {"a": 1}})"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.hook + " " + c.input);
        expect_guarded(hook(c.hook, c.input, c.extra_args), c.hook);
    }
    EXPECT_TRUE(host_calls().empty());
}

// A host that is missing or too slow costs the turn or the finalization, never the agent: the
// hook stays silent, logs the failure, and exits 0.
TEST_F(History, ChildFailuresAreOnlyLogged) {
    const std::string stamp = R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d )";
    const std::string warning =
        stamp + R"(WARNING orvane_tamblo\.cli_hooks: Conversation logging error: .+\n$)";
    const struct {
        std::string hook;
        int timeout_s;       // 0: the host is not on PATH; else it sleeps past this limit
        std::string log_re;  // searched in the host log
        std::string log_level = "";
    } cases[] = {
        {"log-conversation", 0, warning},
        {"log-conversation", 5, warning},
        {"finalize", 0, "^$"},
        // A debug record shows only where the host's logging asks for debug records.
        {"finalize", 0, stamp + R"(DEBUG orvane_tamblo\.cli_hooks: hook_finalize failed\n)",
         "debug"},
        {"finalize", 10, "^$"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.hook + " timeout " + std::to_string(c.timeout_s) + " " + c.log_level);
        const bool finalize = c.hook == "finalize";
        for (const char* file : {"orvane-tamblo.log", "hook_debug.log"}) fs::remove(logs_ / file);
        RunOptions options;
        options.stdin_data = R"({"session_id": "s1", "prompt": "hi"})";
        if (c.timeout_s == 0) options.env["PATH"] = "/usr/bin:/bin";
        if (!c.log_level.empty()) options.env["ORVANE_TAMBLO_LOG_LEVEL"] = c.log_level;
        if (c.timeout_s) {
            scenario_file(finalize ? "conversation-finalize.sleep" : "conversation-log-turn.sleep",
                          "30");
        }
        const auto start = std::chrono::steady_clock::now();
        const HookRun r = run(finalize ? Args{"hooks", "finalize"}
                                       : Args{"hooks", "log-conversation", "--type", "user"},
                              options);
        EXPECT_GE(std::chrono::steady_clock::now() - start,
                  std::chrono::milliseconds(c.timeout_s * 1000 - 100));
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        const std::string log = host_log();
        EXPECT_TRUE(std::regex_search(log, std::regex(c.log_re))) << log;
        const std::string failed = finalize ? "hook_finalize" : "hook_log_conversation";
        EXPECT_TRUE(std::regex_search(debug_log(), std::regex("(^|\n)\\d\\d:\\d\\d:\\d\\d " +
                                                              failed + " subprocess failed: .")))
            << debug_log();
        if (c.timeout_s) {
            const std::string text = "timed out after " + std::to_string(c.timeout_s) + " seconds";
            EXPECT_NE((finalize ? debug_log() : log).find(text), std::string::npos);
        }
    }
    EXPECT_EQ(host_calls().size(), 2u) << "only the slow hosts were reached";
}

}  // namespace
}  // namespace e2e
