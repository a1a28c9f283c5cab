#pragma once

#include <chrono>
#include <string>
#include <vector>

// What both process runners say about a command, in the same words on every system.
namespace platform::process_text {

// The command as one line for messages: its words joined by blanks.
std::string describe(const std::vector<std::string>& argv);

// Throws ProcessStartError for an empty command, and std::invalid_argument for an argument holding
// a NUL: no system passes one whole, and a shortened argument would be a different one.
void check_arguments(const std::vector<std::string>& argv);

[[noreturn]] void time_out(const std::vector<std::string>& argv, std::chrono::milliseconds timeout);

}  // namespace platform::process_text
