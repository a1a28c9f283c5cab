#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace e2e {

namespace fs = std::filesystem;

struct HookRun {
    std::string out;        // standard output, bytes
    std::string err;        // standard error, bytes
    int status = -1;        // exit status, or -1 when ended by a signal
    int signal = 0;         // the signal that ended it, if any
    long peak_rss_kib = 0;  // peak resident memory of the hook or of any child it waited for
    bool hung = false;      // killed at the run's limit
};

// A signal sent to the hook's process group (as an agent's Ctrl-C reaches it) once `when_exists`
// appears, or to the hook alone (as an agent's kill of the hook's process).
struct SignalAt {
    int signal;
    fs::path when_exists;
    bool whole_group = true;
};

struct RunOptions {
    std::string stdin_data{};
    bool stdin_never_closes = false;  // stdin is a pipe the test keeps open
    bool close_stdout = false;        // run with standard output closed (>&-)
    // Overrides of the base environment; nullopt removes the variable.
    std::map<std::string, std::optional<std::string>> env{};
    std::optional<fs::path> cwd{};  // default: the fixture's repository directory
    bool ignore_sigchld = false;    // start the hook with SIGCHLD ignored
    std::optional<SignalAt> signal{};
    int limit_seconds = 60;    // then the hook is killed and the test fails
    long file_size_limit = 0;  // bytes; a write past them kills the run (SIGXFSZ), as mid-write
    bool real_host = false;    // the build, not the fake host, first on PATH
    std::string program{};     // another program of the build to run instead, by path
};

// The program under test is ORVANE_TEST_BINARY (default: this build's), started through
// ORVANE_TEST_LAUNCHER when that is set ("wine" for the Windows build), with the fake host of
// ORVANE_TEST_FAKE_HOST_DIR (default: this build's) first on its PATH.
bool windows_build();
const std::string& binary();
const std::string& fake_host_dir();

fs::path wine_drive_c();  // the Wine prefix's C: drive
// `path` as the program under test sees it: unchanged here, under Wine "Z:\tmp\x" for /tmp/x.
std::string native(const fs::path& path);

class HookTest;

// A run the test talks to line by line, as an agent talks to the MCP server: its standard input
// stays open until end().
class Conversation {
  public:
    void send(const std::string& line);  // the line and a line feed
    // The next line of standard output without its line feed; fails the test and answers "" when
    // none comes within 60 seconds.
    std::string receive();
    HookRun end();  // closes its standard input and waits for it to exit

  private:
    friend class HookTest;
    HookTest* test_ = nullptr;
    RunOptions options_;
    pid_t pid_ = -1;
    int in_ = -1, out_ = -1, err_ = -1;
    std::string pending_;  // read beyond the last line received
};

// A temporary repository, log directory and fake-host scenario for each test. Hooks run as
// the program under test by absolute path, with the fake host first on PATH.
class HookTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    HookRun run(const std::vector<std::string>& args, const RunOptions& options = {});
    // `count` runs started together, their results in order.
    std::vector<HookRun> run_together(int count, const std::vector<std::string>& args,
                                      const RunOptions& options = {});
    // Runs of each argument list in `each`, started together.
    std::vector<HookRun> run_together(const std::vector<std::vector<std::string>>& each,
                                      const RunOptions& options = {});
    HookRun hook(const std::string& name, const std::string& stdin_data,
                 const std::vector<std::string>& extra_args = {});
    Conversation converse(const std::vector<std::string>& args, RunOptions options = {});

    // Makes the fake host answer calls with `key` (see fake_host.cpp).
    void answer(const std::string& key, const std::string& stdout_text, int rc = 0);
    void scenario_file(const std::string& name, const std::string& content);

    // Every call the fake host received, each as its argument vector without argv[0].
    std::vector<std::vector<std::string>> host_calls() const;
    void forget_runs() const;  // the host calls and the debug log so far

    std::string debug_log() const;  // hook_debug.log, "" when missing
    std::string host_log() const;   // orvane-tamblo.log, "" when missing
    // The debug-log lines without their "HH:MM:SS " prefix.
    std::vector<std::string> debug_messages() const;
    // A debug log of one run: its first and last lines and, unless `line` is empty, that line
    // between them (its start only, when it ends in ": ").
    void expect_debug_line(const std::string& line) const;

    fs::path root_;      // everything of this test
    fs::path repo_;      // the working directory of hook runs
    fs::path logs_;      // ORVANE_TAMBLO_LOG_DIR
    fs::path scenario_;  // FAKE_HOST_SCENARIO

  private:
    friend class Conversation;
    struct Started {
        pid_t pid;
        int out, err;
        int stdin_write;  // -1 unless stdin never closes
    };
    std::vector<Started> start(const std::vector<std::vector<std::string>>& each,
                               const RunOptions& options);
    HookRun finish(const Started& started, const RunOptions& options);
};

// Texts several hooks write, as Windsurf's plain text shows them.
inline const std::string kWarning =  // the cache section with the service down
    "## AI Cache Warning\n\n[!] orvane-tamblo daemon not responding. Run `orvane-tamblo serve` or "
    "any orvane-tamblo command to auto-start.";
inline const std::string kNothingCached =
    "## AI Cache Status\n\nNo cached understanding available. Start with:\n"
    "- `explore(query=\"...\")` to search the codebase\n"
    "- `understand(action='store')` after analyzing files to cache insights\n"
    "- `remember(action='store', key='...', value='...')` for key decisions";
inline const std::string kCompactJson =  // save-compact's notice as a JSON string
    "\"## Context Compaction Imminent\\n\\nBefore context is reduced, persist important "
    "insights:\\n- `understand(action='store')` for file/module analysis\\n- "
    "`remember(action='store', key='...', value='...')` for decisions and insights\"";
inline const std::string kCompactText =  // save-compact's notice
    "## Context Compaction Imminent\n\nBefore context is reduced, persist important insights:\n"
    "- `understand(action='store')` for file/module analysis\n"
    "- `remember(action='store', key='...', value='...')` for decisions and insights";

// Each agent's hook input naming `path` in the member that agent uses.
std::string input_with_path(const std::string& agent, const std::string& path);
std::string json_string(const std::string& text);  // quoted and escaped

// One line on standard error from the dispatcher's guard, status 0, nothing on standard output.
void expect_guarded(const HookRun& run, const std::string& hook);
// Exactly `out` on standard output, nothing on standard error, status 0.
void expect_clean(const HookRun& run, const std::string& out);
// Nothing on standard output, exactly `err` on standard error, and `status`.
void expect_error(const HookRun& run, const std::string& err, int status);

std::string read_file(const fs::path& path);
void write_file(const fs::path& path, const std::string& content);

}  // namespace e2e
