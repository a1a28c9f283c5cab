#pragma once

#include <string>

namespace platform {

// Local wall-clock time formatted with strftime-style `format` ("%H:%M:%S").
std::string local_time(const char* format);

// The local wall-clock time at `epoch_seconds`, formatted the same way.
std::string local_time_at(double epoch_seconds, const char* format);

// Wall-clock seconds since the Unix epoch, with their fraction.
double epoch_seconds();

}  // namespace platform
