#include "host/install/agents.hpp"

#include <array>

namespace host::install {

namespace {

// Claude Code reads what our hooks write for it at every one of these events. SessionEnd, not
// Stop: Stop fires after every response.
constexpr std::array kClaudeHooks{
    HookEntry{"SessionStart", "startup|resume", "session-start"},
    HookEntry{"SessionStart", "compact", "restore-compact"},
    HookEntry{"PreToolUse", "Read", "check-cache"},
    HookEntry{"PreToolUse", "Grep|Glob", "suggest-tamblo"},
    HookEntry{"PostToolUse", "Edit|Write|MultiEdit", "refresh-cache"},
    HookEntry{"PostToolUse", "", "log-conversation --type tool"},
    HookEntry{"UserPromptSubmit", "", "log-conversation --type user"},
    HookEntry{"SessionEnd", "", "finalize"},
};

// Copilot reads none of the response forms, and hands tools over as toolName/toolArgs, which the
// turn log does not read: only prompts are logged, and the session is finalized.
constexpr std::array kCopilotHooks{
    HookEntry{"userPromptSubmitted", "", "log-conversation --type user --agent copilot"},
    HookEntry{"sessionEnd", "", "finalize --agent copilot"},
};

// Cursor reads none of the response forms either; its prompt and tool inputs carry the members
// the turn log reads.
constexpr std::array kCursorHooks{
    HookEntry{"beforeSubmitPrompt", "", "log-conversation --type user --agent cursor"},
    HookEntry{"postToolUse", "", "log-conversation --type tool --agent cursor"},
    HookEntry{"sessionEnd", "", "finalize --agent cursor"},
};

// Windsurf shows hook output to the user only, never to the model, and has no session end; its
// inputs keep the prompt inside tool_info, where the turn log does not look.
constexpr std::array kWindsurfHooks{
    HookEntry{"pre_user_prompt", "", "inject-context --agent windsurf", true},
};

// Copilot reads the skills in Claude Code's folder too, in both scopes: one copy serves both.
constexpr std::string_view kClaudeSkill = ".claude/skills/tamblo/SKILL.md";

constexpr std::array kAgents{
    AgentSpec{"claude", "Claude Code", HookShape::claude, ".claude/settings.json",
              ".claude/settings.json", ".mcp.json", ".claude.json", kClaudeHooks, kClaudeSkill},
    AgentSpec{"copilot", "GitHub Copilot", HookShape::copilot, ".github/hooks/orvane-tamblo.json",
              ".copilot/hooks/orvane-tamblo.json", ".mcp.json", ".copilot/mcp-config.json",
              kCopilotHooks, kClaudeSkill},
    AgentSpec{"cursor", "Cursor", HookShape::cursor, ".cursor/hooks.json", ".cursor/hooks.json",
              ".cursor/mcp.json", ".cursor/mcp.json", kCursorHooks},
    AgentSpec{"windsurf", "Windsurf", HookShape::windsurf, ".windsurf/hooks.json",
              ".codeium/windsurf/hooks.json", "", ".codeium/windsurf/mcp_config.json",
              kWindsurfHooks},
};

}  // namespace

std::span<const AgentSpec> agents() {
    return kAgents;
}

const AgentSpec* find_agent(std::string_view name) {
    for (const AgentSpec& agent : kAgents) {
        if (agent.name == name) return &agent;
    }
    return nullptr;
}

}  // namespace host::install
