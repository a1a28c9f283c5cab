#include "cli_hooks/output/response.hpp"

#include <array>

#include "cli_hooks/command/agent.hpp"
#include "platform/io.hpp"
#include "support/json.hpp"
#include "support/text.hpp"
#include "support/utf8.hpp"

namespace cli_hooks {

using support::Json;

namespace {

// Only these Claude Code events carry model context; everything else falls back to
// systemMessage, which only the user sees.
constexpr std::array<std::string_view, 5> _CLAUDE_CONTEXT_EVENTS = {
    "SessionStart", "Stop", "PreToolUse", "UserPromptSubmit", "PostToolUse"};

bool has_reason(std::optional<std::string_view> reason) {
    return reason && !reason->empty();
}

std::string json_line(const Json& response) {
    return support::to_json_text(response) + "\n";
}

std::string _output_claude(std::string_view event_name, std::string_view context, bool block,
                           std::optional<std::string_view> reason) {
    Json response = Json::object();
    bool in_set = false;
    for (const auto event : _CLAUDE_CONTEXT_EVENTS) in_set = in_set || event == event_name;
    if (in_set) {
        Json hook_output = Json::object();
        hook_output.set("hookEventName", event_name);
        if (!context.empty()) hook_output.set("additionalContext", context);
        if (block && event_name == "PreToolUse") {
            hook_output.set("permissionDecision", "deny");
            if (has_reason(reason)) hook_output.set("permissionDecisionReason", *reason);
        }
        response.set("hookSpecificOutput", std::move(hook_output));
    } else if (!context.empty()) {
        response.set("systemMessage", context);
    }
    return json_line(response);
}

std::string _output_copilot(std::string_view event_name, std::string_view context, bool block,
                            std::optional<std::string_view> reason) {
    Json response = Json::object();
    response.set("message", context);
    if (block) {
        response.set("action", "deny");
        if (has_reason(reason)) response.set("reason", *reason);
    } else {
        const std::string event = support::ascii_lower(event_name);
        if (event == "pretooluse" || event == "pre_tool_use") response.set("action", "approve");
    }
    return json_line(response);
}

std::string _output_cursor(std::string_view /*event_name*/, std::string_view context, bool block,
                           std::optional<std::string_view> reason) {
    Json response = Json::object();
    response.set("output", context);
    if (block) {
        response.set("block", true);
        if (has_reason(reason)) response.set("reason", *reason);
    }
    return json_line(response);
}

// Plain text has no escape for a lone surrogate, and the agent reads UTF-8.
std::string _output_windsurf(std::string_view context) {
    std::string out;
    support::append_surrogates_replaced(out, context);
    out += '\n';
    return out;
}

}  // namespace

std::string format_response(std::string_view agent, std::string_view event_name,
                            std::string_view context, bool block,
                            std::optional<std::string_view> reason) {
    if (agent == AGENT_COPILOT) return _output_copilot(event_name, context, block, reason);
    if (agent == AGENT_CURSOR) return _output_cursor(event_name, context, block, reason);
    if (agent == AGENT_WINDSURF) return _output_windsurf(context);
    return _output_claude(event_name, context, block, reason);
}

std::string format_system_message(std::string_view agent, std::string_view message) {
    if (agent == AGENT_WINDSURF) return _output_windsurf(message);
    const char* key = agent == AGENT_COPILOT  ? "message"
                      : agent == AGENT_CURSOR ? "output"
                                              : "systemMessage";
    Json response = Json::object();
    response.set(key, message);
    return json_line(response);
}

void output_response(std::string_view agent, std::string_view event_name, std::string_view context,
                     bool block, std::optional<std::string_view> reason) {
    platform::write_stdout(format_response(agent, event_name, context, block, reason));
}

void output_system_message(std::string_view agent, std::string_view message) {
    platform::write_stdout(format_system_message(agent, message));
}

}  // namespace cli_hooks
