#include "platform/file_lock.hpp"

#include <windows.h>

#include <algorithm>
#include <thread>

#include "platform/os_error.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

FileLock::FileLock(const std::string& path)
    : path_(path),
      handle_(reinterpret_cast<std::intptr_t>(
          CreateFileW(windows::wide_path(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                      FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr))) {
    if (reinterpret_cast<HANDLE>(handle_) == INVALID_HANDLE_VALUE) {
        throw OsError("cannot open " + path, static_cast<int>(GetLastError()));
    }
}

FileLock::~FileLock() {
    CloseHandle(reinterpret_cast<HANDLE>(handle_));  // lets go of the lock too
}

bool FileLock::lock(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (auto pause = std::chrono::milliseconds(1);;
         pause = std::min(pause * 2, std::chrono::milliseconds(20))) {
        OVERLAPPED start{};
        if (LockFileEx(reinterpret_cast<HANDLE>(handle_),
                       LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &start)) {
            return true;
        }
        const DWORD error = GetLastError();
        if (error != ERROR_LOCK_VIOLATION && error != ERROR_IO_PENDING) {
            throw OsError("cannot lock " + path_, static_cast<int>(error));
        }
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(pause);
    }
}

}  // namespace platform
