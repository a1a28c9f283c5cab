// Conversation history hooks: log-conversation and finalize hand each turn or session end to
// the host as a child process and never tell the agent anything.
#include <algorithm>
#include <chrono>
#include <regex>

#include "harness.hpp"

namespace e2e {
namespace {

using Args = std::vector<std::string>;

// One hook run and the host call it should make; nullopt means no child at all.
struct Row {
    std::string input;
    Args extra_args;
    std::optional<Args> call;
};

class History : public HookTest {
  protected:
    // Runs every row, checking the hook stays silent and makes exactly the expected call.
    void run_rows(const std::string& name, const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.input.substr(0, 200) + " " + ::testing::PrintToString(row.extra_args));
            fs::remove(scenario_ / "calls.log");
            const HookRun r = hook(name, row.input, row.extra_args);
            EXPECT_EQ(r.out, "");
            EXPECT_EQ(r.err, "");
            EXPECT_EQ(r.status, 0);
            const auto calls = host_calls();
            if (!row.call) {
                EXPECT_TRUE(calls.empty()) << ::testing::PrintToString(calls);
            } else {
                ASSERT_EQ(calls.size(), 1u);
                EXPECT_EQ(calls[0], *row.call);
            }
        }
    }

    // A run whose child fails in the given way still ends quietly with status 0.
    HookRun run_quiet(const Args& args, const std::string& input, RunOptions options = {}) {
        options.stdin_data = input;
        HookRun r = run(args, options);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        return r;
    }

    bool debug_line_starts(const std::string& prefix) const {
        for (const auto& m : debug_messages()) {
            if (m.rfind(prefix, 0) == 0 && m.size() > prefix.size()) return true;
        }
        return false;
    }
};

Args turn(std::initializer_list<std::string> tail) {
    Args args = {"conversation", "log-turn"};
    args.insert(args.end(), tail);
    return args;
}

Args fin(std::initializer_list<std::string> tail) {
    Args args = {"conversation", "finalize"};
    args.insert(args.end(), tail);
    return args;
}

std::string repeat(const std::string& unit, std::size_t n) {
    std::string s;
    for (std::size_t i = 0; i < n; ++i) s += unit;
    return s;
}

const Args kUser = {"--type", "user"};
const Args kTool = {"--type", "tool"};
const std::string kEAcute = "\xc3\xa9";

TEST_F(History, UserTurnArguments) {
    // A failing child that complains is nobody's business: exit 1 and stderr are ignored.
    scenario_file("conversation-log-turn.stderr", "boom\n");
    scenario_file("conversation-log-turn.rc", "1");
    const std::string a100(100, 'a');
    const std::string x30001(30001, 'x');
    run_rows("log-conversation",
             {
                 {R"({"session_id": "s1", "prompt": "hi"})", kUser,
                  turn({"--session-id=s1", "--type", "user", "--prompt", "hi"})},
                 {R"({"prompt": "hi"})", kUser, turn({"--type", "user", "--prompt", "hi"})},
                 {R"({"session_id": "bad id!", "prompt": "hi"})", kUser,
                  turn({"--type", "user", "--prompt", "hi"})},
                 {R"({"session_id": "", "prompt": "hi"})", kUser,
                  turn({"--type", "user", "--prompt", "hi"})},
                 {R"({"session_id": ")" + a100 + R"(", "prompt": "hi"})", kUser,
                  turn({"--session-id=" + a100, "--type", "user", "--prompt", "hi"})},
                 {R"({"session_id": ")" + a100 + R"(a", "prompt": "hi"})", kUser,
                  turn({"--type", "user", "--prompt", "hi"})},
                 {R"({"session_id": "abc\n", "prompt": "hi"})", kUser,
                  turn({"--session-id=abc\n", "--type", "user", "--prompt", "hi"})},
                 {R"({"user_prompt": "a", "prompt": "b"})", kUser,
                  turn({"--type", "user", "--prompt", "a"})},
                 {R"({"user_prompt": "", "prompt": "b"})", kUser,
                  turn({"--type", "user", "--prompt", "b"})},
                 {R"({"prompt": 7})", kUser, turn({"--type", "user", "--prompt", "7"})},
                 {R"({"prompt": ")" + x30001 + R"("})", kUser,
                  turn({"--type", "user", "--prompt", x30001.substr(0, 30000)})},
                 {R"({"prompt": ")" + repeat(kEAcute, 30001) + R"("})", kUser,
                  turn({"--type", "user", "--prompt", repeat(kEAcute, 30000)})},
                 {R"({"session_id": "s1"})", kUser, std::nullopt},
                 {R"({"user_prompt": "", "prompt": null})", kUser, std::nullopt},
             });
    EXPECT_EQ(host_log(), "");
    EXPECT_FALSE(debug_line_starts("hook_log_conversation subprocess failed: "));
}

TEST_F(History, ToolTurnArguments) {
    const std::string name1500(1500, 'n');
    const std::string x40000(40000, 'x');
    auto tool = [](std::initializer_list<std::string> tail) {
        Args args = turn({"--type", "tool", "--tool-name", "Read"});
        args.insert(args.end(), tail);
        return args;
    };
    run_rows(
        "log-conversation",
        {
            {R"({"session_id": "s1", "tool_name": "Read", "tool_input": {"file_path": "/a/ü.py"},
                 "tool_result": "ok"})",
             kTool,
             turn({"--session-id=s1", "--type", "tool", "--tool-name", "Read", "--tool-input",
                   R"({"file_path": "/a/\u00fc.py"})", "--tool-result", R"("ok")"})},
            {R"({"tool_name": "Read", "tool_input": {"file_path": "/a/ü.py"}})", kTool,
             tool({"--tool-input", R"({"file_path": "/a/\u00fc.py"})"})},
            {R"({"tool_name": "Read", "tool_input": {}, "tool_result": ""})", kTool, tool({})},
            {R"({"tool_name": "Read", "tool_input": [], "tool_result": 0})", kTool, tool({})},
            {R"({"tool_name": "Read", "tool_input": null, "tool_result": false})", kTool, tool({})},
            {R"({"tool_name": "Read", "tool_result": {"b": 1, "a": 2}})", kTool,
             tool({"--tool-result", R"({"b": 1, "a": 2})"})},
            {R"({"tool_name": "Read", "tool_input": {"x": 2.0, "y": 1e2, "z": [1, true, null]}})",
             kTool, tool({"--tool-input", R"({"x": 2.0, "y": 100.0, "z": [1, true, null]})"})},
            {R"({"tool_name": "Read", "tool_input": "q\"\\\n\t😀\u0001\u007f/"})", kTool,
             tool({"--tool-input", R"("q\"\\\n\t\ud83d\ude00\u0001\u007f/")"})},
            {R"({"tool_name": "Read", "tool_result": ")" + x40000 + R"("})", kTool,
             tool({"--tool-result", "\"" + x40000.substr(0, 29999)})},
            {R"({"tool_name": ")" + name1500 + R"("})", kTool,
             turn({"--type", "tool", "--tool-name", name1500.substr(0, 1000)})},
            {R"({"tool_name": 5})", kTool, turn({"--type", "tool", "--tool-name", "5"})},
            {R"({"tool_name": "", "tool_input": {"a": 1}})", kTool, std::nullopt},
            {R"({"session_id": "s1", "tool_input": {"a": 1}})", kTool, std::nullopt},
        });
}

TEST_F(History, FinalizeArguments) {
    const std::string a101(101, 'a');
    auto status = [](const char* s) { return fin({"--session-id=s1", s}); };
    run_rows(
        "finalize",
        {
            {R"({"session_id": "s1", "reason": "compact"})", {}, status("--status=compacted")},
            {R"({"session_id": "s1", "reason": "compacted"})", {}, status("--status=compacted")},
            {R"({"session_id": "s1", "reason": "task_completed"})",
             {},
             status("--status=completed")},
            {R"({"session_id": "s1", "reason": "user_request"})", {}, status("--status=completed")},
            {R"({"session_id": "s1", "reason": "completed"})", {}, status("--status=completed")},
            {R"({"session_id": "s1"})", {}, status("--status=completed")},
            {R"({"session_id": "s1", "reason": "other"})", {}, status("--status=completed")},
            {R"({"session_id": "s1", "reason": null})", {}, status("--status=completed")},
            {R"({"session_id": "s1", "reason": "Compact"})", {}, status("--status=completed")},
            {R"({"session_id": "s1", "reason": ""})", {}, status("--status=completed")},
            {R"({"session_id": "s1", "reason": 5})", {}, status("--status=completed")},
            {"{}", {}, fin({"--status=completed"})},
            {R"({"session_id": "a b", "reason": "compact"})", {}, fin({"--status=compacted"})},
            {R"({"session_id": "a/b"})", {}, fin({"--status=completed"})},
            {R"({"session_id": ")" + a101 + R"("})", {}, fin({"--status=completed"})},
            // The agent is irrelevant to the host's history.
            {R"({"session_id": "s1", "reason": "compact"})",
             {"--agent", "cursor"},
             status("--status=compacted")},
        });
}

TEST_F(History, WrongKindOfValueEndsThroughTheGuardBeforeAnyChild) {
    const struct {
        std::string hook;
        Args extra_args;
        std::string input;
    } cases[] = {
        {"log-conversation", kUser, R"({"session_id": 42, "prompt": "hi"})"},
        // The session id is checked even for a turn that would be dropped anyway.
        {"log-conversation", kTool, R"({"session_id": true})"},
        {"finalize", {}, R"({"session_id": 42})"},
        {"finalize", {}, R"({"session_id": "s1", "reason": ["a"]})"},
        {"finalize", {}, R"({"reason": {"a": 1}})"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.hook + " " + c.input);
        const HookRun r = hook(c.hook, c.input, c.extra_args);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err.rfind("orvane-tamblo hook " + c.hook + " error: ", 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
    EXPECT_TRUE(host_calls().empty());
}

const std::regex kWarning(
    R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d WARNING orvane_tamblo\.cli_hooks: Conversation logging error: .+\n$)");

TEST_F(History, LogConversationWithoutHostWarns) {
    RunOptions options;
    options.env["PATH"] = "/usr/bin:/bin";
    run_quiet({"hooks", "log-conversation", "--type", "user"}, R"({"prompt": "hi"})", options);
    const std::string log = host_log();
    EXPECT_TRUE(std::regex_match(log, kWarning)) << log;
    EXPECT_TRUE(debug_line_starts("hook_log_conversation subprocess failed: "));
}

TEST_F(History, LogConversationKillsASlowHostAfterFiveSeconds) {
    scenario_file("conversation-log-turn.sleep", "30");
    const auto start = std::chrono::steady_clock::now();
    run_quiet({"hooks", "log-conversation", "--type", "user"}, R"({"prompt": "hi"})");
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(4900));
    EXPECT_EQ(host_calls().size(), 1u);
    const std::string log = host_log();
    EXPECT_TRUE(std::regex_match(log, kWarning)) << log;
    EXPECT_NE(log.find("timed out after 5 seconds"), std::string::npos) << log;
    EXPECT_TRUE(debug_line_starts("hook_log_conversation subprocess failed: "));
}

TEST_F(History, FinalizeWithoutHostLogsOnlyAtDebugLevel) {
    RunOptions options;
    options.env["PATH"] = "/usr/bin:/bin";
    run_quiet({"hooks", "finalize"}, R"({"session_id": "s1"})", options);
    EXPECT_EQ(host_log(), "") << "a debug record stays out of the default host log";
    EXPECT_TRUE(debug_line_starts("hook_finalize subprocess failed: "));

    options.env["ORVANE_TAMBLO_LOG_LEVEL"] = "debug";
    run_quiet({"hooks", "finalize"}, R"({"session_id": "s1"})", options);
    const std::string log = host_log();
    EXPECT_TRUE(std::regex_search(
        log, std::regex(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d DEBUG orvane_tamblo\.cli_hooks: )"
                        R"(hook_finalize failed\n)")))
        << log;
}

TEST_F(History, FinalizeKillsASlowHostAfterTenSeconds) {
    scenario_file("conversation-finalize.sleep", "30");
    const auto start = std::chrono::steady_clock::now();
    run_quiet({"hooks", "finalize"}, R"({"session_id": "s1", "reason": "compact"})");
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(9900));
    EXPECT_EQ(host_calls(), std::vector<Args>{fin({"--session-id=s1", "--status=compacted"})});
    EXPECT_EQ(host_log(), "");
    EXPECT_TRUE(debug_line_starts("hook_finalize subprocess failed: "));
    EXPECT_NE(debug_log().find("timed out after 10 seconds"), std::string::npos) << debug_log();
}

}  // namespace
}  // namespace e2e
