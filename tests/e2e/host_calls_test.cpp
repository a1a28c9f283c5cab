// What reaches the host as a child process: every argument exactly as the agent wrote it, and
// nothing left running once the hook ends.
#include <signal.h>

#include <chrono>
#include <thread>

#include "harness.hpp"

namespace e2e {
namespace {

using Args = std::vector<std::string>;
using namespace std::chrono_literals;

using HostCalls = HookTest;

// Windows passes a child one command line that the child's C runtime splits again: the quoting
// must bring back blanks, quotes and backslashes exactly, and text in any script.
TEST_F(HostCalls, EveryArgumentArrivesExactly) {
    for (const std::string prompt : {
             " ", "two  blanks\tand a tab", R"(say "hi")", R"(\"already escaped\")",
             R"(trailing backslash\)", R"(trailing backslashes\\)",
             R"(C:\dir\ "quoted\\" \\server\share\)", "line\nfeed",
             "\xC3\xBCn\xC3\xAF\xC3\xA7\xC3\xB8"
             "d\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC "
             "\xF0\x9F\x98\x80",  // "ünïçødé 日本 😀"
         }) {
        SCOPED_TRACE(prompt);
        fs::remove(scenario_ / "calls.log");
        hook("log-conversation", R"({"prompt": )" + json_string(prompt) + "}", {"--type", "user"});
        EXPECT_EQ(host_calls(), (std::vector<Args>{{"conversation", "log-turn", "--type", "user",
                                                    "--prompt", prompt}}));
    }
    // A session id may end in a line feed; a tool's input is JSON text full of quotes and escapes.
    hook(
        "log-conversation",
        R"({"session_id": "abc\n", "tool_name": "Read", "tool_input": {"file_path": "C:\\dir\\"}})",
        {"--type", "tool"});
    EXPECT_EQ(host_calls().back(),
              (Args{"conversation", "log-turn", "--session-id=abc\n", "--type", "tool",
                    "--tool-name", "Read", "--tool-input", R"({"file_path": "C:\\dir\\"})"}));
}

// History.ChildFailuresAreOnlyLogged shows a grandchild killed at its parent's limit; this shows
// that the fake host's grandchild is real, and that one ending in time is waited for, since it
// holds the output pipes.
TEST_F(HostCalls, GrandchildHoldingThePipesIsWaitedFor) {
    scenario_file("conversation-log-turn.grandchild", "1");
    const auto start = std::chrono::steady_clock::now();
    hook("log-conversation", R"({"prompt": "hi"})", {"--type", "user"});
    EXPECT_GE(std::chrono::steady_clock::now() - start, 900ms);
    EXPECT_TRUE(fs::exists(scenario_ / "grandchild.log"));
}

// Under Wine, SIGTERM and SIGKILL end the hook's process outright, as TerminateProcess would,
// and SIGINT arrives as Ctrl+C; either way the child and the grandchild it started go with the
// hook.
TEST_F(HostCalls, StoppedHookLeavesNothingRunning) {
    if (!windows_build()) {
        GTEST_SKIP() << "Windows only: Hardening.SignalEndsTheHookAndEveryProcessItStarted checks "
                        "POSIX builds by process id";
    }
    scenario_file("conversation-log-turn.sleep", "5");
    scenario_file("conversation-log-turn.grandchild", "5");
    for (int sig : {SIGTERM, SIGINT, SIGKILL}) {
        SCOPED_TRACE(strsignal(sig));
        for (const char* file :
             {"conversation-log-turn.pids", "conversation-log-turn.woke", "grandchild.log"}) {
            fs::remove(scenario_ / file);
        }
        const RunOptions options = {
            .stdin_data = R"({"prompt": "hi"})",
            .signal = SignalAt{sig, scenario_ / "conversation-log-turn.pids", false}};
        const auto start = std::chrono::steady_clock::now();
        const HookRun r = run({"hooks", "log-conversation", "--type", "user"}, options);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "");
        // Past the moment either would have woken, neither has left its mark.
        std::this_thread::sleep_until(start + 6s);
        EXPECT_FALSE(fs::exists(scenario_ / "conversation-log-turn.woke")) << "the child lived on";
        EXPECT_FALSE(fs::exists(scenario_ / "grandchild.log")) << "the grandchild lived on";
    }
}

}  // namespace
}  // namespace e2e
