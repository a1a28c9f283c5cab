#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace platform {

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

// The names in the directory `dir`, in no particular order, without "." and "..". Throws OsError.
std::vector<std::string> list_directory(const std::string& dir);

}  // namespace platform

namespace platform {

// Puts the whole file `existing` at `new_path` unless anything stands there already; returns
// whether it did. `existing` may still be there afterwards (as a second name): the caller removes
// it. Throws OsError for any other failure.
bool place_no_replace(const std::string& existing, const std::string& new_path);

// Removes the file `path` if it is there (a link itself, never its target).
void remove_file(const std::string& path) noexcept;

}  // namespace platform
