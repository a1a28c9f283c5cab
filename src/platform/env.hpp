#pragma once

#include <optional>
#include <string>

namespace platform {

// The variable's value, or nullopt when it is not set (an empty value is returned as "").
std::optional<std::string> get_env(const char* name);

}  // namespace platform
