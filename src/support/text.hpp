#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace support {

// `text` with ASCII letters in lower case; other bytes unchanged.
std::string ascii_lower(std::string_view text);

// The parts with `separator` between neighbours and nothing before the first or after the last.
std::string join(const std::vector<std::string>& parts, std::string_view separator);

// "12,345": a count a person reads at a glance.
std::string grouped(std::int64_t n);

}  // namespace support
