#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

struct ProcessResult {
    int exit_code = -1;  // the child's exit status, or -1 when a signal ended it
    std::string out;     // what it wrote to standard output, as bytes ("" when discarded)
};

// Whether run_process keeps the child's standard output. Standard error is always drained and
// thrown away.
enum class ChildOutput { keep, discard };

// Far beyond any real answer; a child that writes more is failing, not answering.
inline constexpr std::size_t kMaxChildOutput = 4 * 1024 * 1024;

// The ways a run fails that callers report as a failed command rather than a fault of their own.
class ProcessError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};
class ProcessStartError : public ProcessError {
  public:
    using ProcessError::ProcessError;
};
class ProcessTimeout : public ProcessError {
  public:
    using ProcessError::ProcessError;
};
class ProcessOutputTooLarge : public ProcessError {
  public:
    using ProcessError::ProcessError;
};
// The system could not tell how the child ended, so its status is unknown.
class ProcessWaitError : public ProcessError {
  public:
    using ProcessError::ProcessError;
};

// This program's own entry point. When a child to be run is this very program (the same file),
// run_process forks and calls `entry` in the child instead of executing the file again: a fresh
// start of this large static program costs more than most of its commands do. The child is then
// what an executed one would be (its own process group, the pipes, the time limit, default
// signal handling) and exits with what `entry` returns. Only for a process with one thread
// (the hooks), as fork() leaves the locks of other threads held. Ignored on Windows.
using ProgramEntry = int (*)(int argc, char** argv);
void set_program_entry(ProgramEntry entry);

// The absolute path of the program `name` as found through the absolute entries of PATH (empty
// and relative entries are skipped: the working directory is never searched); a name holding a
// separator is taken as it is. Only a regular file we may execute counts. nullopt when none.
std::optional<std::string> find_program(std::string_view name);

// Runs `argv` (argv[0] resolved by find_program, no shell) with standard input inherited and
// both output streams read together through pipes. The child leads a process group of its own,
// and whenever the run ends before the child has been reaped (time-out, too much output, any
// exception on the way) the whole group is killed and the child reaped. A termination signal or
// interrupt that reaches this process while the child runs does the same, then ends this process
// as that signal would. Killed outright (SIGKILL, TerminateProcess), this process takes the
// child with it: on Linux by a parent-death signal, which reaches the child but not what it
// started; on Windows by closing the job that holds them all.
//
// Throws ProcessStartError when the child cannot start, ProcessTimeout at `timeout` (even when a
// grandchild still holds the pipes), ProcessOutputTooLarge past kMaxChildOutput bytes of kept
// output, and ProcessWaitError when the child's end cannot be learned. An argument holding a NUL
// character cannot be passed at all: std::invalid_argument, and nothing is started.
ProcessResult run_process(const std::vector<std::string>& argv, std::chrono::milliseconds timeout,
                          ChildOutput output = ChildOutput::keep);

// This process's id.
std::int64_t current_process_id();

}  // namespace platform
