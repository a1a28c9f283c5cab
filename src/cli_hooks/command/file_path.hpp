#pragma once

#include <optional>
#include <string>

#include "cli_hooks/command/input.hpp"

namespace cli_hooks {

// The canonical absolute path of the file the agent's tool call concerns, found in any agent's
// form of hook input, or nullopt when there is none or it lies outside the working directory.
// A "tool_input" or "tool_info" that is not an object throws support::TypeError when reached.
std::optional<std::string> extract_file_path(const HookInput& data);

// `file_path` relative to the working directory when it is absolute and at or below it ("." for
// the directory itself), else `file_path` unchanged.
std::string get_relative_path(const std::string& file_path);

}  // namespace cli_hooks
