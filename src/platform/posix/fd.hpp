#pragma once

#include <string>
#include <string_view>

namespace platform::posix {

// Owns one descriptor and closes it on every way out.
struct UniqueFd {
    int fd = -1;
    UniqueFd() = default;
    explicit UniqueFd(int owned) : fd(owned) {}
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { close(); }
    void close();
};

// Reads `fd` to its end, or until `limit` bytes. Throws OsError naming `what`.
std::string read_all(int fd, const std::string& what,
                     std::size_t limit = static_cast<std::size_t>(-1));

// Writes all of `data` to `fd`, resuming after short writes. Throws OsError naming `what`.
void write_all(int fd, std::string_view data, const std::string& what);

}  // namespace platform::posix
