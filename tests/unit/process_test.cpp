#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/process.hpp"

using platform::run_process;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

// Each test (ctest runs each in a process of its own) gets a directory of its own.
class ProcessTest : public ::testing::Test {
  protected:
    void SetUp() override { std::filesystem::create_directories(dir_); }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    const std::filesystem::path dir_ = "/tmp/orvane-process-" + std::to_string(getpid());
};

// True once `pid` no longer runs: gone, or a zombie waiting for whoever inherited it.
bool gone_soon(pid_t pid) {
    for (auto until = Clock::now() + 1s; Clock::now() < until; std::this_thread::sleep_for(20ms)) {
        std::string line;
        if (!std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/stat"), line))
            return true;
        if (line.compare(line.rfind(')') + 1, 3, " Z ") == 0) return true;
    }
    return false;
}

TEST_F(ProcessTest, ReportsExitStatusAndStandardOutputOnly) {
    const struct {
        const char* name;
        std::vector<std::string> argv;
        int exit_code;
        std::string out;
    } cases[] = {
        {"exit status", {"sh", "-c", "printf out; printf err >&2; exit 3"}, 3, "out"},
        {"killed by a signal", {"sh", "-c", "printf x; kill -9 $$"}, -1, "x"},
        // No shell: every argument reaches the program byte for byte, one argument each.
        {"arguments verbatim",
         {"printf", "<%s>", "a b;$HOME", "it's \"quoted\"", "line\nfeed", "", "*`id`|"},
         0,
         "<a b;$HOME><it's \"quoted\"><line\nfeed><><*`id`|>"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto result = run_process(c.argv, 2s);
        EXPECT_EQ(result.exit_code, c.exit_code);
        EXPECT_EQ(result.out, c.out);
    }
}

// A reader that drains one stream to its end before the other deadlocks once the other pipe
// fills up, whichever stream it starts with. Discarded output is read just the same.
TEST_F(ProcessTest, DrainsMegabytesOnBothStreamsTogether) {
    const std::vector<std::string> argv = {
        "sh", "-c", "head -c 3000000 /dev/zero >&2; head -c 4000000 /dev/zero; exit 7"};
    const auto kept = run_process(argv, 10s);
    EXPECT_EQ(kept.exit_code, 7);
    EXPECT_EQ(kept.out.size(), 4000000u);
    const auto discarded = run_process(argv, 10s, platform::ChildOutput::discard);
    EXPECT_EQ(discarded.exit_code, 7);
    EXPECT_EQ(discarded.out, "");
}

// Whenever the run ends early (the deadline, too much output) the whole process group dies, the
// child is reaped and reading stops, even when a grandchild still holds the pipes. PIDFILE
// receives the child's pid, then any others.
TEST_F(ProcessTest, KillsTheProcessGroupWhenTheRunEndsEarly) {
    enum Ending { kTimeout, kTooMuch };
    const struct {
        const char* name;
        std::string script;
        Ending ending;
    } cases[] = {
        {"sleeps past the deadline", "echo $$ > PIDFILE; exec sleep 30", kTimeout},
        {"writes errors without end", "echo $$ > PIDFILE; exec yes >&2", kTimeout},
        {"grandchild holds the pipes", "sleep 30 & echo $$ $! > PIDFILE; echo hi", kTimeout},
        {"writes output without end", "sleep 30 & echo $$ $! > PIDFILE; exec yes", kTooMuch},
    };
    for (auto c : cases) {
        SCOPED_TRACE(c.name);
        const auto pidfile = (dir_ / c.name).string();
        c.script.replace(c.script.find("PIDFILE"), 7, "'" + pidfile + "'");
        const auto start = Clock::now();
        try {
            run_process({"sh", "-c", c.script}, 1s);
            ADD_FAILURE() << "no failure";
        } catch (const platform::ProcessTimeout&) {
            EXPECT_EQ(c.ending, kTimeout);
        } catch (const platform::ProcessOutputTooLarge& e) {
            EXPECT_EQ(c.ending, kTooMuch);
            EXPECT_NE(std::string(e.what()).find("wrote more than 4 MiB"), std::string::npos);
        }
        EXPECT_LT(Clock::now() - start, 4s);  // a hang guard, not a timing assertion

        std::ifstream in(pidfile);
        pid_t child = 0, grandchild = 0;
        ASSERT_TRUE(in >> child);
        errno = 0;
        EXPECT_EQ(waitpid(child, nullptr, WNOHANG), -1) << "child not reaped";
        EXPECT_EQ(errno, ECHILD);
        if (in >> grandchild) {
            EXPECT_TRUE(gone_soon(grandchild)) << "grandchild " << grandchild;
        }
    }
}

// With SIGCHLD ignored the system reaps the child itself and its status is lost: that must be
// a failure, never a success.
TEST_F(ProcessTest, AnUnknownExitStatusIsAFailure) {
    const auto previous = signal(SIGCHLD, SIG_IGN);
    EXPECT_THROW(run_process({"sh", "-c", "echo '{}'; exit 1"}, 2s), platform::ProcessWaitError);
    signal(SIGCHLD, previous);
}

// Such an argument cannot reach a program whole; it is refused, not shortened, and not as a
// failure of the command (std::invalid_argument is no ProcessError).
TEST_F(ProcessTest, ArgumentWithNulIsRefusedBeforeStarting) {
    const auto marker = dir_ / "started";
    const std::vector<std::string> argv = {"sh", "-c", "touch '" + marker.string() + "'",
                                           std::string("a\0b", 3)};
    EXPECT_THROW(run_process(argv, 2s), std::invalid_argument);
    EXPECT_FALSE(std::filesystem::exists(marker));
}

// Only absolute PATH entries are searched: an empty or relative one would mean the working
// directory. A name with a slash is taken as it is.
TEST_F(ProcessTest, FindsProgramsThroughAbsolutePathEntriesOnly) {
    for (const char* sub : {"bin", "rel", "plain"}) {
        std::filesystem::create_directories(dir_ / sub);
        std::ofstream(dir_ / sub / "prog") << "#!/bin/sh\n";
    }
    for (const char* sub : {"bin", "rel"}) {
        std::filesystem::permissions(dir_ / sub / "prog", std::filesystem::perms::owner_all);
    }
    std::filesystem::create_directories(dir_ / "dir/prog");  // a directory is no program
    std::ofstream(dir_ / "prog") << "#!/bin/sh\n";           // in the working directory
    std::filesystem::permissions(dir_ / "prog", std::filesystem::perms::owner_all);

    const std::string bin = (dir_ / "bin").string();
    const std::string found = bin + "/prog";
    const struct {
        std::optional<std::string> path;
        std::string name;
        std::optional<std::string> result;
    } cases[] = {
        {bin, "prog", found},
        {bin + "/", "prog", found},
        {"", "prog", std::nullopt},
        {":", "prog", std::nullopt},
        {"rel:.:", "prog", std::nullopt},
        {"rel:" + bin, "prog", found},
        {(dir_ / "plain").string() + ":" + (dir_ / "dir").string() + ":" + bin, "prog", found},
        {bin, "missing", std::nullopt},
        {std::nullopt, "sh", "/bin/sh"},
        {"", "rel/prog", "rel/prog"},
        {"", "plain/prog", std::nullopt},
        {bin, "", std::nullopt},
    };
    const auto saved_cwd = std::filesystem::current_path();
    std::filesystem::current_path(dir_);
    const char* saved_path = getenv("PATH");
    const std::string saved = saved_path ? saved_path : "";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path.value_or("unset") + " " + c.name);
        if (c.path) {
            setenv("PATH", c.path->c_str(), 1);
        } else {
            unsetenv("PATH");
        }
        EXPECT_EQ(platform::find_program(c.name), c.result);
    }
    setenv("PATH", saved.c_str(), 1);
    std::filesystem::current_path(saved_cwd);
}

TEST_F(ProcessTest, StartFailuresAreNotTimeouts) {
    const auto not_executable = (dir_ / "not-executable").string();
    std::ofstream(not_executable) << "#!/bin/sh\necho ran\n";
    for (const std::string& program : {std::string("orvane-no-such-program"), not_executable}) {
        try {
            run_process({program, "--flag"}, 300ms);
            ADD_FAILURE() << program << " started";
        } catch (const platform::ProcessStartError& e) {
            EXPECT_NE(std::string(e.what()).find(program), std::string::npos) << e.what();
        }
    }
}

// The child starts with our standard input and with SIGPIPE at its default even when we ignore
// it: ignored, `yes` would see EPIPE and exit 1 with a complaint instead of dying of SIGPIPE
// (141), and a less careful writer would loop until the deadline.
TEST_F(ProcessTest, ChildInheritsStdinButNotAnIgnoredSigpipe) {
    std::ofstream(dir_ / "stdin.txt") << "from our stdin\n";
    const int saved = dup(STDIN_FILENO);
    const int fd = open((dir_ / "stdin.txt").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    dup2(fd, STDIN_FILENO);
    close(fd);
    const auto previous = signal(SIGPIPE, SIG_IGN);
    const auto status_file = (dir_ / "yes-status").string();
    const auto result =
        run_process({"sh", "-c", "cat; { yes; echo $? > '" + status_file + "'; } | head -c 6"}, 2s);
    signal(SIGPIPE, previous);
    dup2(saved, STDIN_FILENO);
    close(saved);
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "from our stdin\ny\ny\ny\n");
    std::string yes_status;
    EXPECT_TRUE(std::getline(std::ifstream(status_file), yes_status));
    EXPECT_EQ(yes_status, "141");
}

}  // namespace
