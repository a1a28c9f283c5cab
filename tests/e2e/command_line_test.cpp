// The hooks command line: usage, parser errors, save-compact's forms, the debug log and the guard.
#include <regex>

#include "harness.hpp"

namespace e2e {
namespace {

const std::string kUsage =
    "Usage: orvane-tamblo hooks {session-start|restore-compact|check-cache|remind-store|"
    "persist-learnings|save-compact|inject-context|log-conversation|finalize}\n";

using CommandLine = HookTest;

// Without a hook: the usage line and status 1, after the dispatcher's one debug line. An argument
// error is the parser's one line and status 1 as well, before the dispatcher runs at all: Claude
// Code would read 2 as "block this tool call", for every read if a newer release's hook name
// were configured.
TEST_F(CommandLine, UsageHelpAndParserErrors) {
    const HookRun usage = run({"hooks"});
    EXPECT_EQ(usage.out, kUsage);
    EXPECT_EQ(usage.err, "");
    EXPECT_EQ(usage.status, 1);
    EXPECT_EQ(debug_messages(), std::vector<std::string>{"cmd_hooks called: hook_cmd=None"});

    const HookRun hooks_help = run({"hooks", "--help"});
    const HookRun hook_help = run({"hooks", "log-conversation", "--help"});
    EXPECT_EQ(hooks_help.status + hook_help.status, 0);
    const std::string help = hooks_help.out + hook_help.out;
    for (const char* text :
         {"session-start", "refresh-cache", "suggest-tamblo", "finalize",
          "Nudge toward semantic search when grep looks like symbol discovery",
          "Turn type: user or tool",
          "AI agent type: claude, copilot, cursor, windsurf (default: claude)"}) {
        EXPECT_NE(help.find(text), std::string::npos) << text;
    }

    fs::remove(logs_ / "hook_debug.log");
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"hooks", "no-such-hook"},
         "orvane-tamblo hooks: error: The following argument was not expected: no-such-hook (see "
         "'orvane-tamblo hooks --help')\n"},
        {{"hooks", "--version"},
         "orvane-tamblo hooks: error: The following argument was not expected: --version (see "
         "'orvane-tamblo hooks --help')\n"},
        {{"hooks", "log-conversation"},
         "orvane-tamblo hooks log-conversation: error: --type is required (see 'orvane-tamblo "
         "hooks log-conversation --help')\n"},
        {{"hooks", "log-conversation", "--type", "assistant"},
         "orvane-tamblo hooks log-conversation: error: --type: assistant not in {user,tool} (see "
         "'orvane-tamblo hooks log-conversation --help')\n"},
        {{"hooks", "check-cache", "extra"},
         "orvane-tamblo hooks check-cache: error: The following argument was not expected: extra "
         "(see 'orvane-tamblo hooks check-cache --help')\n"},
        {{"hooks", "session-start", "--bogus"},
         "orvane-tamblo hooks session-start: error: The following argument was not expected: "
         "--bogus (see 'orvane-tamblo hooks session-start --help')\n"},
    };
    for (const auto& [args, err] : rows) {
        SCOPED_TRACE(::testing::PrintToString(args));
        expect_error(run(args), err, 1);
    }
    EXPECT_EQ(debug_log(), "") << "cmd_hooks must not run for a parser error";
}

// "--name=" gives the empty value, never the next argument: refused where nothing can be empty,
// kept where empty is text. A value given apart that looks like an option stays the value.
TEST_F(CommandLine, EmptyOptionValueIsNeverTheNextArgument) {
    const std::pair<std::vector<std::string>, std::string> refused[] = {
        {{"query", "understand", "--action=store", "--target=", "--purpose=p"},
         "orvane-tamblo query understand: error: --target: an empty value is not allowed (see "
         "'orvane-tamblo query understand --help')\n"},
        {{"conversation", "log-turn", "--session-id=", "--type", "user", "--prompt", "x"},
         "orvane-tamblo conversation log-turn: error: --session-id: an empty value is not allowed "
         "(see 'orvane-tamblo conversation log-turn --help')\n"},
        {{"conversation", "log-turn", "--type=", "--prompt", "x"},
         "orvane-tamblo conversation log-turn: error: --type:  not in {user,tool} (see "
         "'orvane-tamblo conversation log-turn --help')\n"},
    };
    for (const auto& [args, err] : refused) {
        SCOPED_TRACE(::testing::PrintToString(args));
        expect_error(run(args), err, 2);
    }
    EXPECT_FALSE(fs::exists(repo_ / "memory")) << "nothing was stored";

    expect_clean(run({"query", "understand", "--action=store", "--target=a.py", "--purpose="}),
                 "{\"stored\": true, \"target\": \"a.py\", \"scope\": \"file\"}\n");
    EXPECT_NE(run({"query", "understand", "--action=recall", "--target=a.py"})
                  .out.find(", \"purpose\": \"\", "),
              std::string::npos);
    expect_clean(
        run({"conversation", "log-turn", "--session-id=s1", "--type", "user", "--prompt", "--x="}),
        "{\"logged\": true, \"session_id\": \"s1\"}\n");
    expect_clean(run({"conversation", "context", "s1", "--json"}),
                 "{\"goals\": [\"--x=\"], \"recent_activity\": [], \"files_involved\": []}\n");

    // A hook's empty --agent is an agent name like any other: Claude Code's form.
    expect_clean(hook("log-conversation", R"({"prompt": "hi"})", {"--agent=", "--type", "user"}),
                 "");
    EXPECT_EQ(host_calls(), (std::vector<std::vector<std::string>>{
                                {"conversation", "log-turn", "--type", "user", "--prompt", "hi"}}));
}

// The notice is a system message, not model context: Claude Code's form shows which. Agent names
// are matched whatever their case; any other name is Claude Code's.
TEST_F(CommandLine, SaveCompactWritesEachAgentsSystemMessage) {
    const std::string claude = "{\"systemMessage\": " + kCompactJson + "}\n";
    const std::string copilot = "{\"message\": " + kCompactJson + "}\n";
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{}, claude},
        {{"--agent=vim"}, claude},
        {{"--agent= cursor"}, claude},
        {{"--agent=GitHub"}, copilot},
        {{"--agent=COPILOT"}, copilot},
        {{"--agent=cursor"}, "{\"output\": " + kCompactJson + "}\n"},
        {{"--agent", "Windsurf"}, kCompactText + "\n"},
        // A repeated option takes its last value, as parsers conventionally do.
        {{"--agent", "cursor", "--agent", "windsurf"}, kCompactText + "\n"},
        {{"--agent", "windsurf", "--agent", "claude"}, claude},
    };
    for (const auto& [agent, out] : rows) {
        SCOPED_TRACE(::testing::PrintToString(agent));
        expect_clean(hook("save-compact", R"({"session_id": "s1"})", agent), out);
    }
    EXPECT_TRUE(host_calls().empty()) << "save-compact asks the index service nothing";
}

// Parsers conventionally take the last value of a repeated option (save-compact's rows above); a
// parse error would lose the turn.
TEST_F(CommandLine, RepeatedOptionTakesItsLastValue) {
    expect_clean(hook("log-conversation", R"({"prompt": "hi"})",
                      {"--type", "tool", "--agent", "x", "--type", "user", "--agent", "y"}),
                 "");
    EXPECT_EQ(host_calls(), (std::vector<std::vector<std::string>>{
                                {"conversation", "log-turn", "--type", "user", "--prompt", "hi"}}));
}

TEST_F(CommandLine, DebugLogSwitchLinesAndMissingDirectory) {
    // Any non-empty value switches it on.
    ASSERT_EQ(run({"hooks", "save-compact"}, {.env = {{"ORVANE_HOOK_DEBUG", "0"}}}).status, 0);
    EXPECT_TRUE(std::regex_match(
        debug_log(), std::regex(R"(\d\d:\d\d:\d\d cmd_hooks called: hook_cmd=save-compact\n)"
                                R"(\d\d:\d\d:\d\d hook save-compact returned rc=0\n)")))
        << debug_log();

    // A message holding line feeds is written as it is, over several lines.
    fs::remove(logs_ / "hook_debug.log");
    hook("check-cache", input_with_path("claude", "/elsewhere/line 1\nline 2.py"));
    EXPECT_NE(debug_log().find(" extract_file_path rejected (outside cwd): " +
                               native("/elsewhere/line 1\nline 2.py") + "\n"),
              std::string::npos)
        << debug_log();

    // Off when empty or unset; a log directory that does not exist is as good as off, and is
    // never created.
    fs::remove(logs_ / "hook_debug.log");
    for (const auto& [name, value] :
         std::vector<std::pair<std::string, std::optional<std::string>>>{
             {"ORVANE_HOOK_DEBUG", ""},
             {"ORVANE_HOOK_DEBUG", std::nullopt},
             {"ORVANE_TAMBLO_LOG_DIR", (root_ / "no/such/dir").string()}}) {
        SCOPED_TRACE(name + "=" + value.value_or("(unset)"));
        const RunOptions options = {.env = {{name, value}}};
        const HookRun usage = run({"hooks"}, options);
        EXPECT_EQ(usage.out, kUsage);
        EXPECT_EQ(usage.err, "");
        EXPECT_EQ(usage.status, 1);
        expect_clean(run({"hooks", "save-compact", "--agent", "cursor"}, options),
                     "{\"output\": " + kCompactJson + "}\n");
    }
    EXPECT_FALSE(fs::exists(logs_ / "hook_debug.log"));
    EXPECT_FALSE(fs::exists(root_ / "no"));
}

TEST_F(CommandLine, DefaultLogDirectoryIsCreatedUnderStateHome) {
    if (windows_build()) GTEST_SKIP() << "Windows keeps logs under %LOCALAPPDATA% instead";
    RunOptions options = {
        .env = {{"ORVANE_TAMBLO_LOG_DIR", std::nullopt}, {"XDG_STATE_HOME", std::nullopt}}};
    ASSERT_EQ(run({"hooks", "save-compact"}, options).status, 0);
    EXPECT_TRUE(fs::exists(root_ / "home/.local/state/orvane-tamblo/logs/hook_debug.log"));
    options.env["XDG_STATE_HOME"] = (root_ / "state").string();
    ASSERT_EQ(run({"hooks", "save-compact"}, options).status, 0);
    EXPECT_TRUE(fs::exists(root_ / "state/orvane-tamblo/logs/hook_debug.log"));
}

TEST_F(CommandLine, FailuresEndThroughTheGuard) {
    expect_guarded(run({"hooks", "save-compact"}, {.close_stdout = true}), "save-compact");
    const auto messages = debug_messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_TRUE(messages[1].starts_with("hook save-compact EXCEPTION: ")) << messages[1];

    // Input nested too deeply to hold is a failure, not bad input to forgive; 1000 levels are held.
    for (const auto& [open, close] : {std::pair{"[", "]"}, std::pair{"{\"a\": ", "}"}}) {
        std::string held = "1";
        for (int i = 0; i < 1000; ++i) held = open + held + close;
        expect_clean(hook("check-cache", held), "");
        expect_guarded(hook("check-cache", open + held + close), "check-cache");
    }
}

}  // namespace
}  // namespace e2e
