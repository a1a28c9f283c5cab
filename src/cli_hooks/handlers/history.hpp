#pragma once

#include "cli_hooks/command/args.hpp"

namespace cli_hooks {

// One conversation turn (a user prompt or a tool call) handed to the host's history.
int hook_log_conversation(const HookArgs& args);

// At stop: tell the host's history the session ended, as completed or compacted.
int hook_finalize(const HookArgs& args);

}  // namespace cli_hooks
