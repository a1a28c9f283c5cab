// Conversation history hooks: log-conversation and finalize hand each turn or session end to
// the host as a child process and never tell the agent anything.
#include <chrono>
#include <regex>
#include <thread>

#include "harness.hpp"

namespace e2e {
namespace {

using Args = std::vector<std::string>;

// One hook input and the host call it should make, without "conversation"; nullopt means no
// child at all.
struct Row {
    std::string input;
    std::optional<Args> call;
};

class History : public HookTest {
  protected:
    // Runs every row, checking the hook stays silent and makes exactly the expected call.
    void run_rows(const Args& args, const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.input.substr(0, 200));
            fs::remove(scenario_ / "calls.log");
            expect_clean(hook(args[0], row.input, Args(args.begin() + 1, args.end())), "");
            std::vector<Args> calls;
            if (row.call) calls.push_back(*row.call);
            for (Args& call : calls) call.insert(call.begin(), "conversation");
            EXPECT_EQ(host_calls(), calls);
        }
    }
};

TEST_F(History, UserTurnArguments) {
    // A failing child that complains is nobody's business: exit 1 and stderr are ignored.
    scenario_file("conversation-log-turn.stderr", "boom\n");
    scenario_file("conversation-log-turn.rc", "1");
    const Args hi = {"log-turn", "--type", "user", "--prompt", "hi"};
    const std::string id100 = "Ab-9_z" + std::string(94, 'a');
    std::string e30000;
    for (int i = 0; i < 30000; ++i) e30000 += "\xC3\xA9";
    std::vector<Row> rows = {
        {R"({"session_id": ")" + id100 + R"(", "prompt": "hi"})",
         Args{"log-turn", "--session-id=" + id100, "--type", "user", "--prompt", "hi"}},
        {R"({"prompt": "hi"})", hi},
        {R"({"user_prompt": "a", "prompt": "b"})",
         Args{"log-turn", "--type", "user", "--prompt", "a"}},
        {R"({"user_prompt": "", "prompt": 7})",
         Args{"log-turn", "--type", "user", "--prompt", "7"}},
        {R"({"session_id": "s1", "user_prompt": "", "prompt": null})", std::nullopt},
        // Cut at 30,000 characters, not bytes; a lone surrogate is one.
        {R"({"prompt": ")" + e30000 + R"(\u00e9"})",
         Args{"log-turn", "--type", "user", "--prompt", e30000}},
        {R"({"prompt": "\ud83d)" + std::string(30000, 'x') + R"("})",
         Args{"log-turn", "--type", "user", "--prompt", "\xED\xA0\xBD" + std::string(29999, 'x')}},
    };
    // A prompt that is no string goes as its plain text; a false one is no prompt at all.
    for (const auto& [json, prompt] : std::vector<std::pair<std::string, std::string>>{
             {"0", ""},
             {"-0", ""},
             {"0.0", ""},
             {"-0.0", ""},
             {"false", ""},
             {"[]", ""},
             {"{}", ""},
             {"true", "True"},
             {"1e-300", "1e-300"},
             {"1e100", "1e+100"},
             {"123456789012345678901234567890", "123456789012345678901234567890"},
             {"-1e999", "-1e999"},
             {R"("0")", "0"},
             {R"("\u00e9 'q'")", "\xC3\xA9 'q'"},
             {R"([0, "a'b", null, "\ud83d", 0.5])", R"([0, "a'b", None, '\ud83d', 0.5])"},
             {R"({"k": [true]})", "{'k': [True]}"},
         }) {
        rows.push_back({R"({"prompt": )" + json + "}",
                        prompt.empty() ? std::nullopt
                                       : std::optional(Args{"log-turn", "--type", "user",
                                                            "--prompt", prompt})});
    }
    // Unsafe or empty session ids are left out; the turn is still logged. A list is measured
    // before it counts as the wrong kind of value.
    std::string list101 = "[1";
    for (int i = 0; i < 100; ++i) list101 += ",1";
    for (const std::string& id : std::vector<std::string>{
             R"("bad id!")", R"("abc/def")", R"("abc\n\n")", R"("")", "null", "0",
             "\"" + id100 + "a\"", "\"" + id100 + "\\n\"", list101 + "]"}) {
        rows.push_back({R"({"session_id": )" + id + R"(, "prompt": "hi"})", hi});
    }
    run_rows({"log-conversation", "--type", "user"}, rows);
    EXPECT_EQ(host_log(), "");
    EXPECT_EQ(debug_log().find("subprocess failed"), std::string::npos) << debug_log();
}

TEST_F(History, ToolTurnArguments) {
    const std::string name1500(1500, 'n');
    const std::string x40000(40000, 'x');
    const Args read = {"log-turn", "--type", "tool", "--tool-name", "Read"};
    run_rows({"log-conversation", "--type", "tool"},
             {
                 // Input and result as our JSON text: members in their order, ASCII only.
                 {R"({"session_id": "s1", "tool_name": "Read", "tool_result": {"b": 1, "a": 2},
                      "tool_input": {"file_path": "/a/ü.py"}})",
                  Args{"log-turn", "--session-id=s1", "--type", "tool", "--tool-name", "Read",
                       "--tool-input", R"({"file_path": "/a/\u00fc.py"})", "--tool-result",
                       R"({"b": 1, "a": 2})"}},
                 {R"({"tool_name": "Read", "tool_input": {}, "tool_result": ""})", read},
                 {R"({"tool_name": "Read", "tool_input": [], "tool_result": false})", read},
                 // The JSON text is cut, closing quote and all.
                 {R"({"tool_name": "Read", "tool_result": ")" + x40000 + R"("})",
                  Args{"log-turn", "--type", "tool", "--tool-name", "Read", "--tool-result",
                       "\"" + x40000.substr(0, 29999)}},
                 {R"({"tool_name": ")" + name1500 + R"("})",
                  Args{"log-turn", "--type", "tool", "--tool-name", name1500.substr(0, 1000)}},
                 {R"({"tool_name": "", "tool_input": {"a": 1}})", std::nullopt},
             });
}

TEST_F(History, FinalizeArguments) {
    std::vector<Row> rows = {
        {"{}", Args{"finalize", "--status=completed"}},
        {R"({"session_id": "a b", "reason": "compact"})", Args{"finalize", "--status=compacted"}},
    };
    for (const char* json :
         {R"("compact")", R"("compacted")", R"("task_completed")", R"("user_request")",
          R"("completed")", R"("other")", R"("Compact")", R"("")", "null", "5"}) {
        const std::string status =
            std::string(json).starts_with("\"compact") ? "compacted" : "completed";
        rows.push_back({R"({"session_id": "s1", "reason": )" + std::string(json) + "}",
                        Args{"finalize", "--session-id=s1", "--status=" + status}});
    }
    rows.push_back(
        {R"({"session_id": "s1"})", Args{"finalize", "--session-id=s1", "--status=completed"}});
    run_rows({"finalize"}, rows);
    // The agent is irrelevant to the host's history.
    run_rows({"finalize", "--agent", "cursor"}, {rows.back()});
}

TEST_F(History, WrongKindOfValueEndsThroughTheGuardBeforeAnyChild) {
    const std::pair<Args, std::string> cases[] = {
        {{"log-conversation", "--type", "user"}, R"({"session_id": 42, "prompt": "hi"})"},
        {{"log-conversation", "--type", "user"}, R"({"session_id": ["a"], "prompt": "hi"})"},
        // The session id is checked even for a turn that would be dropped anyway.
        {{"log-conversation", "--type", "tool"}, R"({"session_id": true})"},
        {{"finalize"}, R"({"session_id": 42})"},
        {{"finalize"}, R"({"session_id": "s1", "reason": ["a"]})"},
    };
    for (const auto& [args, input] : cases) {
        SCOPED_TRACE(args[0] + " " + input);
        expect_guarded(hook(args[0], input, Args(args.begin() + 1, args.end())), args[0]);
    }
    EXPECT_TRUE(host_calls().empty());
}

// A host that is missing or too slow costs the turn or the finalization, never the agent: the
// hook stays silent, logs the failure, and exits 0. The slow host is the suite's one real time-out.
TEST_F(History, ChildFailuresAreOnlyLogged) {
    const std::string stamp = R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d )";
    const std::string warning =
        stamp + R"(WARNING orvane_tamblo\.cli_hooks: Conversation logging error: )";
    const struct {
        std::string hook;
        bool slow;           // else the host is not on PATH
        std::string log_re;  // searched in the host log
        std::string log_level = "";
    } cases[] = {
        {"log-conversation", false, warning + R"(.+\n$)"},
        {"log-conversation", true, warning + R"(.*timed out after 5 seconds.*\n$)"},
        {"finalize", false, "^$"},
        // A debug record shows only where the host's logging asks for debug records.
        {"finalize", false, stamp + R"(DEBUG orvane_tamblo\.cli_hooks: hook_finalize failed\n)",
         "debug"},
    };
    scenario_file("conversation-log-turn.sleep", "30");
    // The slow host has started a grandchild, which must go at the limit too.
    scenario_file("conversation-log-turn.grandchild", "6");
    std::chrono::steady_clock::time_point slow_start;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.hook + (c.slow ? " slow " : " missing ") + c.log_level);
        for (const char* file : {"orvane-tamblo.log", "hook_debug.log"}) fs::remove(logs_ / file);
        RunOptions options = {.stdin_data = R"({"session_id": "s1", "prompt": "hi"})"};
        if (!c.slow) options.env["PATH"] = "/usr/bin:/bin";
        if (!c.log_level.empty()) options.env["ORVANE_TAMBLO_LOG_LEVEL"] = c.log_level;
        const auto start = std::chrono::steady_clock::now();
        if (c.slow) slow_start = start;
        const HookRun r = run(c.hook == "finalize" ? Args{"hooks", "finalize"}
                                                   : Args{"hooks", c.hook, "--type", "user"},
                              options);
        if (c.slow) {
            EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4900));
        }
        expect_clean(r, "");
        EXPECT_TRUE(std::regex_search(host_log(), std::regex(c.log_re))) << host_log();
        const std::string failed = c.hook == "finalize" ? "hook_finalize" : "hook_log_conversation";
        EXPECT_TRUE(std::regex_search(debug_log(), std::regex("(^|\n)\\d\\d:\\d\\d:\\d\\d " +
                                                              failed + " subprocess failed: .")))
            << debug_log();
    }
    EXPECT_EQ(host_calls().size(), 1u) << "only the slow host was reached";
    std::this_thread::sleep_until(slow_start + std::chrono::seconds(7));
    EXPECT_FALSE(fs::exists(scenario_ / "grandchild.log")) << "the grandchild outlived the limit";
}

}  // namespace
}  // namespace e2e
