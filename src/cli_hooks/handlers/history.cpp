#include "cli_hooks/handlers/history.hpp"

#include <optional>
#include <string>
#include <vector>

#include "cli_hooks/command/debug_log.hpp"
#include "cli_hooks/command/input.hpp"
#include "cli_hooks/query/runner.hpp"
#include "protocol/host_commands.hpp"
#include "services/logging_setup.hpp"
#include "support/json.hpp"
#include "support/utf8.hpp"

namespace cli_hooks {

namespace {

constexpr std::size_t kToolNameLimit = 1000;

// The session id the host may be given: empty means none; a wrong kind of value throws.
std::optional<std::string> session_id_of(const HookInput& data) {
    return validate_session_id(support::member(data, "session_id"));
}

// A tool's input or result as our JSON text, cut like any other text argument.
void append_json_argument(std::vector<std::string>& cmd, const char* option, const Json* value) {
    if (!support::truthy(value)) return;
    protocol::LogTurn::add_json(cmd, option,
                                std::string(support::cut_code_points(support::to_json_text(*value),
                                                                     _DEFAULT_STRING_LIMIT)));
}

const char* status_for(const Json* reason) {
    if (reason == nullptr) return protocol::Finalize::kCompleted;
    if (reason->is_array() || reason->is_object()) {
        throw support::TypeError(std::string("unhashable type: '") + support::type_name(*reason) +
                                 "'");
    }
    if (*reason == "compact" || *reason == "compacted") return protocol::Finalize::kCompacted;
    return protocol::Finalize::kCompleted;
}

}  // namespace

int hook_log_conversation(const HookArgs& args) {
    const HookInput data = read_json_input();
    std::vector<std::string> cmd = protocol::LogTurn::command(session_id_of(data));

    if (args.turn_type == "user") {
        const Json* prompt = support::member(data, "user_prompt");
        if (!support::truthy(prompt)) prompt = support::member(data, "prompt");
        if (!support::truthy(prompt)) return 0;
        protocol::LogTurn::add_prompt(cmd, _validate_string_input(prompt));
    } else if (args.turn_type == "tool") {
        const Json* tool_name = support::member(data, "tool_name");
        if (!support::truthy(tool_name)) return 0;
        protocol::LogTurn::add_tool(cmd, _validate_string_input(tool_name, kToolNameLimit));
        append_json_argument(cmd, protocol::option::tool_input,
                             support::member(data, "tool_input"));
        append_json_argument(cmd, protocol::option::tool_result,
                             support::member(data, "tool_result"));
    } else {
        return 0;
    }

    // A turn that cannot be recorded is dropped; the agent is never told.
    if (const auto failure = _run_host_command(cmd, protocol::LogTurn::kTimeLimitSeconds)) {
        services::log_record(services::LogLevel::warning, kHooksLogger,
                             "Conversation logging error: " + *failure);
        _hook_debug_log("hook_log_conversation subprocess failed: " + *failure);
    }
    return 0;
}

int hook_finalize(const HookArgs& /*args*/) {
    const HookInput data = read_json_input();
    const std::vector<std::string> cmd = protocol::Finalize::command(
        session_id_of(data), status_for(support::member(data, "reason")));

    if (const auto failure = _run_host_command(cmd, protocol::Finalize::kTimeLimitSeconds)) {
        services::log_record(services::LogLevel::debug, kHooksLogger, "hook_finalize failed",
                             *failure);
        _hook_debug_log("hook_finalize subprocess failed: " + *failure);
    }
    return 0;
}

}  // namespace cli_hooks
