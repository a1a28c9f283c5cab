#include "platform/io.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/os_error.hpp"
#include "platform/posix/fd.hpp"

namespace platform {

void prepare_standard_streams() {
    for (int fd = 0; fd <= 2; ++fd) {
        if (::fcntl(fd, F_GETFD) == -1 && errno == EBADF) {
            // Read-only, so that writing to a stream the caller closed still fails.
            const int opened = ::open("/dev/null", O_RDONLY);
            if (opened >= 0 && opened != fd) {
                ::dup2(opened, fd);
                ::close(opened);
            }
        }
    }
    std::signal(SIGPIPE, SIG_IGN);
    // Inherited as ignored, SIGCHLD would have the system reap our children itself, and their
    // exit status would be lost.
    std::signal(SIGCHLD, SIG_DFL);
}

std::string read_stdin() {
    return posix::read_all(STDIN_FILENO, "standard input");
}

void write_stdout(std::string_view data) {
    posix::write_all(STDOUT_FILENO, data, "standard output");
}

void write_stderr(std::string_view data) {
    posix::write_all(STDERR_FILENO, data, "standard error");
}

}  // namespace platform

namespace platform {

std::size_t read_stdin_some(char* buffer, std::size_t size) {
    for (;;) {
        const ssize_t n = ::read(STDIN_FILENO, buffer, size);
        if (n >= 0) return static_cast<std::size_t>(n);
        if (errno != EINTR) throw OsError("cannot read standard input", errno);
    }
}

}  // namespace platform
