#include "platform/posix/fd.hpp"

#include <unistd.h>

#include <cerrno>

#include "platform/os_error.hpp"

namespace platform::posix {

std::string read_all(int fd, const std::string& what) {
    std::string data;
    char buf[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buf, sizeof buf);
        if (n == 0) return data;
        if (n < 0) {
            if (errno == EINTR) continue;
            throw OsError("cannot read " + what, errno);
        }
        data.append(buf, static_cast<std::size_t>(n));
    }
}

void write_all(int fd, std::string_view data, const std::string& what) {
    while (!data.empty()) {
        const ssize_t n = ::write(fd, data.data(), data.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            throw OsError("cannot write " + what, errno);
        }
        data.remove_prefix(static_cast<std::size_t>(n));
    }
}

}  // namespace platform::posix
