#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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
void replace_file_no_follow(std::string_view relative_path, std::string_view data);

// Whether `path` is a regular file (links followed). A missing file, a dangling link, a link loop
// or a path through a non-directory is simply not one; any other failure throws OsError.
bool is_regular_file(const std::string& path);

// Whether anything is at `path` (links followed), by the same rules as is_regular_file.
bool path_exists(const std::string& path);

// Creates `path` and its missing parents. Throws OsError.
void create_directories(const std::string& path);

std::string join_path(std::string_view dir, std::string_view name);

// Creates the directory `path` (its parent must exist). Returns false when something already
// stands at `path`, whatever it is: the caller inspects it. A link standing there is never
// followed. Throws OsError for any other failure.
bool make_directory(const std::string& path);

// Removes the directory `path` if it is empty; returns whether it did. Anything else there (a
// link above all, which is never followed) and a directory that holds anything stay.
bool remove_empty_directory(const std::string& path) noexcept;

// Creates the file `path` holding `content`, unless anything (a file, a link, even a dangling one)
// already stands there; returns whether it was created. The content appears whole or not at all:
// it is written to a temporary file beside `path` and then linked into place, so a concurrent
// reader never sees a partial file. Throws OsError for any other failure.
bool create_file_no_replace(const std::string& path, std::string_view content);

// Puts the whole file `existing` at `new_path` unless anything stands there already; returns
// whether it did. `existing` may still be there afterwards (as a second name): the caller removes
// it. Throws OsError for any other failure.
bool place_no_replace(const std::string& existing, const std::string& new_path);

// Removes the file `path` if it is there (a link itself, never its target).
void remove_file(const std::string& path) noexcept;

// Renames the file `from` over `to`, replacing whatever file is there (a link itself, never its
// target). Throws OsError.
void rename_over(const std::string& from, const std::string& to);

// The content of `path` when it is a regular file of at most `limit` bytes, opened without
// following a link in its last component; nullopt when it is anything else (missing, a link, a
// FIFO, larger). Never blocks on a FIFO or a device. Throws OsError when it cannot be read.
std::optional<std::string> read_plain_file(const std::string& path, std::size_t limit);

}  // namespace platform
