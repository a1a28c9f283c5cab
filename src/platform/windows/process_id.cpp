#include "platform/process_id.hpp"

#include <windows.h>

namespace platform {

bool process_running(std::int64_t pid) {
    if (pid <= 0 || pid > 0xFFFFFFFF) return false;
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(pid));
    // Any refusal but "no such process" means one is there that we may not look at.
    if (process == nullptr) return GetLastError() != ERROR_INVALID_PARAMETER;
    const bool running = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return running;
}

}  // namespace platform
