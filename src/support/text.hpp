#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace support {

// The parts with `separator` between neighbours and nothing before the first or after the last.
std::string join(const std::vector<std::string>& parts, std::string_view separator);

}  // namespace support
