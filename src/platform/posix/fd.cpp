#include "platform/posix/fd.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/os_error.hpp"

namespace platform::posix {

void UniqueFd::close() {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

std::string read_all(int fd, const std::string& what, std::size_t limit) {
    std::string data;
    char buf[65536];
    while (data.size() < limit) {
        const std::size_t want = std::min(sizeof buf, limit - data.size());
        const ssize_t n = ::read(fd, buf, want);
        if (n == 0) return data;
        if (n < 0) {
            if (errno == EINTR) continue;
            throw OsError("cannot read " + what, errno);
        }
        data.append(buf, static_cast<std::size_t>(n));
    }
    return data;
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
