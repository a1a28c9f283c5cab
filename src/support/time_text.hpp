#pragma once

#include <cstdint>
#include <string>

namespace support {

// "2025-01-02T03:04:05Z": UTC, whole seconds, for milliseconds since the Unix epoch.
std::string iso8601_utc(std::int64_t epoch_ms);

}  // namespace support
