#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"
#include "platform/posix/fd.hpp"

namespace platform {

namespace {

// A name for the new file that no other writer uses at the same time: our pid, and a count
// past any file a killed run with the same pid left behind.
posix::UniqueFd create_temporary(int dir, const std::string& name, const std::string& shown,
                                 std::string& temporary) {
    for (int attempt = 0;; ++attempt) {
        temporary = name + ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(attempt);
        const int fd = ::openat(dir, temporary.c_str(),
                                O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
        if (fd >= 0) return posix::UniqueFd(fd);
        if (errno != EEXIST || attempt == 99) {
            throw OsError("cannot create a file beside " + shown, errno);
        }
    }
}

}  // namespace

void replace_file_no_follow(std::string_view relative_path, std::string_view data) {
    const std::string shown(relative_path);
    const PathParts path = split_path(relative_path);
    if (!path.root.empty() || path.parts.empty()) throw OsError("cannot replace " + shown, EINVAL);

    // Walk down from the working directory refusing links, so that nothing the repository
    // links to can be reached.
    int dir = AT_FDCWD;
    posix::UniqueFd held;
    for (std::size_t i = 0; i + 1 < path.parts.size(); ++i) {
        if (path.parts[i] == "..") throw OsError("cannot replace " + shown, EINVAL);
        posix::UniqueFd next(
            ::openat(dir, path.parts[i].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (next.fd < 0) throw OsError("cannot open the directory of " + shown, errno);
        held.close();
        std::swap(held.fd, next.fd);
        dir = held.fd;
    }
    const std::string& name = path.parts.back();
    if (name == "..") throw OsError("cannot replace " + shown, EINVAL);

    // What an in-place write would have refused stays refused, and a kept file keeps its mode.
    struct stat old {};
    const bool had_file =
        ::fstatat(dir, name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(old.st_mode);
    if (had_file && ::faccessat(dir, name.c_str(), W_OK, AT_EACCESS) != 0) {
        throw OsError("cannot write " + shown, errno);
    }

    std::string temporary;
    posix::UniqueFd file = create_temporary(dir, name, shown, temporary);
    try {
        if (had_file && ::fchmod(file.fd, old.st_mode & 07777) != 0) {
            throw OsError("cannot write " + shown, errno);
        }
        posix::write_all(file.fd, data, shown);
        const int fd = std::exchange(file.fd, -1);
        if (::close(fd) != 0) throw OsError("cannot write " + shown, errno);
        if (::renameat(dir, temporary.c_str(), dir, name.c_str()) != 0) {
            throw OsError("cannot replace " + shown, errno);
        }
    } catch (...) {
        ::unlinkat(dir, temporary.c_str(), 0);
        throw;
    }
}

}  // namespace platform
