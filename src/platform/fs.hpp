#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

// Appends `data` with a single write to a file opened for appending (created when missing, its
// directory not). Throws OsError.
void append_file(const std::string& path, std::string_view data);

// The whole content of `path` when it is a regular file (links followed), nullopt when nothing
// of that kind is there. Throws OsError when it exists but cannot be read.
std::optional<std::string> read_regular_file(const std::string& path);

// Replaces the whole content of `path`, creating the file when missing. Throws OsError.
void write_file(const std::string& path, std::string_view data);

// Whether `path` is a regular file (links followed). A missing file, a dangling link, a link loop
// or a path through a non-directory is simply not one; any other failure throws OsError.
bool is_regular_file(const std::string& path);

// Creates `path` and its missing parents. Throws OsError.
void create_directories(const std::string& path);

std::string join_path(std::string_view dir, std::string_view name);

}  // namespace platform
