#include "platform/fs.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/os_error.hpp"
#include "platform/posix/fd.hpp"
#include "platform/random.hpp"

namespace platform {

namespace {

// Writes `content` to a new file at `path`, never through a link. False when `path` exists.
bool write_new_file(const std::string& path, std::string_view content) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) {
        if (errno == EEXIST) return false;
        throw OsError("cannot create " + path, errno);
    }
    try {
        posix::write_all(fd, content, path);
    } catch (...) {
        ::close(fd);
        ::unlink(path.c_str());
        throw;
    }
    if (::close(fd) != 0) {
        const int error = errno;
        ::unlink(path.c_str());
        throw OsError("cannot write " + path, error);
    }
    return true;
}

}  // namespace

bool make_directory(const std::string& path) {
    if (::mkdir(path.c_str(), 0755) == 0) return true;
    if (errno == EEXIST) return false;
    throw OsError("cannot create directory " + path, errno);
}

bool remove_empty_directory(const std::string& path) noexcept {
    return ::rmdir(path.c_str()) == 0;  // refuses a link and a directory that is not empty
}

bool create_file_no_replace(const std::string& path, std::string_view content) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) == 0) return false;
    char suffix[24];
    const auto n = std::snprintf(suffix, sizeof suffix, ".tmp-%016llx",
                                 static_cast<unsigned long long>(random_u64()));
    const std::string temp = path + std::string(suffix, static_cast<std::size_t>(n));
    if (!write_new_file(temp, content)) throw OsError("cannot create " + temp, EEXIST);
    try {
        const bool linked = place_no_replace(temp, path);
        ::unlink(temp.c_str());
        return linked;
    } catch (...) {
        ::unlink(temp.c_str());
        throw;
    }
}

bool place_no_replace(const std::string& existing, const std::string& new_path) {
    // link() never replaces: of several racing creators exactly one wins, with a whole file.
    if (::link(existing.c_str(), new_path.c_str()) == 0) return true;
    if (errno == EEXIST) return false;
    if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS) {
        throw OsError("cannot create " + new_path, errno);
    }
    // A file system without hard links: a rename after a look is the best it offers.
    struct stat st {};
    if (::lstat(new_path.c_str(), &st) == 0) return false;
    if (::rename(existing.c_str(), new_path.c_str()) != 0) {
        throw OsError("cannot create " + new_path, errno);
    }
    return true;
}

void remove_file(const std::string& path) noexcept {
    ::unlink(path.c_str());
}

}  // namespace platform
