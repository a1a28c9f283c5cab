#include "platform/fs.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/os_error.hpp"
#include "platform/posix/fd.hpp"

namespace platform {

void rename_over(const std::string& from, const std::string& to) {
    if (::rename(from.c_str(), to.c_str()) != 0) throw OsError("cannot replace " + to, errno);
}

std::optional<std::string> read_plain_file(const std::string& path, std::size_t limit) {
    posix::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (file.fd < 0) {
        if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP) return std::nullopt;
        throw OsError("cannot open " + path, errno);
    }
    struct stat st {};
    if (::fstat(file.fd, &st) != 0) throw OsError("cannot inspect " + path, errno);
    if (!S_ISREG(st.st_mode) || static_cast<std::size_t>(st.st_size) > limit) return std::nullopt;
    std::string data = posix::read_all(file.fd, path, limit + 1);
    if (data.size() > limit) return std::nullopt;  // grew while it was read
    return data;
}

}  // namespace platform
