#include "platform/home.hpp"

#include "platform/env.hpp"

namespace platform {

std::optional<std::string> home_directory() {
    auto home = get_env("HOME");
    if (!home || home->empty() || (*home)[0] != '/') return std::nullopt;
    return home;
}

}  // namespace platform
