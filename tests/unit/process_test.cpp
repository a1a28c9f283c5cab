#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
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

TEST_F(ProcessTest, ReportsExitStatusAndBothStreamsSeparately) {
    const struct {
        const char* name;
        std::vector<std::string> argv;
        int exit_code;
        std::string out, err;
    } cases[] = {
        {"exit status", {"sh", "-c", "printf out; printf err >&2; exit 3"}, 3, "out", "err"},
        {"killed by a signal", {"sh", "-c", "printf x; kill -9 $$"}, -1, "x", ""},
        // No shell: every argument reaches the program byte for byte, one argument each.
        {"arguments verbatim",
         {"printf", "<%s>", "a b;$HOME", "it's \"quoted\"", "line\nfeed", "", "*`id`|"},
         0,
         "<a b;$HOME><it's \"quoted\"><line\nfeed><><*`id`|>",
         ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto result = run_process(c.argv, 2s);
        EXPECT_EQ(result.exit_code, c.exit_code);
        EXPECT_EQ(result.out, c.out);
        EXPECT_EQ(result.err, c.err);
    }
}

// A reader that drains one stream to its end before the other deadlocks once the other pipe
// fills up, whichever stream it starts with.
TEST_F(ProcessTest, DrainsMegabytesOnBothStreamsTogether) {
    const auto result =
        run_process({"sh", "-c", "head -c 4000000 /dev/zero; head -c 3000000 /dev/zero >&2"}, 10s);
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out.size(), 4000000u);
    EXPECT_EQ(result.err.size(), 3000000u);
}

// At the deadline the whole process group dies, the child is reaped and reading stops, even
// when a grandchild still holds the pipes. PIDFILE receives the child's pid, then any others.
TEST_F(ProcessTest, KillsTheProcessGroupAtTheDeadline) {
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"sleeps past the deadline", "echo $$ > PIDFILE; exec sleep 30"},
        {"writes without end", "echo $$ > PIDFILE; exec yes"},
        {"grandchild holds the pipes", "sleep 30 & echo $$ $! > PIDFILE; echo hi"},
    };
    for (auto [name, script] : cases) {
        SCOPED_TRACE(name);
        const auto pidfile = (dir_ / name).string();
        script.replace(script.find("PIDFILE"), 7, "'" + pidfile + "'");
        const auto start = Clock::now();
        EXPECT_THROW(run_process({"sh", "-c", script}, 300ms), platform::ProcessTimeout);
        EXPECT_LT(Clock::now() - start, 3s);  // a hang guard, not a timing assertion

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
// it: ignored, `yes` would see EPIPE and complain on stderr, or a less careful writer would loop
// until the deadline.
TEST_F(ProcessTest, ChildInheritsStdinButNotAnIgnoredSigpipe) {
    std::ofstream(dir_ / "stdin.txt") << "from our stdin\n";
    const int saved = dup(STDIN_FILENO);
    const int fd = open((dir_ / "stdin.txt").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    dup2(fd, STDIN_FILENO);
    close(fd);
    const auto previous = signal(SIGPIPE, SIG_IGN);
    const auto result = run_process({"sh", "-c", "cat; yes | head -c 6"}, 2s);
    signal(SIGPIPE, previous);
    dup2(saved, STDIN_FILENO);
    close(saved);
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "from our stdin\ny\ny\ny\n");
    EXPECT_EQ(result.err, "");
}

}  // namespace
