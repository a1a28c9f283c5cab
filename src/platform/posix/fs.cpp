#include "platform/fs.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/os_error.hpp"
#include "platform/posix/fd.hpp"

namespace platform {

void append_file(const std::string& path, std::string_view data) {
    // Non-blocking, so that a FIFO without a reader fails at once instead of hanging the run.
    posix::UniqueFd file(
        ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0644));
    if (file.fd < 0) throw OsError("cannot open " + path, errno);
    struct stat st {};
    if (::fstat(file.fd, &st) != 0) throw OsError("cannot inspect " + path, errno);
    if (!S_ISREG(st.st_mode)) throw OsError("will not append to " + path, EINVAL);
    // One write per call, so that lines from concurrent hook runs do not interleave.
    const ssize_t n = ::write(file.fd, data.data(), data.size());
    if (n < 0) throw OsError("cannot write " + path, errno);
    if (static_cast<std::size_t>(n) != data.size()) throw OsError("short write to " + path, EIO);
}

std::optional<std::string> read_regular_file(const std::string& path, std::size_t limit) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
        throw OsError("cannot inspect " + path, errno);
    }
    if (!S_ISREG(st.st_mode)) return std::nullopt;
    // Non-blocking in case something else took the file's place since.
    posix::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.fd < 0) throw OsError("cannot open " + path, errno);
    return posix::read_all(file.fd, path, limit);
}

bool is_regular_file(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0) return S_ISREG(st.st_mode);
    if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP) return false;
    throw OsError("cannot inspect " + path, errno);
}

bool path_exists(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0) return true;
    if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP) return false;
    throw OsError("cannot inspect " + path, errno);
}

void create_directories(const std::string& path) {
    for (std::size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos != path.size() && path[pos] != '/') continue;
        const std::string prefix = path.substr(0, pos);
        if (::mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) {
            throw OsError("cannot create directory " + prefix, errno);
        }
    }
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        throw OsError("cannot create directory " + path, ENOTDIR);
    }
}

std::string join_path(std::string_view dir, std::string_view name) {
    std::string out(dir);
    if (!out.empty() && out.back() != '/') out += '/';
    out += name;
    return out;
}

}  // namespace platform
