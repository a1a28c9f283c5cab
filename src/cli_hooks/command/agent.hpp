#pragma once

#include <string_view>

namespace cli_hooks {

// The agent a hook answers to. Anything unrecognised answers as Claude Code.
using AgentKind = std::string_view;
inline constexpr AgentKind AGENT_CLAUDE = "claude";
inline constexpr AgentKind AGENT_COPILOT = "copilot";
inline constexpr AgentKind AGENT_CURSOR = "cursor";
inline constexpr AgentKind AGENT_WINDSURF = "windsurf";

}  // namespace cli_hooks
