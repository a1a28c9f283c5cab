#include "platform/process_id.hpp"

#include <signal.h>

#include <cerrno>
#include <climits>

namespace platform {

bool process_running(std::int64_t pid) {
    // 0 and negative ids would name process groups.
    if (pid <= 0 || pid > INT_MAX) return false;
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

}  // namespace platform
