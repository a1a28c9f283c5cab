#pragma once

#include "cli_hooks/command/args.hpp"

namespace cli_hooks {

// Before a read: point to the file's model-authored cached understanding, or say it is stale.
int hook_check_cache(const HookArgs& args);

// After an edit: suggest refreshing the file's model-authored cached understanding.
int hook_refresh_cache(const HookArgs& args);

// After a read or edit: remind to store an understanding of a file the cache does not know.
int hook_remind_store(const HookArgs& args);

}  // namespace cli_hooks
