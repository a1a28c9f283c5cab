#include "platform/atomic_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "platform/os_error.hpp"
#include "platform/posix/fd.hpp"

namespace platform {

void replace_file(const std::string& path, std::string_view data) {
    int fd = -1;
    std::string temp;
    for (int attempt = 0; fd < 0; ++attempt) {
        char suffix[64];
        std::snprintf(suffix, sizeof suffix, ".tmp.%ld.%ld.%d", static_cast<long>(::getpid()),
                      static_cast<long>(std::clock()), attempt);
        temp = path + suffix;
        fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
        if (fd < 0 && (errno != EEXIST || attempt == 100)) {
            throw OsError("cannot create " + temp, errno);
        }
    }
    try {
        posix::write_all(fd, data, temp);
        if (::fsync(fd) != 0) throw OsError("cannot write " + temp, errno);
    } catch (...) {
        ::close(fd);
        ::unlink(temp.c_str());
        throw;
    }
    if (::close(fd) != 0 || ::rename(temp.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temp.c_str());
        throw OsError("cannot replace " + path, error);
    }
}

void delete_file(const std::string& path) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT)
        throw OsError("cannot remove " + path, errno);
}

}  // namespace platform
