#pragma once

#include <string>
#include <string_view>

namespace services {

// ORVANE_TAMBLO_LOG_DIR when set and non-empty, used as it is and never created; otherwise
// orvane-tamblo/logs in the user's state directory (~/.local/state, or $XDG_STATE_HOME;
// %LOCALAPPDATA% on Windows), created on first use. Throws when no directory can be had.
std::string get_log_dir();

enum class LogLevel { debug, info, warning, error };

// Appends "YYYY-MM-DD HH:MM:SS LEVEL logger: message" and the detail lines to orvane-tamblo.log in
// the log directory, when `level` reaches the threshold (WARNING, or DEBUG with
// ORVANE_TAMBLO_LOG_LEVEL=debug). Never writes to the standard streams; a failure is swallowed.
void log_record(LogLevel level, std::string_view logger, std::string_view message,
                std::string_view detail = {});

}  // namespace services
