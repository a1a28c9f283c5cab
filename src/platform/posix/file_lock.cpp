#include "platform/file_lock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "platform/os_error.hpp"

namespace platform {

FileLock::FileLock(const std::string& path)
    : path_(path), handle_(::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)) {
    if (handle_ < 0) throw OsError("cannot open " + path, errno);
}

FileLock::~FileLock() {
    ::close(static_cast<int>(handle_));  // lets go of the lock too
}

bool FileLock::lock(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    // flock() cannot wait with a limit: try, and try again shortly.
    for (auto pause = std::chrono::milliseconds(1);;
         pause = std::min(pause * 2, std::chrono::milliseconds(20))) {
        if (::flock(static_cast<int>(handle_), LOCK_EX | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK && errno != EINTR) throw OsError("cannot lock " + path_, errno);
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(pause);
    }
}

}  // namespace platform
