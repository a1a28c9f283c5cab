#pragma once

#include <span>
#include <string_view>

#include "cli_hooks/command/args.hpp"

namespace cli_hooks {

// One hook as registered and dispatched.
struct HookSpec {
    std::string_view name;
    const char* help;
    const char* agent_default;
    HookHandler handler;
};

// Runs the hook `args` names, looked up in `hooks`, inside the guard and returns its status;
// without a hook it writes the usage line and returns 1.
int dispatch_hook(const HookArgs& args, std::span<const HookSpec> hooks);

}  // namespace cli_hooks
