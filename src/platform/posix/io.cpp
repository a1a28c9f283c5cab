#include "platform/io.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/os_error.hpp"

namespace platform {

namespace {

void write_all(int fd, std::string_view data, const char* stream_name) {
    while (!data.empty()) {
        const ssize_t n = ::write(fd, data.data(), data.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            throw OsError(std::string("cannot write ") + stream_name, errno);
        }
        data.remove_prefix(static_cast<std::size_t>(n));
    }
}

}  // namespace

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
}

std::string read_stdin() {
    std::string data;
    char buf[65536];
    for (;;) {
        const ssize_t n = ::read(STDIN_FILENO, buf, sizeof buf);
        if (n == 0) return data;
        if (n < 0) {
            if (errno == EINTR) continue;
            throw OsError("cannot read standard input", errno);
        }
        data.append(buf, static_cast<std::size_t>(n));
    }
}

void write_stdout(std::string_view data) {
    write_all(STDOUT_FILENO, data, "standard output");
}

void write_stderr(std::string_view data) {
    write_all(STDERR_FILENO, data, "standard error");
}

}  // namespace platform
