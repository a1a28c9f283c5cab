#pragma once

#include <string>

namespace platform {

// Local wall-clock time formatted with strftime-style `format` ("%H:%M:%S").
std::string local_time(const char* format);

// Wall-clock seconds since the Unix epoch, with their fraction.
double epoch_seconds();

}  // namespace platform
