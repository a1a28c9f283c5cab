#pragma once

#include <string>
#include <string_view>

namespace platform::posix {

// Reads `fd` to its end. Throws OsError naming `what`.
std::string read_all(int fd, const std::string& what);

// Writes all of `data` to `fd`, resuming after short writes. Throws OsError naming `what`.
void write_all(int fd, std::string_view data, const std::string& what);

}  // namespace platform::posix
