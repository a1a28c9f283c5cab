#pragma once

#include "cli_hooks/command/args.hpp"

namespace cli_hooks {

// At stop: a session summary asking to persist insights, when the AI cache holds anything.
int hook_persist_learnings(const HookArgs& args);

// Before compaction: a fixed reminder to persist insights, for the user.
int hook_save_compact(const HookArgs& args);

// Before a prompt (Windsurf): the current conversation and the cache's size, when there are any.
int hook_inject_context(const HookArgs& args);

}  // namespace cli_hooks
