#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// Appends `data` with a single write to a regular file opened for appending (created when
// missing, its directory not). Anything else at `path` (a FIFO, a device) is refused at once,
// never waited on. Throws OsError.
void append_file(const std::string& path, std::string_view data);

// At most `limit` bytes of `path` when it is a regular file (links followed), nullopt when nothing
// of that kind is there. Throws OsError when it exists but cannot be read.
std::optional<std::string> read_regular_file(const std::string& path,
                                             std::size_t limit = static_cast<std::size_t>(-1));

// Replaces the file at `relative_path`, below the working directory, with `data` as a whole: the
// data goes to a new file in the same directory, which is then renamed over the old one, so a
// reader or a concurrent writer only ever sees a complete file. No symbolic link is followed in
// any part of the path: one in a directory part fails, one in the file's place is itself replaced
// and its target left untouched. A regular file there that may not be written stays as it is, as
// with an in-place write. The directory is not created. Throws OsError.
void replace_file(std::string_view relative_path, std::string_view data);

// Whether `path` is a regular file (links followed). A missing file, a dangling link, a link loop
// or a path through a non-directory is simply not one; any other failure throws OsError.
bool is_regular_file(const std::string& path);

// Whether anything is at `path` (links followed), by the same rules as is_regular_file.
bool path_exists(const std::string& path);

// Creates `path` and its missing parents. Throws OsError.
void create_directories(const std::string& path);

std::string join_path(std::string_view dir, std::string_view name);

}  // namespace platform
