// Hostile repositories and a hostile environment: signals, links and FIFOs where files belong,
// PATH entries that point into the repository, children that flood or cannot be waited for.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>

#include "../gone_soon.hpp"
#include "harness.hpp"

namespace e2e {
namespace {

using namespace std::chrono_literals;

class Hardening : public HookTest {
  protected:
    HookRun log_prompt(const std::string& prompt_json, RunOptions options = {}) {
        options.stdin_data = R"({"session_id": "s1", "prompt": )" + prompt_json + "}";
        return run({"hooks", "log-conversation", "--type", "user"}, options);
    }
};

// The agent's kill or Ctrl-C reaches the hook but not its child, which leads a group of its own:
// the hook must take the child's group down before it dies of the signal. SIGKILL leaves the
// hook no say: the child, told of its parent's death, must go within a second all the same.
TEST_F(Hardening, SignalEndsTheHookAndEveryProcessItStarted) {
    if (windows_build()) {
        GTEST_SKIP() << "POSIX signals and process ids (HostCalls.StoppedHookLeavesNothingRunning "
                        "covers the Windows build)";
    }
    scenario_file("conversation-log-turn.sleep", "30");
    scenario_file("conversation-log-turn.grandchild", "30");
    const fs::path pids = scenario_ / "conversation-log-turn.pids";
    const struct {
        int sig;
        bool grandchild_goes;  // SIGKILL reaches the child only
    } rows[] = {{SIGTERM, true}, {SIGINT, true}, {SIGKILL, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(strsignal(row.sig));
        fs::remove(pids);
        // kill -9 names the hook alone; the others reach its whole group, as Ctrl-C does.
        const HookRun r =
            log_prompt(R"("hi")", {.signal = SignalAt{row.sig, pids, row.grandchild_goes}});
        EXPECT_EQ(r.signal, row.sig);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "");
        pid_t child = 0, grandchild = 0;
        std::ifstream(pids) >> child >> grandchild;
        ASSERT_GT(child, 0);
        ASSERT_GT(grandchild, 0);
        EXPECT_TRUE(gone_soon(child, 1s)) << "child " << child;
        if (row.grandchild_goes) {
            EXPECT_TRUE(gone_soon(grandchild)) << "grandchild " << grandchild;
        }
        ::kill(child, SIGKILL);  // whatever a failure left behind
        ::kill(grandchild, SIGKILL);
    }
}

// Parented by a program that ignores SIGCHLD, the hook would lose its children's exit status.
TEST_F(Hardening, IgnoredSigchldDoesNotTurnAFailedQueryIntoAnAnswer) {
    write_file(repo_ / "a.py", "");
    const RunOptions options = {
        .stdin_data = input_with_path("windsurf", (repo_ / "a.py").string()),
        .ignore_sigchld = true};
    answer("query-understand-recall", R"({"found": true})", 1);
    expect_clean(run({"hooks", "check-cache", "--agent", "windsurf"}, options), "");
    answer("query-understand-recall", R"({"found": true})", 0);
    expect_clean(
        run({"hooks", "check-cache", "--agent", "windsurf"}, options),
        "Cached understanding exists for `a.py` \u2014 consider `understand(action=\"recall\", "
        "target=\"a.py\")` before reading the full file (saves tokens).\n");
}

// A child that writes without end costs a few MiB at most: a kept answer is cut off at its cap
// (a failed query), output nobody reads is not kept at all.
TEST_F(Hardening, FloodingChildKeepsTheHookSmall) {
    write_file(repo_ / "a.py", "");
    // On each stream: more than the memory ceiling below, and still quick through Wine's pipes.
    const std::string flood = std::to_string(80 << 20);
    scenario_file("query-understand-recall.flood", flood);
    scenario_file("conversation-log-turn.flood", flood);
    answer("conversation-log-turn", "", 0);
    const struct {
        std::vector<std::string> args;
        std::string input;
        std::vector<std::string> debug;
    } rows[] = {
        {{"hooks", "check-cache", "--agent", "windsurf"},
         input_with_path("windsurf", (repo_ / "a.py").string()),
         {"cmd_hooks called: hook_cmd=check-cache",
          "_run_query_json failed: command 'orvane-tamblo query understand --action=recall "
          "--target=a.py' wrote more than 4 MiB to standard output",
          "hook check-cache returned rc=0"}},
        {{"hooks", "log-conversation", "--type", "user"},
         R"({"prompt": "hi"})",
         {"cmd_hooks called: hook_cmd=log-conversation", "hook log-conversation returned rc=0"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.args[1]);
        fs::remove(logs_ / "hook_debug.log");
        const HookRun r = run(row.args, {.stdin_data = row.input});
        expect_clean(r, "");
        EXPECT_LT(r.peak_rss_kib, 64 * 1024);
        EXPECT_EQ(debug_messages(), row.debug);
    }
}

// Such an argument cannot reach a program whole; a shortened one would be a different turn.
TEST_F(Hardening, NulInAnArgumentEndsThroughTheGuard) {
    for (const auto& [type, input] : {std::pair{"user", R"({"prompt": "a\u0000b"})"},
                                      std::pair{"tool", R"({"tool_name": "Re\u0000ad"})"}}) {
        SCOPED_TRACE(input);
        expect_error(run({"hooks", "log-conversation", "--type", type}, {.stdin_data = input}),
                     "orvane-tamblo hook log-conversation error: cannot run orvane-tamblo: an "
                     "argument holds a NUL character\n",
                     0);
        EXPECT_TRUE(host_calls().empty());
    }
}

// The working directory is the repository's: an empty or relative PATH entry must not make the
// hook run a program the repository ships.
TEST_F(Hardening, HostIsNeverTakenFromTheRepository) {
    const fs::path marker = root_ / "repository program ran";
    for (const fs::path& dir : {repo_, repo_ / "bin"}) {
        fs::create_directories(dir);
        write_file(dir / "orvane-tamblo", "#!/bin/sh\ntouch '" + marker.string() + "'\n");
        fs::permissions(dir / "orvane-tamblo", fs::perms::owner_all);
        if (windows_build()) {  // a program the fake host's call log would show
            fs::copy_file(fs::path(fake_host_dir()) / "orvane-tamblo.exe",
                          dir / "orvane-tamblo.exe");
        }
    }
    // Passed over as well: a file that may not be run, and a directory, of the program's name.
    fs::create_directories(root_ / "plain");
    write_file(root_ / "plain/orvane-tamblo", "#!/bin/sh\ntouch '" + marker.string() + "'\n");
    fs::create_directories(root_ / "dir" /
                           (windows_build() ? "orvane-tamblo.exe" : "orvane-tamblo"));
    const std::string unusable = (root_ / "plain").string() + ":" + (root_ / "dir").string() + ":";
    // Under Wine the system's text for a missing file is its own.
    const std::string not_found =
        "hook_log_conversation subprocess failed: could not start orvane-tamblo: " +
        std::string(windows_build() ? "File not found" : "No such file or directory");
    const struct {
        std::string path;
        bool host_found;
    } rows[] = {
        {"", false},
        {"/usr/bin:/bin:", false},
        {":/usr/bin", false},
        {".:/usr/bin", false},
        {"bin:/usr/bin", false},
        {"bin:" + fake_host_dir(), true},
        {unusable + "/usr/bin", false},
        {unusable + fake_host_dir() + "/", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("PATH=" + row.path);
        forget_runs();
        expect_clean(log_prompt(R"("hi")", {.env = {{"PATH", row.path}}}), "");
        EXPECT_FALSE(fs::exists(marker));
        EXPECT_EQ(host_calls().size(), row.host_found ? 1u : 0u);
        std::vector<std::string> expected = {"cmd_hooks called: hook_cmd=log-conversation",
                                             "hook log-conversation returned rc=0"};
        if (!row.host_found) expected.insert(expected.begin() + 1, not_found);
        EXPECT_EQ(debug_messages(), expected);
    }
}

// Logs are appended to regular files only: a FIFO, with or without a reader, is passed over at
// once and gets nothing.
TEST_F(Hardening, LogThatIsAFifoIsSkipped) {
    for (const char* name : {"hook_debug.log", "orvane-tamblo.log"}) {
        ASSERT_EQ(::mkfifo((logs_ / name).c_str(), 0644), 0);
    }
    for (bool reader : {false, true}) {
        SCOPED_TRACE(reader ? "with a reader" : "without a reader");
        const int fd =
            reader ? ::open((logs_ / "hook_debug.log").c_str(), O_RDONLY | O_NONBLOCK) : -1;
        const RunOptions options = {.env = {{"ORVANE_TAMBLO_LOG_LEVEL", "debug"}},
                                    .limit_seconds = 10};
        expect_clean(run({"hooks", "save-compact", "--agent", "windsurf"}, options),
                     kCompactText + "\n");
        if (fd >= 0) {
            char buf[16];
            EXPECT_LE(::read(fd, buf, sizeof buf), 0);
            ::close(fd);
        }
    }
}

// The repository decides what its brief is, but not which of the user's files reaches the model:
// only a regular file inside the repository is read, and only its first 64 KiB.
TEST_F(Hardening, BriefComesOnlyFromARegularFileInsideTheRepository) {
    const fs::path dir = repo_ / ".orvane-tamblo";
    const std::string real_root = fs::canonical(root_).string();
    write_file(root_ / "home/id_rsa", "SECRET KEY");
    fs::create_directories(root_ / "elsewhere");
    write_file(root_ / "elsewhere/brief.md", "SECRET BRIEF");
    fs::create_directories(repo_ / "docs");
    write_file(repo_ / "docs/brief.txt", "Inside");
    const std::string a64k(65536, 'a');
    const std::string built_in = "(built-in)";
    const struct {
        const char* name;
        std::function<void()> make;
        std::string brief;  // built_in: the built-in brief
        std::string note;   // the debug line between the dispatcher's two, if any
    } rows[] = {
        {"link to a file outside",
         [&] { fs::create_symlink(root_ / "home/id_rsa", dir / "brief.md"); }, built_in,
         ".orvane-tamblo/brief.md leads outside the repository, to " +
             native(real_root + "/home/id_rsa") + "; using the built-in brief"},
        {"directory linked outside",
         [&] {
             fs::remove(dir);
             fs::create_directory_symlink(root_ / "elsewhere", dir);
         },
         built_in,
         ".orvane-tamblo/brief.md leads outside the repository, to " +
             native(real_root + "/elsewhere/brief.md") + "; using the built-in brief"},
        {"FIFO", [&] { ::mkfifo((dir / "brief.md").c_str(), 0644); }, built_in,
         ".orvane-tamblo/brief.md is not a regular file; using the built-in brief"},
        {"link inside the repository",
         [&] { fs::create_symlink("../docs/brief.txt", dir / "brief.md"); }, "Inside", ""},
        {"64 KiB exactly", [&] { write_file(dir / "brief.md", a64k); }, a64k, ""},
        // The two bytes of the e straddle the limit: the cut falls before them.
        {"over 64 KiB", [&] { write_file(dir / "brief.md", a64k.substr(1) + "\u00e9 and more"); },
         a64k.substr(1),
         ".orvane-tamblo/brief.md holds more than 65536 bytes; using its first 65535"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(dir);
        fs::create_directories(dir);
        row.make();
        fs::remove(logs_ / "hook_debug.log");
        const HookRun r = hook("session-start", "{}", {"--agent", "windsurf"});
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        if (row.brief == built_in) {
            EXPECT_TRUE(r.out.starts_with(
                "# orvane-tamblo\n\norvane-tamblo's AI cache keeps what earlier sessions"))
                << r.out;
            EXPECT_TRUE(r.out.ends_with(".\n\n" + kWarning + "\n")) << r.out;
            EXPECT_EQ(r.out.find("SECRET"), std::string::npos);
        } else {
            EXPECT_EQ(r.out, row.brief + "\n\n" + kWarning + "\n");
        }
        std::vector<std::string> expected = {"cmd_hooks called: hook_cmd=session-start",
                                             "hook session-start returned rc=0"};
        if (!row.note.empty())
            expected.insert(expected.begin() + 1, "hook_session_start: " + row.note);
        EXPECT_EQ(debug_messages(), expected);
    }
}

}  // namespace
}  // namespace e2e
