#pragma once

#include <optional>
#include <string>

namespace platform {

// The user's home directory (HOME; static binaries cannot ask the user database), or nullopt when
// it is not set to an absolute path.
std::optional<std::string> home_directory();

}  // namespace platform
