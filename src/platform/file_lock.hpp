#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace platform {

// An exclusive lock between processes on the file at `path`, which is created when missing (never
// through a link) and stays afterwards. The system lets go of the lock however its holder ends,
// killed included, so a lock is never left stale.
class FileLock {
  public:
    // Opens the file. Throws OsError.
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Takes the lock, waiting up to `limit` while another process holds it; false when it is
    // still held then. Throws OsError.
    bool lock(std::chrono::milliseconds limit);

  private:
    std::string path_;
    std::intptr_t handle_;
};

}  // namespace platform
