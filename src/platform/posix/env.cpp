#include "platform/env.hpp"

#include <cstdlib>

namespace platform {

std::optional<std::string> get_env(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) return std::nullopt;
    return std::string(value);
}

}  // namespace platform
