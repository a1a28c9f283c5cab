#include "cli_hooks/hooks.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "cli_hooks/handlers/file_hints.hpp"
#include "cli_hooks/handlers/history.hpp"
#include "cli_hooks/handlers/notices.hpp"
#include "cli_hooks/handlers/nudge.hpp"
#include "cli_hooks/handlers/session_start.hpp"

namespace cli_hooks {

namespace {

constexpr std::array<HookSpec, 11> kHooks = {{
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

}  // namespace

std::span<const HookSpec> hook_table() {
    return kHooks;
}

int cmd_hooks(const HookArgs& args) {
    return dispatch_hook(args, kHooks);
}

std::unique_ptr<HooksCommand> add_hooks_subparser(CLI::App& subparsers, int argc,
                                                  const char* const* argv) {
    auto is_hook = [](std::string_view word) {
        return std::any_of(kHooks.begin(), kHooks.end(),
                           [&](const HookSpec& hook) { return hook.name == word; });
    };
    std::string_view only;
    if (argc > 2 && std::string_view(argv[1]) == "hooks" && is_hook(argv[2])) {
        only = argv[2];
        for (int i = 3; i < argc; ++i) {
            if (is_hook(argv[i])) only = {};
        }
    }
    return std::make_unique<HooksCommand>(subparsers, kHooks, only);
}

}  // namespace cli_hooks
