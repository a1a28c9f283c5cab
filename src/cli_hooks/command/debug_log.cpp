#include "cli_hooks/command/debug_log.hpp"

#include <exception>
#include <string>

#include "platform/clock.hpp"
#include "platform/env.hpp"
#include "platform/fs.hpp"
#include "services/logging_setup.hpp"

namespace cli_hooks {

void _hook_debug_log(std::string_view msg) {
    // With the log off a message costs this one lookup; every hook pays it several times.
    const auto switch_value = platform::get_env("ORVANE_HOOK_DEBUG");
    if (!switch_value || switch_value->empty()) return;
    try {
        const std::string path = platform::join_path(services::get_log_dir(), "hook_debug.log");
        std::string line = platform::local_time("%H:%M:%S");
        line += ' ';
        line += msg;
        line += '\n';
        platform::append_file(path, line);
    } catch (const std::exception& e) {
        services::log_record(services::LogLevel::debug, kHooksLogger, "hook_debug_log write failed",
                             e.what());
    }
}

}  // namespace cli_hooks
