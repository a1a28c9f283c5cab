#pragma once

#include <string>

namespace platform {

// The directory where this user's programs keep state such as logs: $XDG_STATE_HOME when it is an
// absolute path, else ~/.local/state; %LOCALAPPDATA% on Windows. Throws std::runtime_error when
// the environment names none.
std::string user_state_directory();

}  // namespace platform
