#pragma once

#include "cli_hooks/command/args.hpp"

namespace cli_hooks {

// Before compaction: a fixed reminder to persist insights, for the user.
int hook_save_compact(const HookArgs& args);

}  // namespace cli_hooks
