#include "platform/os_error.hpp"

#include <cerrno>
#include <cstring>

namespace platform {

OsError::OsError(const std::string& what, int code)
    : std::runtime_error(what + ": " + std::strerror(code)), code_(code) {}

bool OsError::leads_nowhere() const {
    return code_ == ENOENT || code_ == ELOOP;
}

bool is_disk_full(int code) {
    return code == ENOSPC || code == EDQUOT || code == EFBIG;
}

}  // namespace platform
