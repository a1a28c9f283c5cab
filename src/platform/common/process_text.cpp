#include "platform/common/process_text.hpp"

#include <stdexcept>

#include "platform/process.hpp"

namespace platform::process_text {

std::string describe(const std::vector<std::string>& argv) {
    std::string text;
    for (const auto& arg : argv) {
        if (!text.empty()) text += ' ';
        text += arg;
    }
    return text;
}

void check_arguments(const std::vector<std::string>& argv) {
    if (argv.empty()) throw ProcessStartError("could not start: empty command");
    for (const auto& arg : argv) {
        if (arg.find('\0') != std::string::npos) {
            throw std::invalid_argument("cannot run " + std::string(argv[0].c_str()) +
                                        ": an argument holds a NUL character");
        }
    }
}

void time_out(const std::vector<std::string>& argv, std::chrono::milliseconds timeout) {
    const auto ms = timeout.count();
    const std::string limit =
        ms % 1000 == 0 ? std::to_string(ms / 1000) + " seconds" : std::to_string(ms) + " ms";
    throw ProcessTimeout("command '" + describe(argv) + "' timed out after " + limit);
}

}  // namespace platform::process_text
