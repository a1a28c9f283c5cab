#include "host/commands/report.hpp"

#include "platform/io.hpp"
#include "services/logging_setup.hpp"

namespace host::commands {

int report_error(std::string_view command, std::string_view message, int status) {
    std::string line(command);
    line += ": error: ";
    // One line, whatever the message holds.
    for (const char c : message) line += (c == '\n' || c == '\r') ? ' ' : c;
    line += '\n';
    try {
        platform::write_stderr(line);
    } catch (...) {
    }
    return status;
}

void log_lost(std::string_view command, std::string_view lost, std::string_view message) {
    std::string record(command);
    record += " failed, ";
    record += lost;
    record += ": ";
    for (const char c : message) record += (c == '\n' || c == '\r') ? ' ' : c;
    services::log_record(services::LogLevel::warning, "orvane_tamblo.store", record);
}

int usage_error(std::string_view command, std::string_view message) {
    return report_error(command,
                        std::string(message) + " (see '" + std::string(command) + " --help')",
                        kUsageStatus);
}

int answer(std::string_view command, const std::string& text) {
    try {
        platform::write_stdout(text);
    } catch (const std::exception& e) {
        return report_error(command, e.what(), kFailureStatus);
    }
    return 0;
}

}  // namespace host::commands
