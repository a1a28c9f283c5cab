#include "platform/home.hpp"

#include "platform/env.hpp"
#include "platform/path.hpp"

namespace platform {

std::optional<std::string> home_directory() {
    auto home = get_env("USERPROFILE");
    if (!home || !is_absolute_path(*home)) return std::nullopt;
    return home;
}

}  // namespace platform
