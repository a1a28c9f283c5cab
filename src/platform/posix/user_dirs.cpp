#include "platform/user_dirs.hpp"

#include <stdexcept>

#include "platform/env.hpp"
#include "platform/fs.hpp"

namespace platform {

std::string user_state_directory() {
    if (auto state = get_env("XDG_STATE_HOME"); state && state->starts_with('/')) return *state;
    // From HOME alone: a static binary cannot look the user up in the password database.
    const auto home = get_env("HOME");
    if (!home || home->empty()) {
        throw std::runtime_error("no log directory: neither XDG_STATE_HOME nor HOME is set");
    }
    return join_path(*home, ".local/state");
}

}  // namespace platform
