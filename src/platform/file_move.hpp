#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace platform {

// Renames the file `from` over `to`, replacing whatever file is there (a link itself, never its
// target). Throws OsError.
void rename_over(const std::string& from, const std::string& to);

// The content of `path` when it is a regular file of at most `limit` bytes, opened without
// following a link in its last component; nullopt when it is anything else (missing, a link, a
// FIFO, larger). Never blocks on a FIFO or a device. Throws OsError when it cannot be read.
std::optional<std::string> read_plain_file(const std::string& path, std::size_t limit);

}  // namespace platform
