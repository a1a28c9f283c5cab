// The hooks command line: usage, parser errors, save-compact's forms, the debug log and the guard.
#include <regex>

#include "harness.hpp"

namespace e2e {
namespace {

const std::string kUsage =
    "Usage: orvane-tamblo hooks {session-start|restore-compact|check-cache|remind-store|"
    "persist-learnings|save-compact|inject-context|log-conversation|finalize}\n";

const std::string kCompactText =
    "## Context Compaction Imminent\n\nBefore context is reduced, persist important insights:\n"
    "- `understand(action='store')` for file/module analysis\n"
    "- `remember(action='store', key='...', value='...')` for decisions and insights";
const std::string kCompactJson =
    "## Context Compaction Imminent\\n\\nBefore context is reduced, persist important insights:\\n"
    "- `understand(action='store')` for file/module analysis\\n"
    "- `remember(action='store', key='...', value='...')` for decisions and insights";

using CommandLine = HookTest;

TEST_F(CommandLine, HooksWithoutHookPrintsUsageAndExitsOne) {
    const HookRun r = run({"hooks"});
    EXPECT_EQ(r.out, kUsage);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(debug_messages(), std::vector<std::string>{"cmd_hooks called: hook_cmd=None"});
}

TEST_F(CommandLine, ParserErrorsNeverReachTheHandler) {
    const std::vector<std::vector<std::string>> cases = {
        {"hooks", "no-such-hook"},
        {"hooks", "log-conversation"},
        {"hooks", "log-conversation", "--type", "assistant"},
        {"hooks", "log-conversation", "--type"},
        {"hooks", "save-compact", "--agent"},
        {"hooks", "save-compact", "--bogus"},
        {"hooks", "save-compact", "check-cache"},
        {},
    };
    for (const auto& args : cases) {
        const HookRun r = run(args);
        SCOPED_TRACE(::testing::PrintToString(args));
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.out, "");
        EXPECT_NE(r.err.find("error: "), std::string::npos) << r.err;
        EXPECT_NE(r.err.find("--help"), std::string::npos) << r.err;
    }
    EXPECT_EQ(debug_log(), "") << "cmd_hooks must not run for a parser error";
}

TEST_F(CommandLine, HelpAndVersionGoToStandardOutput) {
    const HookRun version = run({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out.rfind("orvane-tamblo ", 0), 0u) << version.out;

    const HookRun hooks_help = run({"hooks", "--help"});
    EXPECT_EQ(hooks_help.status, 0);
    EXPECT_EQ(hooks_help.err, "");
    for (const char* name :
         {"session-start", "refresh-cache", "suggest-tamblo", "finalize",
          "Nudge toward semantic search when grep looks like symbol discovery"}) {
        EXPECT_NE(hooks_help.out.find(name), std::string::npos) << name;
    }

    const HookRun log_help = run({"hooks", "log-conversation", "--help"});
    EXPECT_NE(log_help.out.find("Turn type: user or tool"), std::string::npos) << log_help.out;
    EXPECT_NE(
        log_help.out.find("AI agent type: claude, copilot, cursor, windsurf (default: claude)"),
        std::string::npos);
}

TEST_F(CommandLine, SaveCompactWritesEachAgentsSystemMessageForm) {
    const struct {
        std::vector<std::string> agent_args;
        std::string expected;
    } cases[] = {
        {{}, "{\"systemMessage\": \"" + kCompactJson + "\"}\n"},
        {{"--agent", "claude"}, "{\"systemMessage\": \"" + kCompactJson + "\"}\n"},
        {{"--agent", "copilot"}, "{\"message\": \"" + kCompactJson + "\"}\n"},
        {{"--agent=GitHub"}, "{\"message\": \"" + kCompactJson + "\"}\n"},
        {{"--agent", "cursor"}, "{\"output\": \"" + kCompactJson + "\"}\n"},
        {{"--agent", "windsurf"}, kCompactText + "\n"},
        {{"--agent", "vim"}, "{\"systemMessage\": \"" + kCompactJson + "\"}\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.agent_args));
        const HookRun r = hook("save-compact", "{\"session_id\": \"s1\"}", c.agent_args);
        EXPECT_EQ(r.out, c.expected);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
    }
    EXPECT_TRUE(host_calls().empty()) << "save-compact asks the index service nothing";
}

TEST_F(CommandLine, DebugLogSwitchAndLineFormat) {
    RunOptions on;
    on.env["ORVANE_HOOK_DEBUG"] = "0";  // any non-empty value switches it on
    ASSERT_EQ(run({"hooks", "save-compact"}, on).status, 0);
    const std::regex line(R"(\d\d:\d\d:\d\d (.*))");
    std::smatch m;
    const std::string log = debug_log();
    ASSERT_TRUE(std::regex_search(
        log, m,
        std::regex(
            R"(^\d\d:\d\d:\d\d cmd_hooks called: hook_cmd=save-compact\n\d\d:\d\d:\d\d hook save-compact returned rc=0\n$)")))
        << log;

    fs::remove(logs_ / "hook_debug.log");
    RunOptions off;
    off.env["ORVANE_HOOK_DEBUG"] = "";
    ASSERT_EQ(run({"hooks", "save-compact"}, off).status, 0);
    RunOptions unset;
    unset.env["ORVANE_HOOK_DEBUG"] = std::nullopt;
    ASSERT_EQ(run({"hooks", "save-compact"}, unset).status, 0);
    EXPECT_FALSE(fs::exists(logs_ / "hook_debug.log"));
}

TEST_F(CommandLine, MissingLogDirectoryBehavesAsLogOff) {
    RunOptions missing;
    missing.env["ORVANE_TAMBLO_LOG_DIR"] = (root_ / "no" / "such" / "dir").string();
    RunOptions off;
    off.env["ORVANE_HOOK_DEBUG"] = std::nullopt;
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"hooks"}, {"hooks", "save-compact", "--agent", "cursor"}}) {
        const HookRun with_missing = run(args, missing);
        const HookRun with_off = run(args, off);
        EXPECT_EQ(with_missing.out, with_off.out);
        EXPECT_EQ(with_missing.err, with_off.err);
        EXPECT_EQ(with_missing.status, with_off.status);
    }
    EXPECT_FALSE(fs::exists(root_ / "no")) << "an explicit log directory is never created";
}

TEST_F(CommandLine, DefaultLogDirectoryIsCreatedUnderStateHome) {
    RunOptions options;
    options.env["ORVANE_TAMBLO_LOG_DIR"] = std::nullopt;
    options.env["XDG_STATE_HOME"] = std::nullopt;
    ASSERT_EQ(run({"hooks", "save-compact"}, options).status, 0);
    const std::string log =
        read_file(root_ / "home/.local/state/orvane-tamblo/logs/hook_debug.log");
    EXPECT_NE(log.find("hook save-compact returned rc=0"), std::string::npos) << log;

    options.env["XDG_STATE_HOME"] = (root_ / "state").string();
    ASSERT_EQ(run({"hooks", "save-compact"}, options).status, 0);
    EXPECT_TRUE(fs::exists(root_ / "state/orvane-tamblo/logs/hook_debug.log"));
}

TEST_F(CommandLine, FailedHandlerEndsThroughTheGuard) {
    RunOptions options;
    options.close_stdout = true;
    const HookRun r = run({"hooks", "save-compact"}, options);
    EXPECT_EQ(r.signal, 0);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err.rfind("orvane-tamblo hook save-compact error: ", 0), 0u) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_EQ(r.err.back(), '\n');
    const auto messages = debug_messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[1].rfind("hook save-compact EXCEPTION: ", 0), 0u) << messages[1];
}

}  // namespace
}  // namespace e2e
