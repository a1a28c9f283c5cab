#include "services/logging_setup.hpp"

#include "platform/clock.hpp"
#include "platform/env.hpp"
#include "platform/fs.hpp"
#include "platform/user_dirs.hpp"
#include "support/text.hpp"

namespace services {

namespace {

const char* level_name(LogLevel level) {
    switch (level) {
        case LogLevel::debug:
            return "DEBUG";
        case LogLevel::info:
            return "INFO";
        case LogLevel::warning:
            return "WARNING";
        case LogLevel::error:
            return "ERROR";
    }
    return "ERROR";
}

bool debug_enabled() {
    const auto value = platform::get_env("ORVANE_TAMBLO_LOG_LEVEL");
    return value && support::ascii_lower(*value) == "debug";
}

}  // namespace

std::string get_log_dir() {
    if (auto dir = platform::get_env("ORVANE_TAMBLO_LOG_DIR"); dir && !dir->empty()) return *dir;
    const std::string dir = platform::join_path(
        platform::join_path(platform::user_state_directory(), "orvane-tamblo"), "logs");
    platform::create_directories(dir);
    return dir;
}

void log_record(LogLevel level, std::string_view logger, std::string_view message,
                std::string_view detail) {
    if (level < LogLevel::warning && !debug_enabled()) return;
    try {
        std::string record = platform::local_time("%Y-%m-%d %H:%M:%S");
        record += ' ';
        record += level_name(level);
        record += ' ';
        record += logger;
        record += ": ";
        record += message;
        record += '\n';
        if (!detail.empty()) {
            record += detail;
            if (record.back() != '\n') record += '\n';
        }
        platform::append_file(platform::join_path(get_log_dir(), "orvane-tamblo.log"), record);
    } catch (...) {
        // Logging must never disturb the run it describes.
    }
}

}  // namespace services
