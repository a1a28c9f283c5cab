#include "platform/file_info.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/os_error.hpp"

namespace platform {

PathKind path_kind(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) return PathKind::missing;
        throw OsError("cannot inspect " + path, errno);
    }
    if (S_ISLNK(st.st_mode)) return PathKind::symlink;
    if (S_ISREG(st.st_mode)) return PathKind::regular;
    if (S_ISDIR(st.st_mode)) return PathKind::directory;
    return PathKind::other;
}

namespace {

// The signature when `rc`, a stat call's result, found a regular file.
std::optional<FileSignature> signature_of(int rc, const struct stat& st) {
    if (rc != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
    return FileSignature{
        static_cast<std::int64_t>(st.st_size),
        static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
}

}  // namespace

std::optional<FileSignature> file_signature(const std::string& path) {
    struct stat st {};
    return signature_of(::stat(path.c_str(), &st), st);
}

SignatureReader::~SignatureReader() {
    for (const Directory& d : directories_) {
        if (d.fd >= 0) ::close(d.fd);
    }
}

std::optional<FileSignature> SignatureReader::read(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return file_signature(path);
    const std::string_view directory(path.data(), slash == 0 ? 1 : slash);
    Directory* found = nullptr;
    // Newest first: files of one directory mostly come one after the other.
    for (std::size_t i = 1; i <= kDirectories && found == nullptr; ++i) {
        Directory& d = directories_[(next_ + kDirectories - i) % kDirectories];
        if (d.path == directory) found = &d;
    }
    if (found == nullptr) {
        found = &directories_[next_];
        next_ = (next_ + 1) % kDirectories;
        if (found->fd >= 0) ::close(found->fd);
        found->path = directory;
        found->fd = ::open(found->path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    }
    if (found->fd < 0) return std::nullopt;  // as stat() through it would fail
    struct stat st {};
    return signature_of(::fstatat(found->fd, path.c_str() + slash + 1, &st, 0), st);
}

bool read_file_chunks(const std::string& path,
                      const std::function<void(std::string_view chunk)>& sink) {
    // Non-blocking, so that a FIFO standing where a file was cannot hold us.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) return false;
    struct stat st {};
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    char buf[65536];
    while (ok) {
        const ssize_t n = ::read(fd, buf, sizeof buf);
        if (n == 0) break;
        if (n < 0) {
            if (errno == EINTR) continue;
            ok = false;
            break;
        }
        sink(std::string_view(buf, static_cast<std::size_t>(n)));
    }
    ::close(fd);
    return ok;
}

bool is_read_only(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && (st.st_mode & 0222) == 0;
}

bool same_file(const std::string& a, const std::string& b) {
    struct stat sa {
    }, sb{};
    if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

std::string executable_path() {
    std::string buf(4096, '\0');
    const ssize_t n = ::readlink("/proc/self/exe", buf.data(), buf.size());
    if (n < 0) throw OsError("cannot find this program's executable", errno);
    buf.resize(static_cast<std::size_t>(n));
    return buf;
}

}  // namespace platform
