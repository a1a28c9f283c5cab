#include "platform/clock.hpp"

#include <sys/time.h>

#include <ctime>

namespace platform {

std::string local_time(const char* format) {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    char buf[64];
    const std::size_t n = std::strftime(buf, sizeof buf, format, &parts);
    return std::string(buf, n);
}

double epoch_seconds() {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

}  // namespace platform

namespace platform {

std::string local_time_at(double epoch_seconds, const char* format) {
    const auto when = static_cast<std::time_t>(epoch_seconds);
    std::tm parts{};
    localtime_r(&when, &parts);
    char buf[64];
    const std::size_t n = std::strftime(buf, sizeof buf, format, &parts);
    return std::string(buf, n);
}

}  // namespace platform
