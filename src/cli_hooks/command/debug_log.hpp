#pragma once

#include <string_view>

namespace cli_hooks {

// The host logger that records the hooks' warnings and quiet failures.
inline constexpr const char* kHooksLogger = "orvane_tamblo.cli_hooks";

// Appends "HH:MM:SS <msg>" to hook_debug.log in the log directory when ORVANE_HOOK_DEBUG is
// non-empty ("0" and "false" switch it on too). Never fails toward its caller.
void _hook_debug_log(std::string_view msg);

}  // namespace cli_hooks
