#include "support/time_text.hpp"

#include <cstdio>

namespace support {

std::string iso8601_utc(std::int64_t epoch_ms) {
    std::int64_t seconds = epoch_ms / 1000;
    if (epoch_ms % 1000 < 0) --seconds;
    std::int64_t days = seconds / 86400;
    std::int64_t rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    // Civil date from days since 1970-01-01, in 400-year eras (proleptic Gregorian calendar).
    const std::int64_t z = days + 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const std::int64_t doe = z - era * 146097;
    const std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const std::int64_t mp = (5 * doy + 2) / 153;
    const std::int64_t day = doy - (153 * mp + 2) / 5 + 1;
    const std::int64_t month = mp < 10 ? mp + 3 : mp - 9;
    const std::int64_t year = yoe + era * 400 + (month <= 2 ? 1 : 0);
    char buf[48];
    const int n =
        std::snprintf(buf, sizeof buf, "%04lld-%02lld-%02lldT%02lld:%02lld:%02lldZ",
                      static_cast<long long>(year), static_cast<long long>(month),
                      static_cast<long long>(day), static_cast<long long>(rest / 3600),
                      static_cast<long long>(rest / 60 % 60), static_cast<long long>(rest % 60));
    return std::string(buf, static_cast<std::size_t>(n));
}

}  // namespace support
