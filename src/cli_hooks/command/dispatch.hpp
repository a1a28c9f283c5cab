#pragma once

#include <span>
#include <string_view>

#include "cli_hooks/command/args.hpp"

namespace cli_hooks {

struct HookSpec {
    std::string_view name;
    const char* help;
    const char* agent_default;
    HookHandler handler;
};

inline constexpr std::size_t kHookCount = 11;

// The eleven hooks in registration order: the one list of them.
std::span<const HookSpec> hook_table();

// Runs the named hook inside the guard; the result is the process exit status.
int cmd_hooks(const HookArgs& args);

// Runs `handler`; any failure it lets escape becomes one line on standard error and status 0.
int _run_guarded(std::string_view hook_cmd, HookHandler handler, const HookArgs& args);

}  // namespace cli_hooks
