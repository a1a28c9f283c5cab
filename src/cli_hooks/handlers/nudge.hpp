#pragma once

#include "cli_hooks/command/args.hpp"

namespace cli_hooks {

// Before a Claude Code text search whose pattern looks like an identifier, in an indexed
// repository: a nudge toward the index's symbol tools, at most once per 600 seconds.
int hook_suggest_tamblo(const HookArgs& args);

}  // namespace cli_hooks
