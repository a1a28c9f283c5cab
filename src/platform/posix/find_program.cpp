#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/process.hpp"

namespace platform {

namespace {

// What execve would take: where PATH is unset, the C library's usual default.
constexpr std::string_view kDefaultPath = "/bin:/usr/bin";

bool is_executable_file(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

std::optional<std::string> find_program(std::string_view name) {
    if (name.empty() || name.find('\0') != std::string_view::npos) return std::nullopt;
    if (name.find('/') != std::string_view::npos) {
        std::string path(name);
        if (is_executable_file(path)) return path;
        return std::nullopt;
    }
    const char* env = std::getenv("PATH");
    std::string_view dirs = env != nullptr ? std::string_view(env) : kDefaultPath;
    while (true) {
        const std::size_t colon = dirs.find(':');
        const std::string_view dir = dirs.substr(0, colon);
        // An empty or relative entry would search the working directory, which belongs to
        // whatever repository the agent runs in.
        if (dir.starts_with('/')) {
            std::string candidate(dir);
            if (candidate.back() != '/') candidate += '/';
            candidate += name;
            if (is_executable_file(candidate)) return candidate;
        }
        if (colon == std::string_view::npos) return std::nullopt;
        dirs.remove_prefix(colon + 1);
    }
}

}  // namespace platform
