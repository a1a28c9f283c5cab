#pragma once

#include <span>
#include <string_view>

namespace host::install {

// How an agent lays out its hook file.
enum class HookShape {
    claude,    // {"hooks": {Event: [{"matcher": M, "hooks": [{"type": "command", "command": C}]}]}}
    copilot,   // {"version": 1, "hooks": {event: [{"type": "command", "bash": C}]}}
    cursor,    // {"version": 1, "hooks": {event: [{"command": C}]}}
    windsurf,  // {"hooks": {event: [{"command": C, "show_output": true}]}}
};

// One hook the installer connects: the agent's event (and tool matcher, for Claude Code), and
// what follows "orvane-tamblo hooks" in the command.
struct HookEntry {
    std::string_view event;
    std::string_view matcher;  // "" for none: every tool, or an event without tools
    std::string_view invocation;
    bool show_output = false;  // Windsurf shows a hook's output only when asked to
};

struct AgentSpec {
    std::string_view name;   // the --agent value
    std::string_view title;  // for people
    HookShape shape;
    std::string_view project_hooks;  // relative to the repository
    std::string_view user_hooks;     // relative to the home directory
    std::string_view project_mcp;    // "" when the agent reads MCP servers only per user
    std::string_view user_mcp;
    std::span<const HookEntry> hooks;
    // Where the agent reads our skill, relative to the repository or, with --scope user, to the
    // home directory; "" for an agent whose documentation names no place for skills.
    std::string_view skill = "";
};

std::span<const AgentSpec> agents();
const AgentSpec* find_agent(std::string_view name);

// The name our MCP server is registered under.
inline constexpr std::string_view kServerName = "orvane-tamblo";

}  // namespace host::install
