#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/process.hpp"

using platform::ProcessStartError;
using platform::ProcessTimeout;
using platform::run_process;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

class ProcessTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char tmpl[] = "/tmp/orvane-process-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    std::filesystem::path dir_;
};

// Puts back process-wide state (PATH, a signal, fd 0) even when the case fails half-way.
struct Restore {
    std::function<void()> undo;
    ~Restore() { undo(); }
};

// True once `pid` no longer runs: gone, or a zombie waiting for whoever inherited it.
bool gone_soon(pid_t pid) {
    for (auto until = Clock::now() + 1s; Clock::now() < until; std::this_thread::sleep_for(20ms)) {
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        std::string line;
        if (!std::getline(stat, line)) return true;
        const auto paren = line.rfind(')');
        if (paren != std::string::npos && line.compare(paren + 1, 3, " Z ") == 0) return true;
    }
    return false;
}

struct RunCase {
    const char* name;
    std::vector<std::string> argv;
    int exit_code;
    std::string out, err;
};

TEST_F(ProcessTest, ReportsExitStatusAndBothStreamsSeparately) {
    const std::vector<RunCase> cases = {
        {"exit status", {"sh", "-c", "printf out; printf err >&2; exit 3"}, 3, "out", "err"},
        {"success, silent", {"true"}, 0, "", ""},
        {"killed by SIGKILL", {"sh", "-c", "printf x; kill -9 $$"}, -1, "x", ""},
        {"killed by SIGTERM", {"sh", "-c", "kill -TERM $$"}, -1, "", ""},
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

// A reader that drains one stream before the other deadlocks once the other pipe fills up.
TEST_F(ProcessTest, DrainsMegabytesOnBothStreamsTogether) {
    for (const char* script : {"head -c 4000000 /dev/zero; head -c 3000000 /dev/zero >&2",
                               "head -c 3000000 /dev/zero >&2; head -c 4000000 /dev/zero"}) {
        SCOPED_TRACE(script);
        const auto result = run_process({"sh", "-c", script}, 10s);
        EXPECT_EQ(result.exit_code, 0);
        EXPECT_EQ(result.out.size(), 4000000u);
        EXPECT_EQ(result.err.size(), 3000000u);
    }
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
        EXPECT_THROW(run_process({"sh", "-c", script}, 300ms), ProcessTimeout);
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
    const auto not_executable = dir_ / "orvane-not-executable";
    std::ofstream(not_executable) << "#!/bin/sh\necho ran\n";
    std::filesystem::permissions(
        not_executable, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    const std::string old_path = std::getenv("PATH") ? std::getenv("PATH") : "";
    setenv("PATH", (dir_.string() + ":" + old_path).c_str(), 1);
    Restore restore{[&] { setenv("PATH", old_path.c_str(), 1); }};

    for (const char* program : {"orvane-no-such-program", "orvane-not-executable"}) {
        SCOPED_TRACE(program);
        try {
            run_process({program, "--flag"}, 300ms);
            ADD_FAILURE() << "started";
        } catch (const ProcessStartError& e) {
            EXPECT_NE(std::string(e.what()).find(program), std::string::npos) << e.what();
        }
    }
    EXPECT_THROW(run_process({}, 300ms), ProcessStartError);
}

// With SIGPIPE ignored in the child, `yes` sees EPIPE and complains on stderr, or a less careful
// writer loops until the deadline; with the default it just dies quietly.
TEST_F(ProcessTest, ChildGetsDefaultSigpipeEvenWhenParentIgnoresIt) {
    const auto previous = signal(SIGPIPE, SIG_IGN);
    Restore restore{[&] { signal(SIGPIPE, previous); }};
    const auto result = run_process({"sh", "-c", "yes | head -c 10"}, 2s);
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "y\ny\ny\ny\ny\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(ProcessTest, InheritsStandardInput) {
    const auto input = dir_ / "stdin.txt";
    std::ofstream(input) << "from the parent's stdin\n";
    const int saved = dup(STDIN_FILENO);
    const int fd = open(input.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    dup2(fd, STDIN_FILENO);
    close(fd);
    Restore restore{[&] {
        dup2(saved, STDIN_FILENO);
        close(saved);
    }};
    const auto result = run_process({"cat"}, 2s);
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "from the parent's stdin\n");
}

}  // namespace
