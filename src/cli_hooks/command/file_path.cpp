#include "cli_hooks/command/file_path.hpp"

#include <stdexcept>

#include "cli_hooks/command/debug_log.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"
#include "support/json.hpp"

namespace cli_hooks {

namespace {

// The path member of each agent's input, in the order they are tried.
const Json* find_candidate(const HookInput& data) {
    const auto nested = [&](std::string_view outer) -> const Json* {
        const Json* object = support::member(data, outer);
        if (object == nullptr) return nullptr;
        return support::member(*object, "file_path");
    };
    if (const Json* v = nested("tool_input"); support::truthy(v)) return v;
    if (const Json* v = support::member(data, "file_path"); support::truthy(v)) return v;
    if (const Json* v = nested("tool_info"); support::truthy(v)) return v;
    if (const Json* v = support::member(data, "toolArgs"); support::truthy(v)) return v;
    if (const Json* v = support::member(data, "filePath"); support::truthy(v)) return v;
    return nullptr;
}

}  // namespace

std::optional<std::string> extract_file_path(const HookInput& data) {
    const Json* candidate = find_candidate(data);
    if (candidate == nullptr) return std::nullopt;
    const std::string raw = support::plain_text(*candidate);
    try {
        const std::string normalized = platform::canonical_path(raw);
        const std::string cwd = platform::canonical_path(platform::current_directory());
        if (!platform::is_inside(cwd, normalized)) {
            _hook_debug_log("extract_file_path rejected (outside cwd): " + normalized);
            return std::nullopt;
        }
        return normalized;
    } catch (const platform::OsError& e) {
        _hook_debug_log(std::string("extract_file_path validation failed: ") + e.what());
    } catch (const std::invalid_argument& e) {
        _hook_debug_log(std::string("extract_file_path validation failed: ") + e.what());
    }
    return std::nullopt;
}

std::string get_relative_path(const std::string& file_path) {
    if (!platform::is_absolute_path(file_path)) return file_path;
    const std::string cwd = platform::current_directory();
    if (!platform::is_inside(cwd, file_path)) {
        _hook_debug_log("get_relative_path: not under cwd, using as-is ('" + file_path +
                        "' is not in the subpath of '" + cwd + "')");
        return file_path;
    }
    const std::vector<std::string> parts = platform::split_path(file_path).parts;
    const std::size_t depth = platform::split_path(cwd).parts.size();
    if (parts.size() == depth) return ".";
    std::string relative;
    for (std::size_t i = depth; i < parts.size(); ++i) {
        if (!relative.empty()) relative += '/';
        relative += parts[i];
    }
    return relative;
}

}  // namespace cli_hooks
