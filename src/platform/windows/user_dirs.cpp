#include "platform/user_dirs.hpp"

#include <stdexcept>

#include "platform/env.hpp"
#include "platform/path.hpp"

namespace platform {

std::string user_state_directory() {
    // Machine-local, not roaming: logs have no business following the user around a domain.
    const auto local = get_env("LOCALAPPDATA");
    if (!local || !is_absolute_path(*local)) {
        throw std::runtime_error("no log directory: LOCALAPPDATA is not set");
    }
    return *local;
}

}  // namespace platform
