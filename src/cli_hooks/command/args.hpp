#pragma once

#include <optional>
#include <string>

namespace cli_hooks {

// The parsed command line of one hook run.
struct HookArgs {
    std::optional<std::string> hook_command;  // absent when `hooks` was given no hook
    std::string agent = "claude";             // --agent, or the hook's default
    std::optional<std::string> turn_type;     // log-conversation's --type: "user" or "tool"
};

using HookHandler = int (*)(const HookArgs&);

}  // namespace cli_hooks
