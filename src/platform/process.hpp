#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

namespace platform {

struct ProcessResult {
    int exit_code = -1;  // the child's exit status, or -1 when a signal ended it
    std::string out;     // everything it wrote to standard output, as bytes
    std::string err;     // everything it wrote to standard error, as bytes
};

// The two ways a run fails; callers report them differently.
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

// Runs `argv` (argv[0] found through PATH, no shell) with standard input inherited and both
// output streams captured through pipes drained together. The child leads a process group of its
// own; at `timeout` the whole group is killed, the child reaped and ProcessTimeout thrown, even
// when a grandchild still holds the pipes. Throws ProcessStartError when the child cannot start.
ProcessResult run_process(const std::vector<std::string>& argv, std::chrono::milliseconds timeout);

}  // namespace platform
