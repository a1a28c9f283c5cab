#include "platform/clock.hpp"

#include <windows.h>

#include <ctime>

namespace platform {

std::string local_time(const char* format) {
    // The system's own time zone: the C runtime's would follow a TZ variable in its own syntax.
    SYSTEMTIME now{};
    GetLocalTime(&now);
    std::tm parts{};
    parts.tm_year = now.wYear - 1900;
    parts.tm_mon = now.wMonth - 1;
    parts.tm_mday = now.wDay;
    parts.tm_wday = now.wDayOfWeek;
    parts.tm_hour = now.wHour;
    parts.tm_min = now.wMinute;
    parts.tm_sec = now.wSecond;
    parts.tm_isdst = -1;
    char buf[64];
    const std::size_t n = std::strftime(buf, sizeof buf, format, &parts);
    return std::string(buf, n);
}

double epoch_seconds() {
    FILETIME now{};
    GetSystemTimePreciseAsFileTime(&now);
    const ULONGLONG ticks = (static_cast<ULONGLONG>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    constexpr ULONGLONG kEpochTicks = 116444736000000000ULL;  // 1601-01-01 to 1970-01-01 in 100 ns
    return static_cast<double>(ticks - kEpochTicks) / 1e7;
}

}  // namespace platform
