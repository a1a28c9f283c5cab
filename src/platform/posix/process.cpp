#include "platform/process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <thread>

#include "platform/common/process_text.hpp"
#include "platform/file_info.hpp"
#include "platform/posix/fd.hpp"

extern char** environ;

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kTerminationSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT};

// The running child, for the signal handler; 0 while none runs.
volatile std::sig_atomic_t running_child = 0;

ProgramEntry program_entry = nullptr;

sigset_t termination_set() {
    sigset_t set;
    sigemptyset(&set);
    for (int sig : kTerminationSignals) sigaddset(&set, sig);
    return set;
}

// Async-signal-safe: the child leads its own group, so the agent's Ctrl-C or kill reaches us
// but not it. Take the group down and reap the child, then die of the same signal.
extern "C" void end_with_child(int sig) {
    const pid_t pid = running_child;
    if (pid > 0) {
        ::kill(-pid, SIGKILL);
        ::kill(pid, SIGKILL);
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    struct sigaction fallback {};
    fallback.sa_handler = SIG_DFL;
    sigemptyset(&fallback.sa_mask);
    ::sigaction(sig, &fallback, nullptr);
    ::raise(sig);  // pending until the unblock below, then fatal
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    ::sigprocmask(SIG_UNBLOCK, &set, nullptr);
    ::_exit(128 + sig);
}

// Routes termination signals to end_with_child for as long as it lives. Signals left ignored
// (nohup, a background job's SIGINT) or handled by someone else stay as they are.
class SignalGuard {
  public:
    SignalGuard() {
        const sigset_t set = termination_set();
        ::sigprocmask(SIG_BLOCK, &set, &saved_mask_);
        struct sigaction action {};
        action.sa_handler = end_with_child;
        action.sa_mask = set;
        for (std::size_t i = 0; i < std::size(kTerminationSignals); ++i) {
            ::sigaction(kTerminationSignals[i], nullptr, &saved_[i]);
            if ((saved_[i].sa_flags & SA_SIGINFO) == 0 && saved_[i].sa_handler == SIG_DFL) {
                installed_[i] = ::sigaction(kTerminationSignals[i], &action, nullptr) == 0;
            }
        }
    }
    ~SignalGuard() {
        block();
        running_child = 0;
        for (std::size_t i = 0; i < std::size(kTerminationSignals); ++i) {
            if (installed_[i]) ::sigaction(kTerminationSignals[i], &saved_[i], nullptr);
        }
        unblock();  // a signal held back now meets its old disposition
    }
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

    void block() {
        const sigset_t set = termination_set();
        ::sigprocmask(SIG_BLOCK, &set, nullptr);
    }
    void unblock() { ::sigprocmask(SIG_SETMASK, &saved_mask_, nullptr); }

  private:
    sigset_t saved_mask_;
    struct sigaction saved_[std::size(kTerminationSignals)]{};
    bool installed_[std::size(kTerminationSignals)] = {};
};

int milliseconds_left(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() <= 0 ? 0 : static_cast<int>(left.count());
}

// One started child with its pipes. Whatever way the run leaves before the child was reaped,
// the destructor kills its group and reaps it.
class Child {
  public:
    // With `entry`, `program` is this program: forked and entered, not executed.
    Child(const std::vector<std::string>& argv, const std::string& program, ProgramEntry entry) {
        int out[2], err[2];
        if (::pipe2(out, O_CLOEXEC) != 0) fail_start(argv, errno);
        out_.fd = out[0];
        posix::UniqueFd out_write(out[1]);
        if (::pipe2(err, O_CLOEXEC) != 0) fail_start(argv, errno);
        err_.fd = err[0];
        posix::UniqueFd err_write(err[1]);

        std::vector<char*> args;
        for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
        args.push_back(nullptr);

        const pid_t pid = entry != nullptr
                              ? fork_entered(argv, entry, args, out_write.fd, err_write.fd)
                              : spawn(argv, program, args, out_write.fd, err_write.fd);
        pid_ = pid;
        running_child = pid;
        signals_.unblock();  // a signal that came during the start is handled from here on
    }

    ~Child() {
        signals_.block();
        if (!reaped_) {
            ::kill(-pid_, SIGKILL);
            ::kill(pid_, SIGKILL);
            while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
        running_child = 0;
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    posix::UniqueFd& out() { return out_; }
    posix::UniqueFd& err() { return err_; }

    // The wait status once the child has ended; nullopt while it runs. A child that cannot be
    // waited for (SIGCHLD ignored, say) has an unknown status, never a successful one.
    std::optional<int> try_reap(const std::vector<std::string>& argv) {
        signals_.block();
        int status = 0;
        const pid_t done = ::waitpid(pid_, &status, WNOHANG);
        const int error = errno;
        if (done == pid_ || (done < 0 && error == ECHILD)) {
            reaped_ = true;
            running_child = 0;
        }
        signals_.unblock();
        if (done == pid_) return status;
        if (done < 0 && error != EINTR) {
            throw ProcessWaitError("cannot learn how '" + process_text::describe(argv) +
                                   "' ended: " + std::strerror(error));
        }
        return std::nullopt;
    }

  private:
    // What the executed child needs from this process, whose memory it shares until the exec.
    struct ExecStart {
        pid_t parent;
        int out, err;
        const char* program;
        char** argv;
        int error;  // the exec's errno when it failed
    };

    // Executes `program` with `out` and `err` as its standard output and error. The child shares
    // this process's memory until the exec, as posix_spawn starts one, so that this large program
    // is not copied, page table and all, for a child that keeps none of it.
    static pid_t spawn(const std::vector<std::string>& argv, const std::string& program,
                       std::vector<char*>& args, int out, int err) {
        ExecStart start{::getpid(), out, err, program.c_str(), args.data(), 0};
        alignas(16) char stack[64 * 1024];
        // No handler of ours may run in the child while it borrows our memory.
        sigset_t all, saved;
        sigfillset(&all);
        ::sigprocmask(SIG_SETMASK, &all, &saved);
        const pid_t pid =
            ::clone(exec_child, stack + sizeof stack, CLONE_VM | CLONE_VFORK | SIGCHLD, &start);
        const int error = pid < 0 ? errno : start.error;
        ::sigprocmask(SIG_SETMASK, &saved, nullptr);
        if (pid < 0) fail_start(argv, error);
        if (error != 0) {
            while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
            }
            fail_start(argv, error);
        }
        ::setpgid(pid, pid);  // as the child does: whichever runs first, the kill finds it
        return pid;
    }

    // The executed child, on its own stack in our memory: it writes nothing of ours but `error`.
    static int exec_child(void* arg) {
        ExecStart& start = *static_cast<ExecStart*>(arg);
        become_child(start.parent, start.out, start.err);
        unblock_all_signals();
        ::execve(start.program, start.argv, environ);
        start.error = errno;
        ::_exit(127);
    }

    // Forks a child that enters this program at `entry` (see enter()).
    static pid_t fork_entered(const std::vector<std::string>& argv, ProgramEntry entry,
                              std::vector<char*>& args, int out, int err) {
        const pid_t parent = ::getpid();
        const pid_t pid = ::fork();
        if (pid < 0) fail_start(argv, errno);
        if (pid == 0) enter(entry, parent, static_cast<int>(argv.size()), args.data(), out, err);
        ::setpgid(pid, pid);  // as the child does: whichever runs first, the kill finds it
        return pid;
    }

    // The child's side of either start: a process group of its own (so that the deadline can
    // take grandchildren down with it), the pipes as its output, and the signal handling a
    // started program has. Only async-signal-safe calls until the exec.
    static void become_child(pid_t parent, int out, int err) {
        ::setpgid(0, 0);
        // An agent kills a hook that outlasts its own limit, with SIGKILL as often as not, which
        // no handler sees: the child goes with it. The hook may have died before this call.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) ::_exit(127);
        if (::dup2(out, STDOUT_FILENO) < 0 || ::dup2(err, STDERR_FILENO) < 0) ::_exit(127);
        // SIGPIPE gets back the default this process gave up; handlers of ours go as an exec
        // would take them.
        struct sigaction fallback {};
        fallback.sa_handler = SIG_DFL;
        sigemptyset(&fallback.sa_mask);
        for (int sig : kTerminationSignals) {
            struct sigaction current {};
            if (::sigaction(sig, nullptr, &current) == 0 && current.sa_handler == end_with_child) {
                ::sigaction(sig, &fallback, nullptr);
            }
        }
        ::sigaction(SIGPIPE, &fallback, nullptr);
    }

    // The signals blocked for the start, unblocked as the child begins its own work.
    static void unblock_all_signals() {
        sigset_t empty;
        sigemptyset(&empty);
        ::sigprocmask(SIG_SETMASK, &empty, nullptr);
    }

    // The forked child: set up as a started program would be, run, exit. Nothing here may return
    // or throw into the caller's frames, which belong to the parent's run.
    [[noreturn]] static void enter(ProgramEntry entry, pid_t parent, int argc, char** argv, int out,
                                   int err) {
        int code = 127;
        try {
            become_child(parent, out, err);
            running_child = 0;
            // None of the parent's other descriptors: the pipes' ends above all, which would
            // keep the parent from seeing the end of the output while a grandchild lives on.
            if (::close_range(STDERR_FILENO + 1, ~0U, 0) != 0) {
                for (int fd = STDERR_FILENO + 1; fd < 1024; ++fd) ::close(fd);
            }
            unblock_all_signals();
            code = entry(argc, argv);
        } catch (...) {
            code = 70;
        }
        std::fflush(nullptr);
        ::_exit(code);
    }

    [[noreturn]] static void fail_start(const std::vector<std::string>& argv, int error) {
        throw ProcessStartError("could not start " + argv[0] + ": " + std::strerror(error));
    }

    SignalGuard signals_;  // first in, last out: covers the start and the final reap
    posix::UniqueFd out_, err_;
    pid_t pid_ = -1;
    bool reaped_ = false;
};

}  // namespace

void set_program_entry(ProgramEntry entry) {
    program_entry = entry;
}

ProcessResult run_process(const std::vector<std::string>& argv, std::chrono::milliseconds timeout,
                          ChildOutput output) {
    process_text::check_arguments(argv);
    const auto deadline = Clock::now() + timeout;
    std::string program = argv[0];
    if (argv[0].find('/') == std::string::npos) {
        auto found = find_program(argv[0]);
        if (!found) {
            throw ProcessStartError("could not start " + argv[0] + ": " + std::strerror(ENOENT));
        }
        program = std::move(*found);
    }

    Child child(
        argv, program,
        program_entry != nullptr && same_file("/proc/self/exe", program) ? program_entry : nullptr);
    ProcessResult result;
    pollfd fds[2] = {{child.out().fd, POLLIN, 0}, {child.err().fd, POLLIN, 0}};
    posix::UniqueFd* owners[2] = {&child.out(), &child.err()};
    int open_streams = 2;
    char buf[65536];
    while (open_streams > 0) {
        const int wait_ms = milliseconds_left(deadline);
        if (wait_ms == 0) process_text::time_out(argv, timeout);
        const int ready = ::poll(fds, 2, wait_ms);
        if (ready < 0 && errno != EINTR) break;
        for (int i = 0; i < 2 && ready > 0; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            const ssize_t n = ::read(fds[i].fd, buf, sizeof buf);
            if (n > 0) {
                if (i != 0 || output == ChildOutput::discard) continue;
                if (result.out.size() + static_cast<std::size_t>(n) > kMaxChildOutput) {
                    throw ProcessOutputTooLarge(
                        "command '" + process_text::describe(argv) + "' wrote more than " +
                        std::to_string(kMaxChildOutput >> 20) + " MiB to standard output");
                }
                result.out.append(buf, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                owners[i]->close();
                fds[i].fd = -1;
                --open_streams;
            }
        }
    }

    // Both streams are closed; the child is normally gone by now or about to be.
    for (auto pause = std::chrono::microseconds(50);;) {
        if (const auto status = child.try_reap(argv)) {
            if (WIFEXITED(*status)) result.exit_code = WEXITSTATUS(*status);
            return result;
        }
        if (milliseconds_left(deadline) == 0) process_text::time_out(argv, timeout);
        std::this_thread::sleep_for(pause);
        if (pause < std::chrono::milliseconds(10)) pause *= 2;
    }
}

std::int64_t current_process_id() {
    return ::getpid();
}

}  // namespace platform
