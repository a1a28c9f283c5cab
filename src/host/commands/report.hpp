#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace host::commands {

inline constexpr int kUsageStatus = 2;    // as for the parser's own errors
inline constexpr int kFailureStatus = 1;  // the store could not answer

// Writes "<command>: error: <message>" as one line on standard error; returns `status`.
int report_error(std::string_view command, std::string_view message, int status);

// A usage error: the message, where to read more, and kUsageStatus.
int usage_error(std::string_view command, std::string_view message);

// Writes the answer to standard output; 0, or kFailureStatus (reported) when it cannot be
// written.
int answer(std::string_view command, const std::string& text);

// Runs `body`, turning any failure into its one line on standard error and kFailureStatus.
template <typename Body>
int guarded(std::string_view command, Body&& body) {
    try {
        return body();
    } catch (const std::exception& e) {
        return report_error(command, e.what(), kFailureStatus);
    }
}

// Writes "<command> failed, <lost>: <message>" as a warning to the host log.
void log_lost(std::string_view command, std::string_view lost, std::string_view message);

// guarded() for a command that stores what it is given: a failure is also a warning in the host
// log, naming what was lost. The hooks ignore their children's errors, so without it a turn
// would vanish without a trace.
template <typename Body>
int guarded_write(std::string_view command, std::string_view lost, Body&& body) {
    try {
        return body();
    } catch (const std::exception& e) {
        log_lost(command, lost, e.what());
        return report_error(command, e.what(), kFailureStatus);
    }
}

}  // namespace host::commands
