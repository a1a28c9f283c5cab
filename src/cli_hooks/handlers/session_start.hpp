#pragma once

#include <optional>
#include <string>

#include "cli_hooks/command/args.hpp"

namespace cli_hooks {

// Session start and resume: the brief, the current conversation and the AI cache summary as the
// model's context. `force_source` overrides the input's "source".
int hook_session_start(const HookArgs& args,
                       const std::optional<std::string>& force_source = std::nullopt);

// After a compaction: the same without the brief, which the agent still holds.
int hook_restore_compact(const HookArgs& args);

}  // namespace cli_hooks
