#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "../gone_soon.hpp"
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

TEST_F(ProcessTest, ReportsExitStatusAndStandardOutputOnly) {
    const struct {
        const char* name;
        std::vector<std::string> argv;
        int exit_code;
        std::string out;
    } cases[] = {
        {"exit status", {"sh", "-c", "printf out; printf err >&2; exit 3"}, 3, "out"},
        {"killed by a signal", {"sh", "-c", "printf x; kill -9 $$"}, -1, "x"},
        // Both pipes drained together: either one alone would fill up and deadlock.
        {"megabytes on both streams",
         {"sh", "-c", "head -c 3000000 /dev/zero >&2; head -c 4000000 /dev/zero; exit 7"},
         7,
         std::string(4000000, '\0')},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto result = run_process(c.argv, 10s);
        EXPECT_EQ(result.exit_code, c.exit_code);
        EXPECT_EQ(result.out, c.out);
    }
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

}  // namespace
