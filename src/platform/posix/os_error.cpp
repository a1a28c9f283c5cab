#include "platform/os_error.hpp"

#include <cstring>

namespace platform {

OsError::OsError(const std::string& what, int code)
    : std::runtime_error(what + ": " + std::strerror(code)), code_(code) {}

}  // namespace platform
