#include "cli_hooks/command/dispatch.hpp"

#include <array>
#include <exception>
#include <string>

#include "cli_hooks/command/debug_log.hpp"
#include "cli_hooks/handlers/file_hints.hpp"
#include "cli_hooks/handlers/history.hpp"
#include "cli_hooks/handlers/notices.hpp"
#include "cli_hooks/handlers/nudge.hpp"
#include "cli_hooks/handlers/session_start.hpp"
#include "platform/io.hpp"

namespace cli_hooks {

namespace {

constexpr const char* kUsage =
    "Usage: orvane-tamblo hooks {session-start|restore-compact|check-cache|remind-store|"
    "persist-learnings|save-compact|inject-context|log-conversation|finalize}\n";

constexpr std::array<HookSpec, kHookCount> kHooks = {{
    {"session-start", "Load AI cache context at session start", "claude",
     [](const HookArgs& args) { return hook_session_start(args); }},
    {"restore-compact", "Restore AI cache context after compaction", "claude",
     hook_restore_compact},
    {"check-cache", "Point to cached understanding before reading a file (recall hint)", "claude",
     hook_check_cache},
    {"refresh-cache", "Remind to refresh stale cached understanding after editing a file", "claude",
     hook_refresh_cache},
    {"suggest-tamblo", "Nudge toward semantic search when grep looks like symbol discovery",
     "claude", hook_suggest_tamblo},
    {"remind-store", "Remind to store understanding after reading/editing a file", "claude",
     hook_remind_store},
    {"persist-learnings", "Persist learnings before session ends", "claude",
     hook_persist_learnings},
    {"save-compact", "Remind to save context before compaction", "claude", hook_save_compact},
    {"inject-context", "Inject AI cache context before prompt (Windsurf)", "windsurf",
     hook_inject_context},
    {"log-conversation", "Log conversation turn to history", "claude", hook_log_conversation},
    {"finalize", "Finalize conversation session on stop", "claude", hook_finalize},
}};

void report_failure(std::string_view hook_cmd, std::string_view description) {
    std::string name(hook_cmd);
    _hook_debug_log("hook " + name + " EXCEPTION: " + std::string(description));
    try {
        platform::write_stderr("orvane-tamblo hook " + name +
                               " error: " + std::string(description) + "\n");
    } catch (...) {
        // Nowhere left to report to; the status still says the hook is fine.
    }
}

}  // namespace

std::span<const HookSpec> hook_table() {
    return kHooks;
}

int _run_guarded(std::string_view hook_cmd, HookHandler handler, const HookArgs& args) {
    try {
        const int rc = handler(args);
        _hook_debug_log("hook " + std::string(hook_cmd) + " returned rc=" + std::to_string(rc));
        return rc;
    } catch (const std::exception& e) {
        report_failure(hook_cmd, e.what());
    } catch (...) {
        report_failure(hook_cmd, "unknown error");
    }
    return 0;
}

int cmd_hooks(const HookArgs& args) {
    const auto& hook_cmd = args.hook_command;
    _hook_debug_log("cmd_hooks called: hook_cmd=" + (hook_cmd ? *hook_cmd : std::string("None")));
    if (hook_cmd && !hook_cmd->empty()) {
        for (const auto& hook : kHooks) {
            if (hook.name == *hook_cmd) {
                return _run_guarded(*hook_cmd, hook.handler, args);
            }
        }
    }
    try {
        platform::write_stdout(kUsage);
    } catch (...) {
        // The status already tells the caller no hook ran.
    }
    return 1;
}

}  // namespace cli_hooks
