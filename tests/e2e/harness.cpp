#include "harness.hpp"

#include "support/json.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

extern char** environ;

namespace e2e {

std::string read_file(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write_file(const fs::path& path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

std::string json_string(const std::string& text) {
    std::string quoted;
    support::append_json_string(quoted, text);
    return quoted;
}

std::string input_with_path(const std::string& agent, const std::string& path) {
    const std::string quoted = json_string(path);
    if (agent == "windsurf") return "{\"tool_info\": {\"file_path\": " + quoted + "}}";
    if (agent == "copilot") return "{\"toolArgs\": " + quoted + "}";
    if (agent == "cursor") return "{\"filePath\": " + quoted + "}";
    return "{\"tool_input\": {\"file_path\": " + quoted + "}}";
}

namespace {

std::string env_or(const char* name, const char* fallback) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

// The launcher's path, looked up in this process's PATH when it is given as a bare name.
const std::string& launcher() {
    static const std::string path = [] {
        const std::string name = env_or("ORVANE_TEST_LAUNCHER", "");
        if (name.empty() || name.find('/') != std::string::npos) return name;
        std::istringstream dirs(env_or("PATH", "/usr/bin:/bin"));
        for (std::string dir; std::getline(dirs, dir, ':');) {
            if (::access((dir + "/" + name).c_str(), X_OK) == 0) return dir + "/" + name;
        }
        return name;
    }();
    return path;
}

// Under Wine, the environment of the program under test: Wine builds the program's PATH from
// WINEPATH and its own system directories, and absolute paths are named on Wine's drives.
void adapt_for_wine(std::map<std::string, std::string>& env) {
    std::string wine_path;
    std::istringstream dirs(env["PATH"]);
    for (std::string dir; std::getline(dirs, dir, ':');) {
        wine_path += (wine_path.empty() ? "" : ";") + (dir.starts_with('/') ? native(dir) : dir);
    }
    env["WINEPATH"] = wine_path;
    env["PATH"] = "/usr/local/bin:/usr/bin:/bin";
    for (auto& [name, value] : env) {
        if (name != "HOME" && name != "PATH" && value.starts_with('/')) value = native(value);
    }
    for (const char* name :
         {"WINEPREFIX", "WINEDEBUG", "WINESERVER", "WINELOADER", "WINEDLLOVERRIDES"}) {
        if (const char* value = std::getenv(name)) env[name] = value;
    }
}

}  // namespace

const std::string& binary() {
    static const std::string path = env_or("ORVANE_TEST_BINARY", ORVANE_BINARY);
    return path;
}

const std::string& fake_host_dir() {
    static const std::string path = env_or("ORVANE_TEST_FAKE_HOST_DIR", FAKE_HOST_DIR);
    return path;
}

fs::path wine_drive_c() {
    return fs::path(env_or("WINEPREFIX", (env_or("HOME", "") + "/.wine").c_str())) / "drive_c";
}

bool windows_build() {
    return binary().ends_with(".exe");
}

std::string native(const fs::path& path) {
    std::string text = path.string();
    if (!windows_build()) return text;
    // Wine shows its prefix's drive_c as C: and the whole file system as Z:.
    const std::string drive_c = wine_drive_c().string();
    std::string drive = "Z:";
    if (text == drive_c || text.starts_with(drive_c + "/")) {
        drive = "C:";
        text = text.substr(drive_c.size());
    }
    std::replace(text.begin(), text.end(), '/', '\\');
    return drive + (text.empty() ? "\\" : text);
}

void expect_guarded(const HookRun& run, const std::string& hook) {
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.signal, 0);
    EXPECT_EQ(run.err.rfind("orvane-tamblo hook " + hook + " error: ", 0), 0u) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
}

void expect_clean(const HookRun& run, const std::string& out) {
    EXPECT_EQ(run.out, out);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

void expect_error(const HookRun& run, const std::string& err, int status) {
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, err);
    EXPECT_EQ(run.status, status);
}

void HookTest::SetUp() {
    char pattern[] = "/tmp/orvane-e2e-XXXXXX";
    root_ = ::mkdtemp(pattern);
    repo_ = root_ / "repo";
    logs_ = root_ / "logs";
    scenario_ = root_ / "scenario";
    for (const auto& dir : {repo_, logs_, scenario_, root_ / "home"}) fs::create_directories(dir);
}

void HookTest::TearDown() {
    std::error_code ignored;
    fs::permissions(root_, fs::perms::owner_all, fs::perm_options::add, ignored);
    fs::remove_all(root_, ignored);
}

namespace {

// Under a burst of simultaneous starts Wine now and then fails to start a program without a word:
// status 1 and nothing on either stream, which the program itself never gives (its one status 1
// comes with the usage line); more rarely the start hangs. Such a run is started again, once.
bool wine_failed_to_start(const HookRun& r) {
    return windows_build() && (r.status == 1 || r.hung) && r.out.empty() && r.err.empty();
}

void report_hang(const HookRun& r, const RunOptions& options) {
    if (r.hung) ADD_FAILURE() << "hook run did not finish within " << options.limit_seconds << " s";
}

}  // namespace

HookRun HookTest::run(const std::vector<std::string>& args, const RunOptions& options) {
    return run_together(1, args, options).front();
}

std::vector<HookRun> HookTest::run_together(int count, const std::vector<std::string>& args,
                                            const RunOptions& options) {
    return run_together(std::vector<std::vector<std::string>>(count, args), options);
}

std::vector<HookRun> HookTest::run_together(const std::vector<std::vector<std::string>>& each,
                                            const RunOptions& options) {
    std::vector<HookRun> results;
    for (const Started& started : start(each, options)) {
        results.push_back(finish(started, options));
    }
    for (std::size_t i = 0; i < results.size(); ++i) {
        if (wine_failed_to_start(results[i])) {
            results[i] = finish(start({each[i]}, options).front(), options);
        }
        report_hang(results[i], options);
    }
    return results;
}

std::vector<HookTest::Started> HookTest::start(const std::vector<std::vector<std::string>>& each,
                                               const RunOptions& options) {
    std::map<std::string, std::string> env = {
        {"PATH", (options.real_host ? fs::path(binary()).parent_path().string() : fake_host_dir()) +
                     ":/usr/local/bin:/usr/bin:/bin"},
        {"HOME", (root_ / "home").string()},
        {"ORVANE_TAMBLO_LOG_DIR", logs_.string()},
        {"FAKE_HOST_SCENARIO", scenario_.string()},
        {"ORVANE_HOOK_DEBUG", "1"},
        {"LANG", "C.UTF-8"},
    };
    if (const char* tz = std::getenv("TZ")) env["TZ"] = tz;
    for (const auto& [name, value] : options.env) {
        if (value) {
            env[name] = *value;
        } else {
            env.erase(name);
        }
    }
    if (windows_build()) adapt_for_wine(env);
    std::vector<std::string> env_strings;
    for (const auto& [name, value] : env) env_strings.push_back(name + "=" + value);

    std::vector<std::vector<std::string>> argv_strings;
    for (const auto& args : each) {
        std::vector<std::string>& strings = argv_strings.emplace_back();
        if (!launcher().empty()) strings.push_back(launcher());
        strings.push_back(options.program.empty() ? binary() : options.program);
        strings.insert(strings.end(), args.begin(), args.end());
    }

    // One file per run, so that runs from several threads do not share one.
    static std::atomic<int> runs{0};
    const fs::path stdin_path = root_ / ("stdin-" + std::to_string(runs++));
    write_file(stdin_path, options.stdin_data);
    // Everything the child needs is built here: between fork and exec the child may not allocate,
    // since another test thread can hold the allocator's lock at the moment of the fork.
    std::vector<std::vector<char*>> argvs;
    for (auto& strings : argv_strings) {
        std::vector<char*>& argv = argvs.emplace_back();
        for (auto& s : strings) argv.push_back(s.data());
        argv.push_back(nullptr);
    }
    std::vector<char*> envp;
    for (auto& s : env_strings) envp.push_back(s.data());
    envp.push_back(nullptr);
    const std::string cwd = (options.cwd ? *options.cwd : repo_).string();
    std::vector<Started> started;
    for (std::vector<char*>& argv : argvs) {
        int stdin_pipe[2] = {-1, -1};
        if (options.stdin_never_closes && ::pipe(stdin_pipe) != 0) throw std::runtime_error("pipe");
        int out_pipe[2], err_pipe[2];
        if (::pipe(out_pipe) != 0 || ::pipe(err_pipe) != 0) throw std::runtime_error("pipe");

        const pid_t pid = ::fork();
        if (pid == 0) {
            int in =
                options.stdin_never_closes ? stdin_pipe[0] : ::open(stdin_path.c_str(), O_RDONLY);
            ::dup2(in, 0);
            ::dup2(out_pipe[1], 1);
            ::dup2(err_pipe[1], 2);
            if (options.close_stdout) ::close(1);
            for (int fd = 3; fd < 256; ++fd) ::close(fd);
            if (::chdir(cwd.c_str()) != 0) _exit(126);
            // What an agent would leave the hook with, whatever the test runner left us with.
            for (int sig : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD, SIGXFSZ}) {
                ::signal(sig, SIG_DFL);
            }
            if (options.file_size_limit > 0) {
                const rlimit limit{static_cast<rlim_t>(options.file_size_limit),
                                   static_cast<rlim_t>(options.file_size_limit)};
                ::setrlimit(RLIMIT_FSIZE, &limit);
            }
            if (options.ignore_sigchld) ::signal(SIGCHLD, SIG_IGN);
            if (options.signal) ::setpgid(0, 0);
            ::execve(argv[0], argv.data(), envp.data());
            _exit(127);
        }
        if (options.signal) ::setpgid(pid, pid);
        ::close(out_pipe[1]);
        ::close(err_pipe[1]);
        if (options.stdin_never_closes) ::close(stdin_pipe[0]);
        started.push_back({pid, out_pipe[0], err_pipe[0], stdin_pipe[1]});
    }
    return started;
}

HookRun HookTest::finish(const Started& started, const RunOptions& options) {
    HookRun result;
    const auto now = [] { return std::chrono::steady_clock::now(); };
    const auto deadline = now() + std::chrono::seconds(options.limit_seconds);
    bool signalled = !options.signal.has_value();
    pollfd fds[2] = {{started.out, POLLIN, 0}, {started.err, POLLIN, 0}};
    std::string* sinks[2] = {&result.out, &result.err};
    int open_count = 2;
    while (open_count > 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now());
        if (left.count() <= 0) {
            ::kill(started.pid, SIGKILL);
            result.hung = true;
            break;
        }
        if (!signalled && fs::exists(options.signal->when_exists)) {
            ::kill(options.signal->whole_group ? -started.pid : started.pid,
                   options.signal->signal);
            signalled = true;
        }
        const int wait_ms = signalled ? static_cast<int>(left.count()) : 20;
        if (::poll(fds, 2, wait_ms) < 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char buf[65536];
            const ssize_t n = ::read(fds[i].fd, buf, sizeof buf);
            if (n > 0) {
                sinks[i]->append(buf, static_cast<std::size_t>(n));
            } else {
                ::close(fds[i].fd);
                fds[i].fd = -1;
                --open_count;
            }
        }
    }
    for (const auto& f : fds) {
        if (f.fd >= 0) ::close(f.fd);
    }
    int wstatus = 0;
    rusage usage{};
    ::wait4(started.pid, &wstatus, 0, &usage);
    if (started.stdin_write >= 0) ::close(started.stdin_write);
    if (WIFEXITED(wstatus)) result.status = WEXITSTATUS(wstatus);
    if (WIFSIGNALED(wstatus)) result.signal = WTERMSIG(wstatus);
    result.peak_rss_kib = usage.ru_maxrss;
    return result;
}

HookRun HookTest::hook(const std::string& name, const std::string& stdin_data,
                       const std::vector<std::string>& extra_args) {
    std::vector<std::string> args = {"hooks", name};
    args.insert(args.end(), extra_args.begin(), extra_args.end());
    return run(args, {.stdin_data = stdin_data});
}

Conversation HookTest::converse(const std::vector<std::string>& args, RunOptions options) {
    options.stdin_never_closes = true;
    const Started started = start({args}, options).front();
    Conversation c;
    c.test_ = this;
    c.options_ = std::move(options);
    c.pid_ = started.pid;
    c.in_ = started.stdin_write;
    c.out_ = started.out;
    c.err_ = started.err;
    return c;
}

void Conversation::send(const std::string& line) {
    const std::string data = line + "\n";
    for (std::size_t done = 0; done < data.size();) {
        const ssize_t n = ::write(in_, data.data() + done, data.size() - done);
        if (n <= 0) {
            ADD_FAILURE() << "the program does not read its input";
            return;
        }
        done += static_cast<std::size_t>(n);
    }
}

std::string Conversation::receive() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (;;) {
        if (const std::size_t end = pending_.find('\n'); end != std::string::npos) {
            std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd fd{out_, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&fd, 1, static_cast<int>(left.count())) <= 0) {
            ADD_FAILURE() << "no answer";
            return "";
        }
        char buf[65536];
        const ssize_t n = ::read(out_, buf, sizeof buf);
        if (n <= 0) {
            ADD_FAILURE() << "the program closed its output";
            return "";
        }
        pending_.append(buf, static_cast<std::size_t>(n));
    }
}

HookRun Conversation::end() {
    ::close(in_);
    HookRun run = test_->finish({pid_, out_, err_, -1}, options_);
    run.out = pending_ + run.out;
    return run;
}

void HookTest::answer(const std::string& key, const std::string& stdout_text, int rc) {
    scenario_file(key + ".stdout", stdout_text);
    scenario_file(key + ".rc", std::to_string(rc));
}

void HookTest::scenario_file(const std::string& name, const std::string& content) {
    write_file(scenario_ / name, content);
}

std::vector<std::vector<std::string>> HookTest::host_calls() const {
    std::vector<std::vector<std::string>> calls;
    std::istringstream log(read_file(scenario_ / "calls.log"));
    for (std::string call; std::getline(log, call, '\x1e');) {
        std::istringstream args(call);
        calls.emplace_back();
        for (std::string arg; std::getline(args, arg, '\x1f');) calls.back().push_back(arg);
    }
    return calls;
}

void HookTest::forget_runs() const {
    fs::remove(scenario_ / "calls.log");
    fs::remove(logs_ / "hook_debug.log");
}

std::string HookTest::debug_log() const {
    return read_file(logs_ / "hook_debug.log");
}

std::string HookTest::host_log() const {
    return read_file(logs_ / "orvane-tamblo.log");
}

std::vector<std::string> HookTest::debug_messages() const {
    std::vector<std::string> messages;
    std::istringstream in(debug_log());
    std::string line;
    while (std::getline(in, line)) messages.push_back(line.size() > 9 ? line.substr(9) : line);
    return messages;
}

void HookTest::expect_debug_line(const std::string& line) const {
    const std::vector<std::string> messages = debug_messages();
    ASSERT_EQ(messages.size(), line.empty() ? 2u : 3u) << debug_log();
    if (line.empty()) return;
    EXPECT_TRUE(line.ends_with(": ") ? messages[1].starts_with(line) : messages[1] == line)
        << messages[1];
}

}  // namespace e2e
