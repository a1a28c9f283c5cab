#include "platform/dir_list.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/os_error.hpp"
#include "platform/posix/fd.hpp"

namespace platform {

bool file_names_fold_case() {
    return false;
}

struct Directory::State {
    std::string path;  // for messages
    int fd = -1;
    DIR* stream = nullptr;  // opened by the first next(), on a copy of fd
    bool listed = false;    // the stream reached its end and was closed
    const char* current = nullptr;

    ~State() {
        if (stream != nullptr) ::closedir(stream);
        if (fd >= 0) ::close(fd);
    }
};

namespace {

EntryKind kind_of(mode_t mode) {
    if (S_ISREG(mode)) return EntryKind::regular;
    if (S_ISDIR(mode)) return EntryKind::directory;
    if (S_ISLNK(mode)) return EntryKind::symlink;
    return EntryKind::other;
}

}  // namespace

Directory::Directory(const std::string& path) : state_(std::make_unique<State>()) {
    state_->path = path;
    state_->fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (state_->fd < 0) throw OsError("cannot open directory " + path, errno);
}

Directory::Directory(const Directory& parent, std::string_view name)
    : state_(std::make_unique<State>()) {
    state_->path = parent.state_->path + "/" + std::string(name);
    state_->fd = ::openat(parent.state_->fd, std::string(name).c_str(),
                          O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (state_->fd < 0) throw OsError("cannot open directory " + state_->path, errno);
}

Directory::~Directory() = default;

bool Directory::next(DirEntry& entry) {
    State& s = *state_;
    if (s.listed) return false;
    if (s.stream == nullptr) {
        // The stream owns its descriptor; ours stays for the look-ups relative to it.
        const int copy = ::fcntl(s.fd, F_DUPFD_CLOEXEC, 0);
        if (copy < 0) throw OsError("cannot list " + s.path, errno);
        s.stream = ::fdopendir(copy);
        if (s.stream == nullptr) {
            const int error = errno;
            ::close(copy);
            throw OsError("cannot list " + s.path, error);
        }
    }
    for (;;) {
        errno = 0;
        const dirent* d = ::readdir(s.stream);
        if (d == nullptr) {
            if (errno != 0) throw OsError("cannot list " + s.path, errno);
            // Its buffer is not kept while the directories below are walked.
            ::closedir(s.stream);
            s.stream = nullptr;
            s.listed = true;
            s.current = nullptr;
            return false;
        }
        const char* name = d->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
        s.current = name;
        entry.name = name;
        switch (d->d_type) {
            case DT_REG:
                entry.kind = EntryKind::regular;
                break;
            case DT_DIR:
                entry.kind = EntryKind::directory;
                break;
            case DT_LNK:
                entry.kind = EntryKind::symlink;
                break;
            case DT_UNKNOWN: {
                // Some file systems do not say in the listing; gone since is nothing to list.
                struct stat st {};
                if (::fstatat(s.fd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
                entry.kind = kind_of(st.st_mode);
                break;
            }
            default:
                entry.kind = EntryKind::other;
        }
        return true;
    }
}

std::optional<FileSignature> Directory::signature() {
    struct stat st {};
    if (state_->current == nullptr ||
        ::fstatat(state_->fd, state_->current, &st, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(st.st_mode)) {
        return std::nullopt;
    }
    return FileSignature{
        static_cast<std::int64_t>(st.st_size),
        static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
}

bool Directory::contains(std::string_view name) const {
    struct stat st {};
    return ::fstatat(state_->fd, std::string(name).c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
}

std::optional<std::string> Directory::read_file(std::string_view name, std::size_t limit) const {
    const std::string path = state_->path + "/" + std::string(name);
    // Non-blocking, so that a FIFO standing there cannot hold us.
    posix::UniqueFd file(::openat(state_->fd, std::string(name).c_str(),
                                  O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (file.fd < 0) {
        if (errno == ENOENT || errno == ELOOP || errno == ENOTDIR) return std::nullopt;
        throw OsError("cannot open " + path, errno);
    }
    struct stat st {};
    if (::fstat(file.fd, &st) != 0) throw OsError("cannot inspect " + path, errno);
    if (!S_ISREG(st.st_mode)) return std::nullopt;
    return posix::read_all(file.fd, path, limit);
}

}  // namespace platform
