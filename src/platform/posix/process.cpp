#include "platform/process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

extern char** environ;

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

// Closes its descriptors on every path out of run_process.
struct Pipes {
    int out[2] = {-1, -1};
    int err[2] = {-1, -1};
    ~Pipes() {
        for (int fd : {out[0], out[1], err[0], err[1]}) {
            if (fd >= 0) ::close(fd);
        }
    }
    static void close_fd(int& fd) {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
};

std::string describe(const std::vector<std::string>& argv) {
    std::string text;
    for (const auto& arg : argv) {
        if (!text.empty()) text += ' ';
        text += arg;
    }
    return text;
}

int milliseconds_left(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() <= 0 ? 0 : static_cast<int>(left.count());
}

pid_t spawn(const std::vector<std::string>& argv, Pipes& pipes) {
    std::vector<char*> args;
    for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipes.out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, pipes.err[1], STDERR_FILENO);

    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    // Its own process group, so the deadline can take grandchildren down with it; and the
    // default SIGPIPE back, which this process ignores for itself.
    sigset_t defaults, empty;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigemptyset(&empty);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setsigmask(&attr, &empty);
    posix_spawnattr_setpgroup(&attr, 0);
    posix_spawnattr_setflags(
        &attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    pid_t pid = -1;
    const int rc = posix_spawnp(&pid, args[0], &actions, &attr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    if (rc != 0) {
        throw ProcessStartError("could not start " + argv[0] + ": " + std::strerror(rc));
    }
    return pid;
}

[[noreturn]] void kill_and_reap(pid_t pid, const std::vector<std::string>& argv,
                                std::chrono::milliseconds timeout) {
    ::kill(-pid, SIGKILL);
    ::kill(pid, SIGKILL);
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    const auto ms = timeout.count();
    const std::string limit =
        ms % 1000 == 0 ? std::to_string(ms / 1000) + " seconds" : std::to_string(ms) + " ms";
    throw ProcessTimeout("command '" + describe(argv) + "' timed out after " + limit);
}

}  // namespace

ProcessResult run_process(const std::vector<std::string>& argv, std::chrono::milliseconds timeout) {
    if (argv.empty()) throw ProcessStartError("could not start: empty command");
    const auto deadline = Clock::now() + timeout;

    Pipes pipes;
    if (::pipe2(pipes.out, O_CLOEXEC) != 0 || ::pipe2(pipes.err, O_CLOEXEC) != 0) {
        throw ProcessStartError("could not start " + argv[0] + ": " + std::strerror(errno));
    }
    const pid_t pid = spawn(argv, pipes);
    Pipes::close_fd(pipes.out[1]);
    Pipes::close_fd(pipes.err[1]);

    ProcessResult result;
    pollfd fds[2] = {{pipes.out[0], POLLIN, 0}, {pipes.err[0], POLLIN, 0}};
    std::string* sinks[2] = {&result.out, &result.err};
    int open_streams = 2;
    while (open_streams > 0) {
        const int wait_ms = milliseconds_left(deadline);
        if (wait_ms == 0) kill_and_reap(pid, argv, timeout);
        const int ready = ::poll(fds, 2, wait_ms);
        if (ready < 0 && errno != EINTR) break;
        for (int i = 0; i < 2 && ready > 0; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char buf[65536];
            const ssize_t n = ::read(fds[i].fd, buf, sizeof buf);
            if (n > 0) {
                sinks[i]->append(buf, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                fds[i].fd = -1;  // closed by ~Pipes
                --open_streams;
            }
        }
    }

    // Both streams are closed; the child is normally gone by now or about to be.
    int status = 0;
    for (auto pause = std::chrono::microseconds(50);;) {
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) break;
        if (done < 0 && errno != EINTR) break;
        if (milliseconds_left(deadline) == 0) kill_and_reap(pid, argv, timeout);
        std::this_thread::sleep_for(pause);
        if (pause < std::chrono::milliseconds(10)) pause *= 2;
    }
    if (WIFEXITED(status)) result.exit_code = WEXITSTATUS(status);
    return result;
}

}  // namespace platform
