#include <vector>

#include "platform/env.hpp"
#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"
#include "platform/process.hpp"

namespace platform {

namespace {

// What PATHEXT names as programs, less what the system would run through an interpreter: a
// batch file goes through cmd.exe, which parses its arguments again by rules of its own.
std::vector<std::string> program_extensions() {
    std::vector<std::string> extensions;
    const std::string list = get_env("PATHEXT").value_or(".COM;.EXE");
    std::size_t start = 0;
    while (start <= list.size()) {
        std::size_t end = list.find(';', start);
        if (end == std::string::npos) end = list.size();
        const std::string ext = list.substr(start, end - start);
        const std::string lower = normal_case(ext);
        if (lower == ".exe" || lower == ".com") extensions.push_back(ext);
        start = end + 1;
    }
    return extensions;
}

bool is_program(const std::string& path) {
    try {
        return is_regular_file(path);
    } catch (const OsError&) {
        return false;  // what cannot be looked at cannot be started either
    }
}

// `base` as it is when it already ends in a program extension, else with each one appended.
std::optional<std::string> with_extension(const std::string& base,
                                          const std::vector<std::string>& extensions) {
    for (const auto& ext : extensions) {
        if (base.size() > ext.size() &&
            normal_case(base.substr(base.size() - ext.size())) == normal_case(ext) &&
            is_program(base)) {
            return base;
        }
    }
    for (const auto& ext : extensions) {
        if (is_program(base + ext)) return base + ext;
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> find_program(std::string_view name) {
    if (name.empty() || name.find('\0') != std::string_view::npos) return std::nullopt;
    const std::vector<std::string> extensions = program_extensions();
    if (name.find_first_of("\\/:") != std::string_view::npos) {
        return with_extension(std::string(name), extensions);
    }
    const std::string dirs = get_env("PATH").value_or("");
    std::size_t start = 0;
    while (start <= dirs.size()) {
        std::size_t end = dirs.find(';', start);
        if (end == std::string::npos) end = dirs.size();
        std::string dir = dirs.substr(start, end - start);
        start = end + 1;
        if (dir.size() >= 2 && dir.front() == '"' && dir.back() == '"') {
            dir = dir.substr(1, dir.size() - 2);
        }
        // An empty or relative entry would search the working directory, which belongs to
        // whatever repository the agent runs in.
        if (!is_absolute_path(dir)) continue;
        if (auto found = with_extension(join_path(dir, name), extensions)) return found;
    }
    return std::nullopt;
}

}  // namespace platform
