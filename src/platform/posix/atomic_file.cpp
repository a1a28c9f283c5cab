#include "platform/atomic_file.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "platform/common/temporary_name.hpp"
#include "platform/os_error.hpp"
#include "platform/posix/fd.hpp"

namespace platform {

namespace {

bool regular_file_at(const std::string& path, struct stat& st) {
    return ::lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

void replace_file_synced(const std::string& path, std::string_view data, const std::string& like) {
    struct stat old {};
    const bool replacing = regular_file_at(path, old);
    if (replacing) {
        // A file marked read-only is one the user means to keep as it is, root included.
        if ((old.st_mode & 0222) == 0) throw OsError("cannot write " + path, EACCES);
        if (::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) {
            throw OsError("cannot write " + path, errno);
        }
    }
    struct stat source = old;
    const bool keep = like.empty() ? replacing : regular_file_at(like, source);

    // Created with no more permissions than the file it stands for, so that not even a killed
    // run leaves a copy others may read; the exact mode follows once the owner is right.
    const mode_t create_mode = keep ? (source.st_mode & 0777) : 0666;
    int fd = -1;
    std::string temp;
    for (int attempt = 0; fd < 0; ++attempt) {
        temp = temporary_name::make(path, static_cast<unsigned long>(::getpid()),
                                    static_cast<unsigned long>(std::clock()), attempt);
        fd =
            ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, create_mode);
        if (fd < 0 && (errno != EEXIST || attempt == 100)) {
            throw OsError("cannot create " + temp, errno);
        }
    }
    try {
        if (keep) {
            struct stat now {};
            if (::fstat(fd, &now) != 0) throw OsError("cannot inspect " + temp, errno);
            // Someone else's file would otherwise become ours; better to leave it as it is.
            if ((now.st_uid != source.st_uid || now.st_gid != source.st_gid) &&
                ::fchown(fd, source.st_uid, source.st_gid) != 0) {
                throw OsError("cannot keep the owner of " + path, errno);
            }
            if (::fchmod(fd, source.st_mode & 07777) != 0) {
                throw OsError("cannot keep the permissions of " + path, errno);
            }
        }
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

void remove_stale_temporaries(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    const std::string dir =
        slash == std::string::npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1));
    const std::string prefix = path.substr(slash + 1) + std::string(temporary_name::kInfix);
    posix::UniqueFd dir_fd(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (dir_fd.fd < 0) {
        if (errno == ENOENT) return;
        throw OsError("cannot open " + dir, errno);
    }
    DIR* listing = ::fdopendir(dir_fd.fd);
    if (listing == nullptr) throw OsError("cannot list " + dir, errno);
    dir_fd.fd = -1;  // the listing owns it now
    while (const dirent* entry = ::readdir(listing)) {
        const std::string_view name = entry->d_name;
        if (!name.starts_with(prefix)) continue;
        const long pid = temporary_name::pid_of(name.substr(prefix.size()));
        // Only a run that is gone cannot be writing it any more.
        if (pid <= 0 || pid == ::getpid() || ::kill(static_cast<pid_t>(pid), 0) == 0 ||
            errno != ESRCH) {
            continue;
        }
        struct stat st {};
        if (::fstatat(::dirfd(listing), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(st.st_mode)) {
            ::unlinkat(::dirfd(listing), entry->d_name, 0);
        }
    }
    ::closedir(listing);
}

void delete_file(const std::string& path) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT)
        throw OsError("cannot remove " + path, errno);
}

}  // namespace platform
