#include "platform/clock.hpp"

#include <windows.h>

#include <ctime>

namespace platform {

namespace {

constexpr ULONGLONG kEpochTicks = 116444736000000000ULL;  // 1601-01-01 to 1970-01-01 in 100 ns

std::string format_time(const SYSTEMTIME& when, const char* format) {
    std::tm parts{};
    parts.tm_year = when.wYear - 1900;
    parts.tm_mon = when.wMonth - 1;
    parts.tm_mday = when.wDay;
    parts.tm_wday = when.wDayOfWeek;
    parts.tm_hour = when.wHour;
    parts.tm_min = when.wMinute;
    parts.tm_sec = when.wSecond;
    parts.tm_isdst = -1;
    char buf[64];
    const std::size_t n = std::strftime(buf, sizeof buf, format, &parts);
    return std::string(buf, n);
}

}  // namespace

std::string local_time(const char* format) {
    // The system's own time zone: the C runtime's would follow a TZ variable in its own syntax.
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return format_time(now, format);
}

std::string local_time_at(double epoch_seconds, const char* format) {
    const auto ticks =
        static_cast<ULONGLONG>(static_cast<long long>(epoch_seconds) * 10000000LL) + kEpochTicks;
    const FILETIME utc_time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    SYSTEMTIME utc{}, local{};
    // The zone's rules for that date, not today's offset.
    if (!FileTimeToSystemTime(&utc_time, &utc) ||
        !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local)) {
        return std::string();
    }
    return format_time(local, format);
}

double epoch_seconds() {
    FILETIME now{};
    GetSystemTimePreciseAsFileTime(&now);
    const ULONGLONG ticks = (static_cast<ULONGLONG>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return static_cast<double>(ticks - kEpochTicks) / 1e7;
}

}  // namespace platform
